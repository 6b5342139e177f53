#include "compiled/atom_reader.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "common/bytes.h"
#include "common/file_stream.h"
#include "common/token_hash.h"
#include "dict/atom.h"

namespace tvr {

void atom_reader::open(const std::string& path, bool is_spam, base_header& base) {
    m_is_spam = is_spam;
    atom_head head;
    file_stream stream;
    std::uint32_t data_size = 0;
    if (stream.open_to_read(path) && head.read(stream) && stream.read_u32(m_remaining))
        stream.read_u32(data_size);
    (is_spam ? base.spam_messages : base.nonspam_messages) += head.messages;
    (is_spam ? base.spam_tokens : base.nonspam_tokens) += head.tokens;
    std::uint32_t& oldest = is_spam ? base.spam_oldest : base.nonspam_oldest;
    std::uint32_t& newest = is_spam ? base.spam_newest : base.nonspam_newest;
    oldest = std::min(oldest, head.oldest);
    newest = std::max(newest, head.newest);
    if (m_remaining != 0) {
        m_file = std::move(stream.raw());
        m_buffer = std::make_unique_for_overwrite<std::uint8_t[]>(buffer_size);
    }
    next();
}

bool atom_reader::end() {
    m_text = {};
    m_remaining = 0;
    m_file.close();
    m_buffer.reset();
    m_begin = m_end = 0;
    return false;
}

// Has at least `size` bytes in the buffer.
bool atom_reader::need(std::size_t size) {
    if (m_end - m_begin >= size)
        return true;
    if (m_begin != 0) {
        std::memmove(m_buffer.get(), m_buffer.get() + m_begin, m_end - m_begin);
        m_end -= m_begin;
        m_begin = 0;
    }
    while (m_end < size) {
        std::size_t got = 0;
        if (!m_file.read(m_buffer.get() + m_end, buffer_size - m_end, got) || got == 0)
            return false;
        m_end += got;
    }
    return true;
}

bool atom_reader::next() {
    if (m_remaining == 0 || !need(1))
        return end();
    const std::size_t length = m_buffer[m_begin];
    if (length == 0 || !need(length + 5))
        return end();
    const std::uint8_t* const record = m_buffer.get() + m_begin;
    m_text = {reinterpret_cast<const char*>(record + 1), length};
    m_occurrences = load_u32(record + 1 + length);
    m_hash = order_hash(m_text);
    m_begin += length + 5;
    --m_remaining;
    return true;
}

} // namespace tvr
