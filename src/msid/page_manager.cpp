#include "msid/page_manager.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace tvr {

namespace {

constexpr std::uint64_t least_growth = 64 * 1024; // bytes

} // namespace

pmanager::pmanager(std::string_view path)
    : m_map(path, new_filesize, &m_opened_size), m_header(index_signature) {
    m_header.add(m_root, first_page).add(m_filesize, new_filesize).add(m_keycount, 0);
    if (!m_map.is_valid())
        return;
    const std::uint64_t found_size = m_opened_size;
    m_opened_size = std::max<std::uint64_t>(m_opened_size, new_filesize);
    std::size_t position = 0;
    if (found_size >= 4 && m_header.read(m_map.bytes(), position)) {
        if (values_fit(found_size)) {
            if (m_filesize != m_map.size())
                m_map.resize(m_filesize);
            return;
        }
        mark_damaged();
    }
    reset_values();
    std::memset(m_map.at(0), 0, new_filesize);
    write_header();
}

pmanager::~pmanager() {
    if (!m_map.is_valid())
        return;
    write_header();
    const std::uint64_t mapped = m_map.size();
    m_map.close_view();
    const std::uint64_t wanted = std::max<std::uint64_t>(m_filesize, m_opened_size);
    if (mapped > wanted && m_map.handle().seek(static_cast<std::int64_t>(wanted), platform::origin::begin))
        m_map.handle().set_end();
}

void pmanager::start_anew() {
    if (!m_map.is_valid())
        return;
    reset_values();
    m_damaged = false;
    std::memset(m_map.at(0), 0, new_filesize);
    write_header();
}

std::uint32_t pmanager::allocate_page() {
    const std::uint32_t offset = m_filesize;
    if (!m_map.is_valid() || offset > std::numeric_limits<std::uint32_t>::max() - page_view::size) {
        mark_damaged();
        return 0;
    }
    const std::uint64_t needed = std::uint64_t{offset} + page_view::size;
    // The view grows in steps ahead of the pages; the destructor cuts the file to what is in use.
    if (needed > m_map.size() && !m_map.resize(needed + std::max(least_growth, needed / 2)) &&
        !m_map.resize(needed)) {
        mark_damaged();
        return 0;
    }
    m_filesize = static_cast<std::uint32_t>(needed);
    page(offset).clear_from(0);
    return offset;
}

void pmanager::reset_values() noexcept {
    m_root = first_page;
    m_filesize = new_filesize;
    m_keycount = 0;
}

bool pmanager::values_fit(std::uint64_t size_on_disk) const noexcept {
    return m_filesize >= new_filesize && m_filesize % page_view::size == 0 && m_filesize <= size_on_disk &&
           m_root >= first_page && m_root % page_view::size == 0 && m_root < m_filesize;
}

void pmanager::write_header() {
    std::size_t position = 0;
    m_header.write(m_map.bytes(), position);
}

} // namespace tvr
