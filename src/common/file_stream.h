// A file with a buffer: what every binary format is read from and written to.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <string_view>

#include "platform/file.h"

namespace tvr {

// Reads ahead and collects writes, so that a format can be written field by field. What is written
// reaches the file at the latest in flush(), close() and the destructor, and before anything read back
// through the same stream. Belongs to one thread. Operations on a stream that isn't open return false.
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
    // False if the stream wasn't open, or if anything written since open() is lost.
    bool close();
    [[nodiscard]] bool is_open() const noexcept { return m_file.is_open(); }

    // Reads up to `size` bytes; `got` receives the number, fewer only at the end of the file. False only if
    // a read call failed, or without the right to read (5).
    bool read(void* buffer, std::size_t size, std::size_t& got);
    // Reads exactly `size` bytes. False if the file holds fewer.
    bool read_exact(void* buffer, std::size_t size) {
        if (!m_writing && size != 0 && size <= m_used - m_offset) {
            std::memcpy(buffer, m_buffer.get() + m_offset, size);
            m_offset += size;
            return true;
        }
        std::size_t got = 0;
        return read(buffer, size, got) && got == size;
    }
    bool read_u32(std::uint32_t& value) { return read_exact(&value, sizeof value); } // little-endian
    // Writes all of it, or returns false; a failure to write collected data may also show later, in flush()
    // or close().
    bool write(const void* data, std::size_t size) {
        if (m_writing && size != 0 && size <= buffer_size - m_offset) {
            put(data, size);
            return true;
        }
        return write_slowly(data, size);
    }
    bool write_u32(std::uint32_t value) { return write(&value, sizeof value); }

    // Moves the position (bytes) and returns the new one; it may lie past the end. Nothing, with the
    // position as it was, for a place before the file.
    std::optional<std::uint64_t> seek(std::int64_t distance, platform::origin from);
    [[nodiscard]] std::uint64_t position() const noexcept { return m_base + m_offset; } // 0 if not open
    std::optional<std::uint64_t> size(); // with what is still collected
    // Hands the collected data to the system. False if anything written since open() is lost.
    bool flush();
    bool set_end(); // cuts or grows the file to the position

    // The file itself, with nothing collected and its position at position(). What is done with it does not
    // move the stream.
    platform::file& raw();

private:
    static constexpr std::uint64_t unknown = ~std::uint64_t{0};

    void reset() noexcept;
    void put(const void* data, std::size_t size) {
        std::memcpy(m_buffer.get() + m_offset, data, size);
        m_offset += size;
        if (m_offset > m_used)
            m_used = m_offset;
    }
    bool write_slowly(const void* data, std::size_t size);
    bool write_through(const void* data, std::size_t size);
    bool write_collected(); // and leaves an empty buffer at the position
    bool fill(void* to, std::size_t size, std::size_t& got);
    bool go_to(std::uint64_t place); // moves the file, if it isn't there
    void empty_buffer_at(std::uint64_t place) noexcept;
    void need_buffer();

    platform::file m_file;
    std::unique_ptr<std::uint8_t[]> m_buffer;
    std::uint64_t m_base = 0;          // file position of the buffer's first byte
    std::size_t m_used = 0;            // bytes of the buffer that are valid (reading) or collected (writing)
    std::size_t m_offset = 0;          // position within the buffer
    std::uint64_t m_file_position = 0; // of m_file, so that it need not be asked or set
    platform::access m_rights = platform::access::none;
    bool m_writing = false; // the buffer is there and collects
    bool m_lost = false;    // something could not be written
};

} // namespace tvr
