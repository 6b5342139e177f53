#include "tools/state/engine_view.h"

#include <algorithm>
#include <array>
#include <span>
#include <utility>

#include "client/base_check.h"
#include "common/bytes.h"
#include "common/file_names.h"
#include "compiled/base_header.h"
#include "dict/atom.h"
#include "dict/message_record.h"
#include "platform/clock.h"
#include "platform/disk_room.h"
#include "platform/file.h"
#include "platform/presence.h"
#include "platform/process.h"
#include "signal/identity.h"
#include "stage/temp_folder.h"
#include "tools/text.h"
#include "transact/training_room.h"

namespace tvr {

namespace {

constexpr std::uint32_t end_patience = 30000; // milliseconds
constexpr std::uint32_t poll_pause = 10;

struct stage_text {
    std::uint32_t number;
    const char* text;
};
constexpr std::array<stage_text, 5> stages = {{
    {stage_number::entered, "sorting the messages"},
    {stage_number::sorted, "adding the spam"},
    {stage_number::ready_spam, "adding the good messages"},
    {stage_number::ready_good, "publishing the dictionaries"},
    {stage_number::generate_rgd, "generating the base"},
}};
constexpr const char* taking = "taking the messages"; // before the first

// The start of a file, as far as it goes.
template <std::size_t size>
std::span<const std::uint8_t> peek(const std::string& path, std::array<std::uint8_t, size>& room) {
    return {room.data(), platform::peek_file(path, 0, room.data(), room.size()).value_or(0)};
}

bool exists(const std::string& path) {
    return platform::get_attributes(path).has_value();
}

} // namespace

engine_view::engine_view(std::string working_directory)
    : m_working(std::move(working_directory)), m_base(m_working + names::base_folder),
      m_transact(m_base + names::transact_folder) {}

std::uint32_t engine_view::process_id() {
    const auto found = platform::find_presence(server_class, server_title);
    return found.found ? found.process_id : 0;
}

bool engine_view::wait_until(std::uint32_t patience, const std::function<bool()>& condition) {
    const std::uint32_t start = platform::tick_count();
    while (!condition()) {
        if (platform::tick_count() - start > patience)
            return false;
        platform::sleep_for(poll_pause);
    }
    return true;
}

bool engine_view::wait_for_end(std::uint32_t process) {
    return wait_until(end_patience, [process] { return !platform::process_exists(process); });
}

std::uint64_t engine_view::waiting() const {
    const std::string path = m_transact + names::cache;
    std::uint64_t count = 0;
    std::array<std::uint8_t, 128> room;
    for (std::uint64_t place = 4;;) {
        const std::size_t got = platform::peek_file(path, place, room.data(), room.size()).value_or(0);
        message_head record;
        std::size_t behind = 0;
        if (!record.header.read({room.data(), got}, behind))
            return count;
        count += (record.flags & message_flag::deleted) == 0 ? 1 : 0;
        if (record.length == 0)
            return count;
        place += record.length;
    }
}

std::uint64_t engine_view::cache_size() const {
    return platform::size_on_disk(m_transact + names::cache).value_or(0);
}

bool engine_view::snapshot_exists() const {
    return exists(m_transact + names::snapshot);
}

bool engine_view::has_marker(std::uint32_t stage) const {
    return exists(m_transact + names::stage_folder(stage) + names::stage_marker);
}

const char* engine_view::stage() const {
    // The newest marker counts.
    for (auto each = stages.rbegin(); each != stages.rend(); ++each)
        if (has_marker(each->number))
            return each->text;
    return snapshot_exists() ? taking : nullptr;
}

std::string engine_view::work_left() const {
    if (const std::uint64_t count = waiting())
        return grouped(count) + (count == 1 ? " message waits" : " messages wait");
    const std::string prefix = "a training is under way: ";
    // In the order in which messages go through, so that none gets past the look.
    if (snapshot_exists())
        return prefix + taking;
    const std::string entered = m_transact + names::stage_folder(stage_number::entered);
    platform::directory_search search;
    platform::directory_entry entry;
    for (bool more = search.first(entered + names::entered_prefix + "*", entry); more;
         more = search.next(entry))
        if (platform::size_on_disk(entered + entry.name).value_or(0) != 0)
            return prefix + taking;
    for (const auto& [number, text] : stages)
        if (has_marker(number))
            return prefix + text;
    return {};
}

std::uint64_t engine_view::last_busy(std::uint32_t process) const {
    std::uint64_t last = std::max(platform::process_start(process).value_or(0), stamp());
    // The base is there a moment before its stamp.
    for (const std::string& path : {base_path(), m_transact + names::cache}) {
        platform::file file;
        if (file.open(path, platform::access::none, platform::share::read_write,
                      platform::creation::open_existing))
            last = std::max(last, file.last_write_time().value_or(0));
    }
    return last;
}

half_view engine_view::half(const std::string& name) const {
    half_view sum;
    platform::directory_search search;
    platform::directory_entry entry;
    for (bool more = search.first(m_base + name + names::any_atom, entry); more; more = search.next(entry)) {
        atom_head head;
        if (!head.peek(m_base + entry.name))
            continue;
        ++sum.atoms;
        sum.messages += head.messages;
        sum.tokens += head.tokens;
        if (head.oldest == 0)
            continue;
        const std::uint32_t newest = std::max(head.oldest, head.newest);
        sum.oldest = sum.oldest == 0 ? head.oldest : std::min(sum.oldest, head.oldest);
        sum.newest = std::max(sum.newest, newest);
    }
    return sum;
}

std::optional<base_view> engine_view::base() const {
    std::array<std::uint8_t, 256> room;
    const auto start = peek(base_path(), room);
    base_header head;
    std::size_t behind = 0;
    if (!head.header.read(start, behind) || start.size() < behind + 4)
        return std::nullopt;
    base_view view;
    view.bytes = platform::size_on_disk(base_path()).value_or(0);
    view.tokens = load_u32(start.data() + behind);
    view.spam_messages = head.spam_messages;
    view.ham_messages = head.nonspam_messages;
    view.published = stamp();
    return view;
}

std::string engine_view::base_fault() const {
    return exists(base_path()) ? base_defect(base_path()) : std::string();
}

std::string engine_view::room_fault() const {
    const training_room room = room_for_training(m_base);
    return room.is_enough() ? std::string() : "no room on the disk for a training: " + room.text();
}

std::uint64_t engine_view::stamp() const {
    std::array<std::uint8_t, 8> room{};
    return peek(m_base + names::base_mark, room).size() == room.size() ? load_le<std::uint64_t>(room.data())
                                                                       : 0;
}

} // namespace tvr
