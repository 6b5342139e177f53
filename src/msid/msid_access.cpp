#include "msid/msid_access.h"

#include <algorithm>

#include "common/file_names.h"
#include "common/path.h"
#include "platform/file.h"
#include "platform/process.h"

namespace tvr {

bool claims_time(aged_out_list& ranges, std::uint32_t time) {
    return std::any_of(ranges.begin(), ranges.end(), [time](aged_out_range& range) {
        if (!range.single)
            return range.first <= time && time <= range.last;
        if (range.last == 0 || time != range.first)
            return false;
        --range.last;
        return true;
    });
}

void msid_access::open(std::string_view main_folder, std::string_view work_folder, std::string_view name) {
    m_main_folder = main_folder;
    m_work_folder = work_folder;
    m_name = name;
    reopen();
}

void msid_access::reopen() {
    close();
    if (m_work_folder.empty())
        m_main_folder = m_work_folder = platform::runtime_folder(); // where the unnamed map harms nobody
    for (const char* extension : {names::index_ending, names::list_ending})
        platform::copy_file(join_path(m_main_folder, m_name + extension),
                            join_path(m_work_folder, m_name + extension), false);
    m_map.reset(pool_new<msidmap>(m_work_folder, m_name));
}

void msid_access::close() {
    m_map.reset();
}

std::uint32_t msid_access::lookup(std::string_view msid) {
    return m_map ? m_map->search(msid) : 0;
}

void msid_access::add(std::string_view msid, std::uint32_t time) {
    if (m_map)
        m_map->insert(msid, time);
}

void msid_access::remove(std::string_view msid) {
    if (m_map)
        m_map->remove(msid);
}

void msid_access::purge(aged_out_list& ranges) {
    if (m_map && ranges.capacity() != 0)
        m_map->delete_if([&](std::string_view, std::uint32_t time) { return claims_time(ranges, time); });
}

} // namespace tvr
