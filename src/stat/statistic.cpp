#include "stat/statistic.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <exception>
#include <vector>

#include "common/bytes.h"
#include "common/file_stream.h"
#include "common/logger.h"
#include "common/minutes.h"
#include "common/path.h"
#include "common/text.h"
#include "platform/error.h"
#include "platform/file.h"
#include "platform/process.h"

namespace tvr {

namespace {

constexpr std::size_t magic_size = 4;
constexpr std::size_t entry_size = 36;       // hour number and record
constexpr std::uint32_t retention = 60 * 24; // hours
constexpr std::uint32_t minutes_per_hour = 60;

constexpr std::uint32_t flag_for_spam = 2;
constexpr std::uint32_t flag_manual = 4;
constexpr std::uint32_t flag_counted_apart = 8;

constexpr int file_status = 0; // part of the log lines; nothing sets it

// The fields in the order of the file.
constexpr std::array<std::uint32_t statistic_record::*, 8> record_fields{
    &statistic_record::spam_size,          &statistic_record::good_size,
    &statistic_record::flagged_spam_size,  &statistic_record::flagged_good_size,
    &statistic_record::spam_count,         &statistic_record::good_count,
    &statistic_record::flagged_spam_count, &statistic_record::flagged_good_count};

std::atomic<statistic*> current_statistic{nullptr};

std::uint32_t current_hour() {
    return now_minutes() / minutes_per_hour;
}

void add_to(statistic_record& sum, const statistic_record& part) {
    for (const auto field : record_fields)
        sum.*field += part.*field;
}

bool is_zero(const statistic_record& record) {
    return std::all_of(record_fields.begin(), record_fields.end(),
                       [&](auto field) { return record.*field == 0; });
}

// The sum and the number of messages that a record keeps of one kind.
struct counter {
    std::uint32_t statistic_record::*sizes;
    std::uint32_t statistic_record::*count;

    void put(statistic_record& r, std::uint32_t size) const {
        r.*sizes += size;
        ++(r.*count);
    }
    void take(statistic_record& r, std::uint32_t size) const {
        r.*sizes -= size;
        --(r.*count);
    }
};

struct half_counters {
    counter all, flagged;
};
constexpr half_counters of_spam{
    {&statistic_record::spam_size, &statistic_record::spam_count},
    {&statistic_record::flagged_spam_size, &statistic_record::flagged_spam_count}};
constexpr half_counters of_good{
    {&statistic_record::good_size, &statistic_record::good_count},
    {&statistic_record::flagged_good_size, &statistic_record::flagged_good_count}};

statistic_record counts_of(const counted_message& message, bool is_correction, bool is_spam) {
    const half_counters& own = is_spam ? of_spam : of_good;
    const half_counters& other = is_spam ? of_good : of_spam;
    const bool was_flagged_for_spam = (message.flags & flag_for_spam) != 0;
    statistic_record r;
    own.all.put(r, message.size);
    if (message.flags & flag_counted_apart) {
        own.flagged.put(r, message.size);
    } else if (is_correction) {
        other.all.take(r, message.size);
        if (was_flagged_for_spam == is_spam)
            other.flagged.take(r, message.size);
        else
            own.flagged.put(r, message.size);
    }
    return r;
}

void read_table(const std::string& path, statistic::table& entries) {
    file_stream file;
    if (!file.open(path, platform::access::read, platform::share::none, platform::creation::open_existing))
        return;
    std::uint32_t word = 0;
    if (file.size().value_or(0) <= magic_size || !file.read_u32(word) || word != statistic::signature)
        return;
    std::array<std::uint8_t, entry_size> bytes{};
    while (file.read_exact(bytes.data(), bytes.size())) {
        statistic_record& record = entries[load_u32(bytes.data())];
        const std::uint8_t* from = bytes.data();
        for (const auto field : record_fields)
            record.*field = load_u32(from += 4);
    }
}

bool create(platform::file& file, const std::string& path) {
    return !path.empty() &&
           file.open(path, platform::access::write, platform::share::none, platform::creation::create_always);
}

void write_table(platform::file& file, const statistic::table& entries, std::uint32_t hour) {
    std::vector<std::uint8_t> bytes(magic_size + entry_size * entries.size());
    std::uint8_t* to = bytes.data();
    store_u32(to, statistic::signature);
    to += magic_size;
    for (const auto& [key, record] : entries) {
        if (hour - key >= retention)
            continue;
        store_u32(to, key);
        for (const auto field : record_fields)
            store_u32(to += 4, record.*field);
        to += 4;
    }
    file.write(bytes.data(), static_cast<std::size_t>(to - bytes.data()));
}

void tell_user(const std::string& text, const char* title) {
    if (!platform::message_box(text, title))
        TVR_LOG(default_log, "%s: %s", title, text.c_str());
}

void delete_if_named(const std::string& path) {
    if (!path.empty())
        platform::delete_file(path);
}

} // namespace

statistic::statistic() {
    statistic* none = nullptr;
    current_statistic.compare_exchange_strong(none, this);
}

statistic::~statistic() {
    close();
}

statistic* statistic::current() noexcept {
    return current_statistic.load();
}

void statistic::close() noexcept {
    const platform::locker locker(m_lock);
    backup();
    m_main_name.clear();
    m_backup_name.clear();
    statistic* self = this;
    current_statistic.compare_exchange_strong(self, nullptr);
}

bool statistic::has_file_name() {
    const platform::locker locker(m_lock);
    return !m_main_name.empty();
}

void statistic::read(std::string_view path) {
    const platform::locker locker(m_lock);
    try {
        const std::string name(path);
        TVR_LOG(default_log, "Reading cashed statistic database from %s", name.c_str());
        m_main_name = name;
        m_backup_name = tilde_name(name);
        TVR_LOG(default_log, "The backup copy will be here: %s", m_backup_name.c_str());
        TVR_LOG(default_log, "Initializing internal statistic repository");
        m_main.clear();
        m_pending.clear();
        m_dirty = false;
        TVR_LOG(default_log, "First: open main file and reading statistic");
        read_table(m_main_name, m_main);
        TVR_LOG(default_log, "Second: open backup file and reading statistic");
        read_table(m_backup_name, m_pending);
        TVR_LOG(default_log, "The whole file is read.");
    } catch (const std::exception& caught) {
        TVR_LOG(default_log,
                "ERROR! Exception happens during reading statistic...: \nValue of GetLastError() is "
                "%i\nWhathappens is %s\nFilestatus = %i",
                static_cast<int>(platform::last_error()), caught.what(), file_status);
    } catch (...) {
        TVR_LOG(default_log,
                "ERROR! Unknown general exception happens during reading statistic...: \nValue of "
                "GetLastError() is %i\nFilestatus = %i",
                static_cast<int>(platform::last_error()), file_status);
    }
}

void statistic::add_message(const counted_message& message, bool is_correction, bool is_spam) {
    const platform::locker locker(m_lock);
    if (message.flags & flag_manual)
        return;
    add_to(m_pending[message.time / minutes_per_hour], counts_of(message, is_correction, is_spam));
    if (m_in_batch)
        m_batch_counted = true;
    else
        backup();
}

statistic::batch::batch(statistic* counters) : m_counters(counters) {
    if (!m_counters)
        return;
    const platform::locker locker(m_counters->m_lock);
    m_counters->m_in_batch = true;
    m_counters->m_batch_counted = false;
}

statistic::batch::~batch() {
    if (!m_counters)
        return;
    const platform::locker locker(m_counters->m_lock);
    m_counters->m_in_batch = false;
    if (m_counters->m_batch_counted)
        m_counters->backup();
}

void statistic::write_pending(std::uint32_t hour, std::uint32_t& step) {
    if (m_pending.empty()) {
        delete_if_named(m_backup_name);
        return;
    }
    ++step;
    platform::file file;
    if (!create(file, m_backup_name))
        return;
    ++step;
    write_table(file, m_pending, hour);
    ++step;
    file.close();
}

void statistic::backup() noexcept {
    std::uint32_t step = 0; // shown with an exception; 4 isn't used
    try {
        const std::uint32_t hour = current_hour();
        if (m_dirty && !m_main.empty()) {
            step = 1;
            platform::file file;
            if (create(file, m_main_name)) {
                step = 2;
                write_table(file, m_main, hour);
                step = 3;
                if (m_pending.empty())
                    file.flush(); // before the file that held them goes
                file.close();
            }
        }
        // deliberate: m_dirty stays set, so that the main file is written every time from now on.
        step = 5;
        write_pending(hour, step);
    } catch (...) {
        std::string text = "Exception in statistic::backup: step = " + to_hex(step, 8);
        if (step == 1 || step == 6)
            text += "\nFilename: " + (step == 1 ? m_main_name : m_backup_name);
        tell_user(text, "Exception in Tessivar");
    }
}

void statistic::save_transaction() {
    const platform::locker locker(m_lock);
    std::uint32_t step = 0; // shown with an exception
    try {
        const std::uint32_t hour = current_hour();
        step = 1;
        write_pending(hour, step);
    } catch (...) {
        tell_user("Exception in statistic::save_transaction: step = " + to_hex(step, 8),
                  "Exception in Tessivar!");
    }
}

void statistic::clear_transaction() {
    const platform::locker locker(m_lock);
    m_pending.clear();
}

void statistic::commit_transaction() {
    const platform::locker locker(m_lock);
    for (const auto& [hour, record] : m_pending) {
        if (is_zero(record))
            continue;
        add_to(m_main[hour], record);
        m_dirty = true;
    }
    m_pending.clear();
    backup();
}

void statistic::get_period(std::int32_t hours, statistic_record& out) {
    const platform::locker locker(m_lock);
    out = {};
    const std::uint32_t now = current_hour();
    for (const table* entries : {&m_main, &m_pending})
        for (const auto& [hour, record] : *entries)
            if (static_cast<std::int32_t>(now - hour) < hours)
                add_to(out, record);
}

} // namespace tvr
