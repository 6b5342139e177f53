// A file and a view of it in memory. A view is short-lived: open it, work, close it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "platform/file.h"
#include "platform/mapping.h"

namespace tvr {

enum class map_mode { read_only, read_write };

class filemap_base {
public:
    [[nodiscard]] bool is_valid() const noexcept { return m_map.data() != nullptr; }
    [[nodiscard]] bool is_file_open() const noexcept { return m_file.is_open(); }
    // Pointers and spans die at the next resize() or close().
    [[nodiscard]] std::uint8_t* at(std::uint64_t offset) const noexcept { return m_map.data() + offset; }
    [[nodiscard]] std::uint64_t offset_of(const void* pointer) const noexcept {
        return static_cast<std::uint64_t>(static_cast<const std::uint8_t*>(pointer) - m_map.data());
    }
    [[nodiscard]] std::uint64_t size() const noexcept { return m_map.size(); } // bytes in view
    [[nodiscard]] std::span<std::uint8_t> bytes() const noexcept {
        return is_valid() ? std::span(m_map.data(), static_cast<std::size_t>(m_map.size()))
                          : std::span<std::uint8_t>();
    }
    // Drops the view and makes a new one; a larger size grows the file with zeros. On failure there is no
    // view, and a log line tells the error.
    bool resize(std::uint64_t new_size);
    void close_view() noexcept { m_map.close(); }
    [[nodiscard]] platform::file& handle() noexcept { return m_file; }

protected:
    filemap_base(map_mode mode, std::string_view path, std::uint64_t size, std::uint64_t* size_out);

private:
    platform::file m_file;
    platform::mapping m_map;
    bool m_writable;
};

// Opens the file (read_only: an existing one, shared for reading; read_write: made if missing, shared for
// reading) and maps `size` bytes, 0 for its present size. `size_out` receives the size before the mapping.
// Test is_valid(); an empty file can't be mapped with size 0.
template <map_mode mode>
class myfilemap_T : public filemap_base {
public:
    explicit myfilemap_T(std::string_view path, std::uint64_t size = 0, std::uint64_t* size_out = nullptr)
        : filemap_base(mode, path, size, size_out) {}
};

using read_map = myfilemap_T<map_mode::read_only>;
using write_map = myfilemap_T<map_mode::read_write>;

} // namespace tvr
