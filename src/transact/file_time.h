// The time mark of the compiled base.
#pragma once

#include <cstdint>
#include <string_view>

namespace tvr {

// Creates the file anew with the 8 bytes of a file time, and brings it to the disk with all names in its
// folder. Nothing looks at a failure.
void write_file_time(std::string_view path, std::uint64_t time);

} // namespace tvr
