// Engines that kill themselves at a change of the file system, as children of a test: "mortal_engine" waits
// for messages and events like any other, "forced_mortal_engine" begins by training what waits.
#pragma once

#include <string>
#include <string_view>

#include "platform/change_hook.h"

namespace tvr {

// Their argument: the change, and the end of the path that is about to be changed.
std::string mortal_engine_argument(platform::change what, std::string_view path);

} // namespace tvr
