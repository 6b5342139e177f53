#include "dict/dictbase.h"

#include <array>
#include <memory>

#include "common/bytes.h"
#include "common/file_names.h"
#include "common/file_stream.h"
#include "common/files.h"
#include "common/logger.h"
#include "common/path.h"
#include "dict/message_record.h"
#include "platform/clock.h"
#include "platform/error.h"
#include "platform/process.h"

namespace tvr {

namespace {

constexpr std::uint32_t short_pause = 5;    // milliseconds, of those who wait for a while only
constexpr std::uint32_t retry_pause = 200;  // milliseconds
constexpr std::size_t copy_buffer = 409600; // bytes
constexpr std::int64_t count_size = 4;      // bytes of the count before the records

} // namespace

file_lock::~file_lock() {
    while (m_depth != 0)
        release();
}

bool file_lock::try_acquire() {
    if (m_path.empty())
        return false;
    if (m_file.is_open()) {
        ++m_depth;
        return true;
    }
    m_depth = 0;
    if (!m_file.open(m_path, platform::access::write, platform::share::none, platform::creation::open_always,
                     platform::attribute::temporary)) {
        if (platform::last_error() == platform::error::sharing_violation)
            return false;
        // deliberate: where no lock file can be made, there is nothing to wait for, and the lock counts as
        // held.
        ++m_depth;
        return true;
    }
    // deliberate: the handle can't read, so that the word stays 0; what protects is the open itself.
    std::array<std::uint8_t, 4> word{};
    std::size_t got = 0;
    m_file.read(word.data(), word.size(), got);
    const std::uint32_t holder = load_u32(word.data());
    if (holder != 0 && holder != platform::current_process_id()) {
        m_file.close();
        return false;
    }
    ++m_depth;
    store_u32(word.data(), platform::current_process_id());
    m_file.write(word.data(), word.size());
    m_file.flush();
    return true;
}

// A lock file that is just being deleted may refuse to be opened (5).
bool file_lock::acquire_within(std::uint32_t patience) {
    const std::uint32_t start = platform::tick_count();
    for (;;) {
        if (try_acquire() && m_file.is_open())
            return true;
        const std::uint32_t code = platform::last_error();
        release();
        platform::set_last_error(code);
        if ((code != platform::error::sharing_violation && code != platform::error::access_denied) ||
            platform::tick_count() - start >= patience)
            return false;
        platform::sleep_for(short_pause);
    }
}

void file_lock::acquire() {
    while (!try_acquire())
        platform::sleep_for(retry_pause);
}

void file_lock::release() {
    if (m_depth == 0 || --m_depth != 0 || !m_file.is_open())
        return;
    constexpr std::array<std::uint8_t, 4> zero{};
    m_file.seek(0, platform::origin::begin);
    m_file.write(zero.data(), zero.size());
    m_file.close();
    platform::delete_file(m_path);
}

word_file::word_file(std::string_view path, platform::creation write_mode)
    : m_path(path), m_write_mode(write_mode) {}

bool word_file::turn(direction wanted, std::uint64_t position) {
    if (m_direction != wanted) {
        close();
        const bool reads = wanted == direction::read;
        if (!m_file.open(m_path, reads ? platform::access::read : platform::access::write,
                         platform::share::read, reads ? platform::creation::open_existing : m_write_mode)) {
            m_error = platform::last_error();
            return false;
        }
        m_direction = wanted;
    }
    if (m_position == position)
        return true;
    return m_file.seek(static_cast<std::int64_t>(position), platform::origin::begin).has_value();
}

std::uint32_t word_file::read(std::uint64_t position) {
    std::array<std::uint8_t, 4> word{};
    std::size_t got = 0;
    if (!turn(direction::read, position) || !m_file.read(word.data(), word.size(), got))
        return 0;
    m_position = position + got;
    return got == word.size() ? load_u32(word.data()) : 0;
}

bool word_file::write(std::uint64_t position, std::uint32_t word) {
    std::array<std::uint8_t, 4> bytes{};
    store_u32(bytes.data(), word);
    if (!turn(direction::write, position) || !m_file.write(bytes.data(), bytes.size()))
        return false;
    m_position = position + bytes.size();
    return true;
}

void word_file::close() {
    m_file.close();
    m_direction = direction::none;
    m_position = 0;
}

void dictbase::init(std::string_view path) {
    m_path = path;
    m_flock.set_path(join_path(folder_part(path), names::lock));
    m_inited = true;
}

void dictbase::try_snapshot_to_tilda() {
    if (!m_inited) {
        TVR_LOG(default_log, "[-] dictbase::try_snapshot_to_tilda - object NOT initialized");
        return;
    }
    const platform::locker locker(m_lock);
    const file_locker file_locker(m_flock);
    const std::string tilda_path = tilde_name(m_path);
    TVR_LOG(default_log, "[~] dictbase::try_snapshot_to_tilda - check for %s", tilda_path.c_str());
    if (!file_exists(tilda_path)) {
        TVR_LOG(default_log, "[~] dictbase::try_snapshot_to_tilda - check from %s", m_path.c_str());
        platform::move_file(m_path, tilda_path);
    } else {
        merge_into_tilda(tilda_path);
    }
}

// The tilde file changes in one step: a copy is extended beside it and then takes its place. deliberate: no
// file call is looked at; a copy left over from a crash is what is extended.
void dictbase::merge_into_tilda(const std::string& tilda_path) {
    const std::string double_path = tilde_name(tilda_path);
    platform::copy_file(tilda_path, double_path, true);
    word_file head(double_path);
    const std::uint32_t sum = head.read(0) + message_count();
    head.write(0, sum);
    head.close();

    platform::file target;
    platform::file source;
    target.open(double_path, platform::access::write, platform::share::read,
                platform::creation::open_existing);
    source.open(m_path, platform::access::read, platform::share::read, platform::creation::open_existing);
    target.seek(0, platform::origin::end);
    source.seek(count_size, platform::origin::begin);
    const auto buffer = std::make_unique_for_overwrite<std::uint8_t[]>(copy_buffer);
    std::size_t got = 0;
    while (source.read(buffer.get(), copy_buffer, got) && got != 0)
        target.write(buffer.get(), got);
    source.close();
    target.close();
    platform::make_durable({double_path, folder_of(double_path)});
    link_or_copy(double_path, tilda_path, false);
    platform::make_durable({folder_of(double_path)});
    platform::delete_file(double_path);
    platform::delete_file(m_path);
}

bool dictbase::removeall() {
    if (!m_inited) {
        TVR_LOG(default_log, "[-] dictbase::removeall - object NOT initialized");
        return false;
    }
    const platform::locker locker(m_lock);
    return platform::delete_file(m_path);
}

std::uint32_t dictbase::message_count() {
    const file_locker file_locker(m_flock);
    const std::uint32_t size = file_size(m_path);
    if (size == no_file_size || size < count_size)
        return 0;
    return word_file(m_path).read(0);
}

bool dictbase::has_manual_marks() {
    const file_locker file_locker(m_flock);
    file_stream cache;
    std::uint32_t count = 0;
    if (!cache.open_to_read(m_path) || !cache.read_u32(count))
        return false;
    message_head record;
    while (record.read_head(cache)) {
        if (record.flags & message_flag::manual)
            return true;
        if (!record.skip_tokens(cache))
            break;
    }
    return false;
}

} // namespace tvr
