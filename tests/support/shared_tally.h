// Counters that the processes of a test share: a structure of them in a file that all map, with zeros at
// first.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/file.h"
#include "platform/mapping.h"

namespace tvr {

using counter = std::atomic<std::uint32_t>;

template <class Counters>
class shared_tally {
public:
    bool open() {
        return m_file.open(platform::temp_folder_path() + "tally", platform::access::read_write,
                           platform::share::read_write, platform::creation::open_always) &&
               m_mapping.create(m_file, true, sizeof(Counters)) && m_mapping.map_view();
    }
    Counters* operator->() const { return reinterpret_cast<Counters*>(m_mapping.data()); }

private:
    platform::file m_file;
    platform::mapping m_mapping;
};

} // namespace tvr
