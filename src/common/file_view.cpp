#include "common/file_view.h"

#include <utility>

#include "platform/file.h"

namespace tvr {

file_view::file_view(std::string path)
    : m_path(std::move(path)), m_buffer(std::make_unique_for_overwrite<std::uint8_t[]>(piece)) {}

std::span<const std::uint8_t> file_view::ahead(std::size_t size) {
    if (m_end - m_begin < size && !m_failed) {
        const auto got = platform::peek_file(m_path, m_position, m_buffer.get(), piece);
        m_failed = !got;
        m_begin = 0;
        m_end = got.value_or(0);
    }
    return {m_buffer.get() + m_begin, m_end - m_begin};
}

void file_view::skip(std::uint64_t size) {
    m_position += size;
    if (size <= m_end - m_begin)
        m_begin += static_cast<std::size_t>(size);
    else
        m_begin = m_end = 0;
}

void file_view::go_to(std::uint64_t position) {
    if (position >= m_position && position - m_position < m_end - m_begin)
        return skip(position - m_position);
    m_position = position;
    m_begin = m_end = 0;
}

} // namespace tvr
