#include "client/known_messages.h"

#include "common/bytes.h"
#include "common/file_names.h"
#include "common/file_view.h"
#include "dict/message_record.h"
#include "msid/list_record.h"
#include "platform/file.h"
#include "stage/temp_folder.h"

namespace tvr {

namespace {

constexpr std::size_t largest_head = 8 + 4 * std::size_t{fileheader::limit}; // bytes

// The batch that a training has taken from the snapshot; empty if there is none.
std::string batch_path(const std::string& stage_folder) {
    platform::directory_search search;
    platform::directory_entry entry;
    return search.first(stage_folder + names::entered_prefix + "*.*", entry) ? stage_folder + entry.name
                                                                             : std::string();
}

// Head and message ID at the position of the view, which stays in front of them.
bool read_head(file_view& file, message_head& head) {
    const auto bytes = file.ahead(largest_head + 1 + message_head::longest_msid);
    std::size_t behind = 0;
    if (!head.header.read(bytes, behind) || behind == bytes.size() ||
        bytes.size() - behind - 1 < bytes[behind])
        return false;
    head.msid.assign(reinterpret_cast<const char*>(bytes.data()) + behind + 1, bytes[behind]);
    return true;
}

} // namespace

known_messages::known_messages(std::string_view working_directory)
    : m_base(std::string(working_directory) + names::base_folder) {}

// In the way of the messages: what moves on meanwhile is found at the next place.
void known_messages::load() {
    const std::string transact = m_base + names::transact_folder;
    const auto folder = [&](std::uint32_t stage) { return transact + names::stage_folder(stage); };
    m_waiting = read_records(transact + names::cache);
    m_waiting.merge(read_records(transact + names::snapshot));
    m_waiting.merge(read_records(batch_path(folder(stage_number::entered))));
    m_waiting.merge(read_records(folder(stage_number::sorted) + names::sorted_messages));
    m_learned.clear();
    read_list(m_base + names::spam_list, folder(stage_number::ready_spam) + names::spam_list, true,
              m_learned);
    read_list(m_base + names::good_list, folder(stage_number::ready_good) + names::good_list, false,
              m_learned);
}

known_messages::verdicts known_messages::read_records(const std::string& path) {
    verdicts found;
    if (path.empty())
        return found;
    file_view file(path);
    file.skip(4); // the number of records bounds nobody
    message_head head;
    while (found.size() < most && read_head(file, head) && head.length != 0) {
        const bool is_spam = (head.flags & message_flag::spam) != 0;
        if ((head.flags & message_flag::deleted) == 0)
            found[head.msid] = {.ham = !is_spam, .spam = is_spam, .waits = true};
        file.skip(head.length);
    }
    return found;
}

// A list is away for a moment while a new one takes its place, which is in the stage folder until then.
void known_messages::read_list(const std::string& path, const std::string& stage_path, bool spam,
                               verdicts& into) {
    for (const std::string& place : {path, stage_path, path}) {
        file_view file(place);
        const auto head = file.ahead(8);
        if (head.size() < 8 || load_u32(head.data()) != list_signature)
            continue;
        file.skip(8 + std::uint64_t{load_u32(head.data() + 4)} * 4);
        list_record record;
        for (std::size_t left = most;
             left != 0 &&
             read_record(file.ahead(list_record::overhead + message_head::longest_msid), 0, record);
             --left) {
            if (record.is_live())
                (spam ? into[std::string(record.id)].spam : into[std::string(record.id)].ham) = true;
            file.skip(record.size);
        }
        return;
    }
}

known_as known_messages::find(std::string_view msid) const {
    const std::string id(msid);
    for (const verdicts* where : {&m_waiting, &m_learned})
        if (const auto found = where->find(id); found != where->end())
            return found->second;
    return {};
}

bool known_messages::is_learned(std::string_view msid, bool spam, bool manual) const {
    const known_as known = find(msid);
    return known.as(spam) && !(manual && known.as(!spam));
}

void known_messages::note(std::string_view msid, bool spam) {
    m_waiting[std::string(msid)] = {.ham = !spam, .spam = spam, .waits = true};
}

} // namespace tvr
