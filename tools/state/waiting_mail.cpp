#include "tools/state/waiting_mail.h"

#include <cstddef>

#include "common/file_names.h"
#include "common/file_stream.h"
#include "common/path.h"
#include "common/text.h"
#include "dict/dictbase.h"
#include "dict/message_record.h"
#include "platform/error.h"
#include "platform/file.h"
#include "tools/formats/file_view.h"

namespace tvr {

namespace {

constexpr std::size_t tail_size = 10; // ">_" and eight digits

// The Message-ID within an ID of the cache; empty if it has another form.
std::string_view bare_id(std::string_view id) {
    if (id.size() <= tail_size + 1 || !id.starts_with('<') || id.substr(id.size() - tail_size, 2) != ">_" ||
        id.find_first_not_of("0123456789ABCDEF", id.size() - tail_size + 2) != std::string_view::npos)
        return {};
    return id.substr(1, id.size() - tail_size - 1);
}

// Calls change(cache, record) for each whole record. A reason that it returns ends the walk; so does an
// empty text, which stands for a failure to write.
template <class Change>
std::string walk_cache(const std::string& path, Change change) {
    file_stream cache;
    if (!cache.open(path, platform::access::read_write, platform::share::read,
                    platform::creation::open_existing))
        return platform::last_error() == platform::error::file_not_found ? std::string()
                                                                         : failure(path, "can't be opened");
    const std::uint64_t size = cache.size().value_or(0);
    std::uint32_t count = 0;
    message_head record;
    cache.read_u32(count); // no bound, here as for every other reader
    while (record.read_head(cache)) {
        const auto end = record.whole_end(cache, size);
        if (!end)
            break; // nobody reads on here
        if (const char* const problem = change(cache, record))
            return *problem == '\0' ? failure(path, "can't be written")
                                    : platform::display_path(path) + ": " + problem;
        if (!cache.seek(static_cast<std::int64_t>(*end), platform::origin::begin))
            break;
    }
    return cache.raw().flush() && cache.close() ? std::string() : failure(path, "can't be written");
}

// The same under the lock.
template <class Change>
std::string change_cache(const std::string& path, std::uint32_t patience, Change change) {
    if (!file_exists(path))
        return {};
    file_lock lock;
    if (std::string why = take_lock(lock, folder_part(path), patience); !why.empty())
        return why;
    std::string why = walk_cache(path, change);
    lock.release();
    return why;
}

// A head of another size can't be written in place.
bool is_writable(const message_head& record) {
    return record.header.filecount() == message_head::value_count;
}

constexpr const char* done = nullptr;
constexpr const char* not_written = "";

const char* forget_record(file_stream& file, const message_head& record, forgotten_mail& sum) {
    if (record.flags & message_flag::deleted) {
        ++sum.already;
        return done;
    }
    if (!is_writable(record))
        return "the message's record is damaged";
    if (!mark_deleted(file, record.position))
        return not_written;
    ++sum.marked;
    return done;
}

} // namespace

std::string take_lock(file_lock& lock, std::string_view folder, std::uint32_t patience) {
    const std::string path = join_path(folder, names::lock);
    lock.set_path(path);
    if (lock.acquire_within(patience))
        return {};
    return platform::last_error() == platform::error::sharing_violation
               ? platform::display_path(path) + ": another process holds the cache all the time"
               : failure(path, "can't be made");
}

std::string forget_key(std::string_view id) {
    if (!bare_id(id).empty())
        return std::string(id);
    return std::string(trim(id, " \t\r\n<>").substr(0, longest_msid_name));
}

std::string forget_waiting(const std::string& cache, mail_to_forget& messages, std::uint32_t patience) {
    messages.erase(""); // it is the key of every ID of another form
    return change_cache(cache, patience, [&](file_stream& file, const message_head& record) {
        auto found = messages.find(record.msid);
        if (found == messages.end())
            found = messages.find(bare_id(record.msid));
        return found == messages.end() ? done : forget_record(file, record, found->second);
    });
}

std::string forget_all_waiting(const std::string& cache, forgotten_mail& sum, std::uint32_t patience) {
    return change_cache(cache, patience, [&](file_stream& file, const message_head& record) {
        return forget_record(file, record, sum);
    });
}

std::string correct_waiting(const std::string& cache, wanted_verdicts& messages, std::uint32_t patience) {
    return change_cache(cache, patience, [&](file_stream& file, const message_head& record) {
        const auto found = messages.find(record.msid);
        if (found == messages.end() || record.flags & message_flag::deleted)
            return done;
        waiting_verdict& message = found->second;
        const bool is_spam = (record.flags & message_flag::spam) != 0;
        if (is_spam == message.spam) {
            ++message.waiting;
            return done;
        }
        if (!is_writable(record)) // it stays; the message can still be appended again
            return done;
        if (message.spam) {
            if (!remark(file, record.position, true, true))
                return not_written;
            ++message.waiting;
            ++message.remarked;
        } else {
            if (!mark_deleted(file, record.position))
                return not_written;
            ++message.deleted;
        }
        return done;
    });
}

} // namespace tvr
