#include "tools/waiting_mail.h"

#include <cstddef>

#include "common/file_stream.h"
#include "common/path.h"
#include "common/text.h"
#include "dict/dictbase.h"
#include "dict/message_record.h"
#include "platform/error.h"
#include "platform/file.h"

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

std::string failure(const std::string& path, const char* what) {
    return platform::display_path(path) + ": " + what + " (error " + std::to_string(platform::last_error()) +
           ")";
}

std::string mark_all(const std::string& path, mail_to_forget& messages) {
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
        auto found = messages.find(record.msid);
        if (found == messages.end())
            found = messages.find(bare_id(record.msid));
        // A head of another size can't be written in place.
        if (found != messages.end() && record.flags & message_flag::deleted)
            ++found->second.already;
        else if (found != messages.end() && record.header.filecount() != message_head::value_count)
            return platform::display_path(path) + ": the message's record is damaged";
        else if (found != messages.end()) {
            if (!mark_deleted(cache, record.position))
                return failure(path, "can't be written");
            ++found->second.marked;
        }
        if (!cache.seek(static_cast<std::int64_t>(*end), platform::origin::begin))
            break;
    }
    return cache.close() ? std::string() : failure(path, "can't be written");
}

} // namespace

std::string forget_key(std::string_view id) {
    if (!bare_id(id).empty())
        return std::string(id);
    return std::string(trim(id, " \t\r\n<>").substr(0, longest_msid_name));
}

std::string forget_waiting(const std::string& cache, mail_to_forget& messages, std::uint32_t patience) {
    messages.erase(""); // it is the key of every ID of another form
    if (!file_exists(cache))
        return {};
    const std::string lock_path = join_path(folder_part(cache), "lock.bin");
    file_lock lock(lock_path);
    if (!lock.acquire_within(patience))
        return platform::last_error() == platform::error::sharing_violation
                   ? platform::display_path(lock_path) + ": another process holds the cache all the time"
                   : failure(lock_path, "can't be made");
    std::string why = mark_all(cache, messages);
    lock.release();
    return why;
}

} // namespace tvr
