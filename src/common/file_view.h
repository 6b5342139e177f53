// A file as an onlooker reads it: forward, in pieces, and without hindering those who work on it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace tvr {

// Opens the file again for each piece, and takes no part in sharing.
class file_view {
public:
    static constexpr std::size_t piece = 65536; // bytes

    explicit file_view(std::string path);

    // The bytes at the position: at least `size` of them (at most `piece`), fewer only at the end of the
    // file.
    std::span<const std::uint8_t> ahead(std::size_t size);
    bool has(std::size_t size) { return ahead(size).size() >= size; }
    void skip(std::uint64_t size); // may lead past the end
    void go_to(std::uint64_t position);

    [[nodiscard]] std::uint64_t position() const noexcept { return m_position; }
    [[nodiscard]] bool failed() const noexcept { return m_failed; } // could not be opened or read
    [[nodiscard]] const std::string& path() const noexcept { return m_path; }

private:
    std::string m_path;
    std::unique_ptr<std::uint8_t[]> m_buffer;
    std::uint64_t m_position = 0;
    std::size_t m_begin = 0; // of the bytes at the position in the buffer
    std::size_t m_end = 0;
    bool m_failed = false;
};

} // namespace tvr
