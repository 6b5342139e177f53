// What a test can't have everywhere.
#pragma once

#include <cstdint>
#include <filesystem>

namespace tvr {

// False where files with the read-only attribute can be written all the same: Wine leaves the refusal to the
// host, which lets root do everything.
[[nodiscard]] bool read_only_holds(const std::filesystem::path& read_only_file);

// The number of hard links of a file.
[[nodiscard]] unsigned link_count(const std::filesystem::path& file);

// How much of a long race is run: all of it, or a twentieth under Wine, where each step of it costs some
// messages to another process.
[[nodiscard]] std::uint32_t race_length(std::uint32_t full) noexcept;

// A limit to the size of the files that this process writes, as a full disk would be one. Lifted by the
// destructor. Windows has no such limit.
class file_size_limit {
public:
    explicit file_size_limit(std::uint64_t bytes);
    ~file_size_limit();
    file_size_limit(const file_size_limit&) = delete;
    file_size_limit& operator=(const file_size_limit&) = delete;

    [[nodiscard]] bool holds() const { return m_holds; }

private:
    std::uint64_t m_before = 0;
    bool m_holds = false;
};

} // namespace tvr
