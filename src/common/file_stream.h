// A file with a buffer: what every binary format is read from and written to.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "platform/file.h"

namespace tvr {

// Reads ahead and collects writes, so that a format can be written field by field. What is written
// reaches the file at the latest in flush(), close() and the destructor, and before anything read back
// through the same stream. Belongs to one thread. Operations on a stream that isn't open answer false.
class file_stream {
public:
    static constexpr std::size_t buffer_size = 16384; // bytes

    file_stream() = default;
    ~file_stream();
    file_stream(file_stream&& other) noexcept;
    file_stream& operator=(file_stream&& other) noexcept;
    file_stream(const file_stream&) = delete;
    file_stream& operator=(const file_stream&) = delete;

    // As platform::file::open; the reason of a failure is in platform::last_error().
    bool open(std::string_view path, platform::access rights, platform::share sharing,
              platform::creation mode, std::uint32_t attributes = platform::attribute::normal);
    // The two common ways: for reading, shared for reading; new for writing, shared for reading.
    bool open_to_read(std::string_view path);
    bool create_to_write(std::string_view path);
    // False if collected data could not be written.
    bool close();
    [[nodiscard]] bool is_open() const noexcept { return m_file.is_open(); }

    // Reads up to `size` bytes; `got` receives the number, 0 at the end. False only if a read call failed.
    bool read(void* buffer, std::size_t size, std::size_t& got);
    // Reads exactly `size` bytes. False if the file holds fewer.
    bool read_exact(void* buffer, std::size_t size);
    bool read_u32(std::uint32_t& value); // read_exact of one little-endian word
    bool write(const void* data, std::size_t size);
    bool write_u32(std::uint32_t value);

    std::optional<std::uint64_t> seek(std::int64_t distance, platform::origin from);
    [[nodiscard]] std::uint64_t position() const noexcept; // 0 if not open
    std::optional<std::uint64_t> size(); // with what is still collected
    bool flush(); // hands the collected data to the system
    bool set_end();

    // The file itself, with nothing collected and its position at position().
    platform::file& raw();

private:
    bool sync(); // writes out or forgets the buffer, and puts the file's position at the stream's

    platform::file m_file;
    std::unique_ptr<std::uint8_t[]> m_buffer;
    std::uint64_t m_base = 0;   // file position of the buffer's first byte
    std::size_t m_used = 0;     // bytes of the buffer that are valid (reading) or collected (writing)
    std::size_t m_offset = 0;   // position within the buffer
    bool m_writing = false;
};

} // namespace tvr
