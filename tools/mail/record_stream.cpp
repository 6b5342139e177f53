#include "tools/mail/record_stream.h"

#include <algorithm>
#include <array>

#include "common/bytes.h"
#include "dict/message_record.h"

namespace tvr {

namespace {

constexpr std::size_t piece = 65536; // bytes that are read, and room that is made, at once

template <class... Words>
void put_words(std::ostream& out, Words... words) {
    for (const std::uint32_t word : {words...}) {
        std::array<char, 4> bytes{};
        store_u32(bytes.data(), word);
        out.write(bytes.data(), bytes.size());
    }
}

} // namespace

record_writer::record_writer(std::ostream& out) : m_out(out) {
    put_words(m_out, record_stream::signature, 1U, record_stream::version);
}

void record_writer::write(const record_batch& batch) {
    const auto bytes = batch.bytes();
    m_out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    m_count += batch.count();
}

void record_writer::finish() {
    put_words(m_out, record_stream::end_signature, 1U, m_count);
    m_out.flush();
}

bool record_reader::read(std::size_t size) {
    while (size != 0) {
        const std::size_t wanted = std::min(size, piece);
        const std::size_t old = m_record.size();
        m_record.resize(old + wanted);
        m_in.read(reinterpret_cast<char*>(m_record.data()) + old, static_cast<std::streamsize>(wanted));
        const auto got = static_cast<std::size_t>(m_in.gcount());
        m_position += got;
        m_record.resize(old + got);
        if (got != wanted)
            return false;
        size -= wanted;
    }
    return true;
}

bool record_reader::fail(const std::string& why) {
    m_error = m_streams == 0 ? why
                             : "byte " + std::to_string(m_start) + ", record " + std::to_string(m_count + 1) +
                                   ": " + why;
    return false;
}

// m_record holds the first word.
bool record_reader::begin() {
    if (load_u32(m_record.data()) != record_stream::signature)
        return fail(m_streams == 0 ? "no stream of records" : "no stream of records follows");
    if (!read(8))
        return fail("cut short");
    if (load_u32(m_record.data() + 4) != 1 || load_u32(m_record.data() + 8) != record_stream::version)
        return fail("a stream of records of an unknown version");
    m_inside = true;
    m_count = 0;
    ++m_streams;
    return true;
}

bool record_reader::finish() {
    if (!read(8))
        return fail("cut short");
    if (load_u32(m_record.data() + 4) != 1 || load_u32(m_record.data() + 8) != m_count)
        return fail("the end mark tells of another number of records");
    m_inside = false;
    return true;
}

bool record_reader::next(record_batch& batch) {
    while (m_error.empty()) {
        m_start = m_position;
        m_record.clear();
        if (!read(4))
            return m_record.empty() && !m_inside && m_streams != 0
                       ? false
                       : fail(m_streams == 0 ? "no stream of records" : "cut short");
        const std::uint32_t signature = load_u32(m_record.data());
        if (!m_inside) {
            if (!begin())
                return false;
            continue;
        }
        if (signature == record_stream::end_signature) {
            if (!finish())
                return false;
            continue;
        }
        if (signature != message_head::signature)
            return fail("neither a record nor the end mark");
        if (!read(8))
            return fail("cut short");
        const std::uint32_t length = load_u32(m_record.data() + 8);
        if (length < m_record.size() || length > record_stream::longest_record)
            return fail("a record can't have " + std::to_string(length) + " bytes");
        if (!read(length - m_record.size()))
            return fail("cut short");
        if (const char* const why = record_defect(m_record))
            return fail(why);
        if (!batch.add(m_record))
            return fail("the batch is full");
        ++m_count;
        return true;
    }
    return false;
}

} // namespace tvr
