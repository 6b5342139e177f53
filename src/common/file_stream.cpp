#include "common/file_stream.h"

#include <algorithm>
#include <utility>

#include "platform/error.h"

namespace tvr {

namespace {

bool allows(platform::access rights, platform::access wanted) {
    return (static_cast<std::uint32_t>(rights) & static_cast<std::uint32_t>(wanted)) != 0;
}

bool deny() {
    platform::set_last_error(platform::error::access_denied);
    return false;
}

} // namespace

file_stream::~file_stream() {
    close();
}

file_stream::file_stream(file_stream&& other) noexcept
    : m_file(std::move(other.m_file)), m_buffer(std::move(other.m_buffer)), m_base(other.m_base),
      m_used(other.m_used), m_offset(other.m_offset), m_file_position(other.m_file_position),
      m_rights(other.m_rights), m_writing(other.m_writing), m_lost(other.m_lost) {
    other.reset();
}

file_stream& file_stream::operator=(file_stream&& other) noexcept {
    if (this != &other) {
        close();
        m_file = std::move(other.m_file);
        m_buffer = std::move(other.m_buffer);
        m_base = other.m_base;
        m_used = other.m_used;
        m_offset = other.m_offset;
        m_file_position = other.m_file_position;
        m_rights = other.m_rights;
        m_writing = other.m_writing;
        m_lost = other.m_lost;
        other.reset();
    }
    return *this;
}

void file_stream::reset() noexcept {
    empty_buffer_at(0);
    m_file_position = 0;
    m_rights = platform::access::none;
    m_lost = false;
}

void file_stream::empty_buffer_at(std::uint64_t place) noexcept {
    m_base = place;
    m_used = m_offset = 0;
    m_writing = false;
}

void file_stream::need_buffer() {
    if (!m_buffer)
        m_buffer = std::make_unique_for_overwrite<std::uint8_t[]>(buffer_size);
}

bool file_stream::open(std::string_view path, platform::access rights, platform::share sharing,
                       platform::creation mode, std::uint32_t attributes) {
    close();
    if (!m_file.open(path, rights, sharing, mode, attributes))
        return false;
    m_rights = rights;
    return true;
}

bool file_stream::open_to_read(std::string_view path) {
    return open(path, platform::access::read, platform::share::read, platform::creation::open_existing);
}

bool file_stream::create_to_write(std::string_view path) {
    return open(path, platform::access::write, platform::share::read, platform::creation::create_always);
}

bool file_stream::close() {
    if (!is_open())
        return false;
    const bool written = flush();
    m_file.close();
    reset();
    return written;
}

bool file_stream::go_to(std::uint64_t place) {
    if (m_file_position == place)
        return true;
    const auto moved = m_file.seek(static_cast<std::int64_t>(place), platform::origin::begin);
    m_file_position = moved.value_or(unknown);
    return moved.has_value();
}

bool file_stream::fill(void* to, std::size_t size, std::size_t& got) {
    got = 0;
    if (!go_to(position()))
        return false;
    if (!m_file.read(to, size, got)) {
        m_file_position = unknown;
        return false;
    }
    m_file_position += got;
    return true;
}

bool file_stream::read(void* buffer, std::size_t size, std::size_t& got) {
    got = 0;
    if (!is_open())
        return false;
    if (!allows(m_rights, platform::access::read))
        return deny();
    if (m_writing && !write_collected())
        return false;
    auto* to = static_cast<std::uint8_t*>(buffer);
    while (got < size) {
        if (m_offset == m_used) {
            empty_buffer_at(position());
            std::size_t arrived = 0;
            if (size - got >= buffer_size) {
                if (!fill(to + got, size - got, arrived))
                    return false;
                got += arrived;
                m_base += arrived;
                if (arrived == 0)
                    return true;
                continue;
            }
            need_buffer();
            if (!fill(m_buffer.get(), buffer_size, arrived))
                return false;
            if (arrived == 0)
                return true;
            m_used = arrived;
        }
        const std::size_t part = std::min(size - got, m_used - m_offset);
        std::memcpy(to + got, m_buffer.get() + m_offset, part);
        m_offset += part;
        got += part;
    }
    return true;
}

bool file_stream::write_through(const void* data, std::size_t size) {
    if (go_to(m_base) && m_file.write(data, size)) {
        m_file_position += size;
        return true;
    }
    m_file_position = unknown;
    m_lost = true;
    return false;
}

bool file_stream::write_collected() {
    const bool written = m_used == 0 || write_through(m_buffer.get(), m_used);
    empty_buffer_at(position());
    return written;
}

bool file_stream::write_slowly(const void* data, std::size_t size) {
    if (!is_open())
        return false;
    if (!allows(m_rights, platform::access::write))
        return deny();
    if (size == 0)
        return true;
    if (!m_writing)
        empty_buffer_at(position());
    else if (size > buffer_size - m_offset && !write_collected())
        return false;
    if (size > buffer_size) {
        if (!write_through(data, size))
            return false;
        m_base += size;
        return true;
    }
    need_buffer();
    m_writing = true;
    put(data, size);
    return true;
}

std::optional<std::uint64_t> file_stream::seek(std::int64_t distance, platform::origin from) {
    if (!is_open())
        return std::nullopt;
    std::uint64_t start = 0;
    if (from == platform::origin::current) {
        start = position();
    } else if (from == platform::origin::end) {
        const auto end = size();
        if (!end)
            return std::nullopt;
        start = *end;
    }
    const std::uint64_t place = start + static_cast<std::uint64_t>(distance);
    const bool in_front = distance < 0 && static_cast<std::uint64_t>(-(distance + 1)) >= start;
    const bool too_far = place > static_cast<std::uint64_t>(INT64_MAX);
    if (in_front || too_far) {
        platform::set_last_error(platform::error::invalid_parameter);
        return std::nullopt;
    }
    if (place >= m_base && place - m_base <= m_used) {
        m_offset = static_cast<std::size_t>(place - m_base);
        return place;
    }
    if (m_writing && !write_collected())
        return std::nullopt;
    empty_buffer_at(place);
    return place;
}

std::optional<std::uint64_t> file_stream::size() {
    auto bytes = m_file.size();
    if (bytes && m_writing && m_used != 0)
        *bytes = std::max(*bytes, m_base + m_used);
    return bytes;
}

bool file_stream::flush() {
    if (!is_open())
        return false;
    if (m_writing)
        write_collected();
    return !m_lost;
}

bool file_stream::set_end() {
    if (!is_open() || (m_writing && !write_collected()))
        return false;
    empty_buffer_at(position());
    return go_to(m_base) && m_file.set_end();
}

platform::file& file_stream::raw() {
    if (is_open()) {
        if (m_writing)
            write_collected();
        empty_buffer_at(position());
        go_to(m_base);
        m_file_position = unknown;
    }
    return m_file;
}

} // namespace tvr
