// Ready training records as a stream: what a build that reads mail writes for one that doesn't.
#pragma once

#include <cstddef>
#include <cstdint>
#include <istream>
#include <ostream>
#include <string>
#include <vector>

#include "client/record_batch.h"

namespace tvr {

namespace record_stream {
constexpr std::uint32_t signature = 0x53525654; // "TVRS"
constexpr std::uint32_t version = 1;
constexpr std::uint32_t end_signature = 0x45525654;           // "TVRE"
constexpr std::size_t longest_record = std::size_t{16} << 20; // bytes
} // namespace record_stream

// The stream's own state tells of failures.
class record_writer {
public:
    explicit record_writer(std::ostream& out); // writes the head
    void write(const record_batch& batch);
    void finish(); // the end mark, without which the stream counts as cut short

private:
    std::ostream& m_out;
    std::uint32_t m_count = 0;
};

// Reads one stream, or several one after the other. Whatever the bytes say, it takes memory for no more than
// the longest record, and than the stream really has.
class record_reader {
public:
    explicit record_reader(std::istream& in) : m_in(in) {}

    // Adds the next record to the batch. False at the end, or where error() tells of damage.
    bool next(record_batch& batch);

    [[nodiscard]] const std::string& error() const noexcept { return m_error; }
    [[nodiscard]] std::uint64_t position() const noexcept { return m_position; }                // bytes read
    [[nodiscard]] const std::vector<std::uint8_t>& record() const noexcept { return m_record; } // the last

private:
    bool read(std::size_t size); // appends bytes to m_record
    bool fail(const std::string& why);
    bool begin();
    bool finish();

    std::istream& m_in;
    std::vector<std::uint8_t> m_record;
    std::string m_error;
    std::uint64_t m_position = 0;
    std::uint64_t m_start = 0;   // of what is being read
    std::uint32_t m_count = 0;   // records of this stream
    std::uint32_t m_streams = 0; // begun
    bool m_inside = false;       // after a head, before the end mark
};

} // namespace tvr
