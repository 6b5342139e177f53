// The entry routine of the engine executable. The backend's main or WinMain calls it; only the
// executable links that.
#pragma once

#include <string_view>

namespace tvr {

// `command_line` is the text of the arguments alone, without the program's name. Returns the exit code.
int engine_main(std::string_view command_line);

} // namespace tvr
