// Hourly counters of training: how many messages and bytes went into either half.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "platform/sync.h"

namespace tvr {

// What the statistic reads of a message record.
struct counted_message {
    std::uint32_t flags = 0;
    std::uint32_t size = 0; // bytes
    std::uint32_t time = 0; // minutes since 1601
};

// All fields wrap as unsigned.
struct statistic_record {
    std::uint32_t spam_size = 0;
    std::uint32_t good_size = 0;
    std::uint32_t flagged_spam_size = 0;
    std::uint32_t flagged_good_size = 0;
    std::uint32_t spam_count = 0;
    std::uint32_t good_count = 0;
    std::uint32_t flagged_spam_count = 0;
    std::uint32_t flagged_good_count = 0;
};

// Any thread. The main table stands in stat.bin, the pending table, that of the training under way, in
// ~stat.bin.
class statistic {
public:
    using table = std::map<std::uint32_t, statistic_record>; // by hours since 1601

    statistic();
    ~statistic(); // a last backup
    statistic(const statistic&) = delete;
    statistic& operator=(const statistic&) = delete;

    void read(std::string_view path); // of stat.bin
    void add_message(const counted_message& message, bool is_correction, bool is_spam);
    void save_transaction();
    void clear_transaction();
    void commit_transaction();
    void get_period(std::int32_t hours, statistic_record& out);
    [[nodiscard]] bool has_file_name();

    // The object that the process built first, or null.
    static statistic* current() noexcept;

private:
    void backup(); // with the lock held

    platform::critical_section m_lock;
    std::string m_main_name;
    std::string m_backup_name;
    table m_main;
    table m_pending;
    bool m_dirty = false;
};

} // namespace tvr
