#include "tests/support/platform_limits.h"

#include <fstream>

#include "platform/win32/handle.h"

namespace tvr {

bool read_only_holds(const std::filesystem::path& read_only_file) {
    return !std::ofstream(read_only_file, std::ios::app).is_open();
}

// The standard library answers 1 for every file.
unsigned link_count(const std::filesystem::path& file) {
    const platform::win32::handle opened(
        CreateFileW(file.c_str(), 0, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
    BY_HANDLE_FILE_INFORMATION facts{};
    return GetFileInformationByHandle(opened.get(), &facts) ? facts.nNumberOfLinks : 0;
}

std::uint32_t race_length(std::uint32_t full) noexcept {
    return GetProcAddress(GetModuleHandleA("ntdll.dll"), "wine_get_version") != nullptr ? full / 20 : full;
}

file_size_limit::file_size_limit(std::uint64_t) {}

file_size_limit::~file_size_limit() = default;

} // namespace tvr
