#include "tests/support/platform_limits.h"

#include <fstream>

namespace tvr {

bool read_only_holds(const std::filesystem::path& read_only_file) {
    return !std::ofstream(read_only_file, std::ios::app).is_open();
}

file_size_limit::file_size_limit(std::uint64_t) {}

file_size_limit::~file_size_limit() = default;

} // namespace tvr
