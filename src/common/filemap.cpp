#include "common/filemap.h"

#include "common/logger.h"
#include "platform/error.h"

namespace tvr {

filemap_base::filemap_base(map_mode mode, std::string_view path, std::uint64_t size, std::uint64_t* size_out)
    : m_writable(mode == map_mode::read_write) {
    const bool opened = m_writable ? m_file.open(path, platform::access::read_write, platform::share::read,
                                                 platform::creation::open_always)
                                   : m_file.open(path, platform::access::read, platform::share::read,
                                                 platform::creation::open_existing);
    if (!opened)
        return;
    if (size_out)
        *size_out = m_file.size().value_or(*size_out);
    if (!m_map.create(m_file, m_writable, size))
        TVR_LOG(default_log, "[-] filemap__ failed to map file. Error is %d",
                static_cast<int>(platform::last_error()));
    else if (!m_map.map_view())
        TVR_LOG(default_log, "[-] myfilemap_T failed to create view of map of file. Error is %d",
                static_cast<int>(platform::last_error()));
}

bool filemap_base::resize(std::uint64_t new_size) {
    m_map.close();
    if (!m_map.create(m_file, m_writable, new_size))
        TVR_LOG(default_log, "[-] myfilemap_T failed to resize filemapping. Error is %d",
                static_cast<int>(platform::last_error()));
    else if (!m_map.map_view())
        TVR_LOG(default_log, "[-] myfilemap_T failed to resize the view of filemapping. Error is %d",
                static_cast<int>(platform::last_error()));
    return is_valid();
}

} // namespace tvr
