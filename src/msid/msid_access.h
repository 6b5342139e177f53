// The handle through which the stages reach the message-ID map of a dictionary.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "common/pool.h"
#include "msid/msidmap.h"

namespace tvr {

// A span of time whose messages have left with their atom.
struct aged_out_range {
    std::uint32_t first = 0; // minutes since 1601
    std::uint32_t last = 0;  // minutes; with `single`, the number of messages of that one time
    bool single = false;
};

using aged_out_list = std::vector<aged_out_range>;

// True if the ranges claim the time. A single range's counter is lowered by each claim.
bool claims_time(aged_out_list& ranges, std::uint32_t time);

// Closed after construction. A closed handle finds nothing and does nothing. One thread.
class msid_access {
public:
    // Copies <main_folder><name>.idx and .lst to <work_folder>, over older ones, and opens the map there.
    void open(std::string_view main_folder, std::string_view work_folder, std::string_view name);
    // The same with the stored strings. A handle that was never opened has none, and opens an unnamed map in
    // the folder of run-time objects.
    void reopen();
    void close();
    [[nodiscard]] bool is_open() const noexcept { return m_map != nullptr; }

    std::uint32_t lookup(std::string_view msid); // the stored time, 0 for not found
    void add(std::string_view msid, std::uint32_t time);
    void remove(std::string_view msid);
    void purge(aged_out_list& ranges); // takes out the IDs whose time the ranges claim

    // For many operations in a row: the list stays open in between, until the run goes.
    class run {
    public:
        explicit run(msid_access& ids) : m_map(ids.m_map.get()) {
            if (m_map)
                m_map->begin_run();
        }
        ~run() {
            if (m_map)
                m_map->end_run();
        }
        run(const run&) = delete;
        run& operator=(const run&) = delete;

    private:
        msidmap* m_map;
    };

private:
    std::unique_ptr<msidmap, pool_deleter> m_map;
    std::string m_main_folder;
    std::string m_work_folder;
    std::string m_name;
};

} // namespace tvr
