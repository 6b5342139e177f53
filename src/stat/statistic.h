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

// Any thread; every operation takes the object's lock. The main table stands in stat.bin, the pending table,
// that of the training under way, in ~stat.bin beside it. Both files are opened without sharing; a file that
// can't be opened is passed over silently. Entries 60 days old or older are left out of the files.
class statistic {
public:
    static constexpr std::uint32_t signature = 0x54415453; // "STAT", before both files

    using table = std::map<std::uint32_t, statistic_record>; // by hours since 1601

    statistic();
    ~statistic(); // as close()
    statistic(const statistic&) = delete;
    statistic& operator=(const statistic&) = delete;

    // Fills both tables from the files at `path` (of stat.bin) and beside it. What is missing or damaged
    // counts as empty, an entry cut short is dropped.
    void read(std::string_view path);
    // Counts one message in the pending table and writes ~stat.bin. A manually trained message isn't counted.
    void add_message(const counted_message& message, bool is_correction, bool is_spam);
    void save_transaction();  // writes ~stat.bin, or deletes it if nothing is pending
    void clear_transaction(); // forgets what is pending; touches no file
    // deliberate: this and get_period() have no caller here.
    void commit_transaction(); // moves what is pending into the main table and writes the files
    // The sum over both tables of the entries less than `hours` old.
    void get_period(std::int32_t hours, statistic_record& out);
    [[nodiscard]] bool has_file_name();
    // While one of these lives, add_message() only counts; its end writes the files once. For a batch between
    // whose messages no other file changes.
    class batch {
    public:
        explicit batch(statistic* counters); // null: does nothing
        ~batch();
        batch(const batch&) = delete;
        batch& operator=(const batch&) = delete;

    private:
        statistic* m_counters;
    };

    // Writes the files for the last time and lets go of them and of the global pointer. A thread that still
    // holds the pointer does no harm.
    void close() noexcept;

    // The object that the process built first, or null.
    static statistic* current() noexcept;

private:
    // With the lock held. The second writes or deletes ~stat.bin and counts its steps on in `step`.
    void backup() noexcept;
    void write_pending(std::uint32_t hour, std::uint32_t& step);

    platform::critical_section m_lock;
    std::string m_main_name;
    std::string m_backup_name;
    table m_main;
    table m_pending;
    bool m_dirty = false;
    bool m_in_batch = false;
    bool m_batch_counted = false; // a message since its begin
};

} // namespace tvr
