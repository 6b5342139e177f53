// The small files, the archive, the settings; and what all readers share.

#include <algorithm>
#include <array>
#include <cstring>
#include <map>
#include <vector>

#include "client/verdict/exact_math.h"
#include "client/verdict/judge.h"
#include "common/bytes.h"
#include "common/minutes.h"
#include "common/text.h"
#include "platform/file.h"
#include "settings/storage.h"
#include "stage/archive_format.h"
#include "stage/temp_folder.h"
#include "tools/formats/signatures.h"
#include "tools/formats/walks.h"
#include "tools/text.h"

namespace tvr {

namespace {

bool is_tag(std::uint8_t byte, archive_tag tag) {
    return byte == static_cast<std::uint8_t>(tag);
}

bool ends_at(const std::string& path, std::uint64_t offset) {
    std::uint8_t byte = 0;
    return platform::peek_file(path, offset, &byte, 1).value_or(0) == 1 &&
           is_tag(byte, archive_tag::file_ends);
}

// The rest of a file, and some bytes more than `most` at most.
std::vector<std::uint8_t> take_all(file_view& file, std::size_t most) {
    std::vector<std::uint8_t> bytes;
    while (file.has(1) && bytes.size() <= most) {
        const auto part = file.ahead(1);
        bytes.insert(bytes.end(), part.begin(), part.end());
        file.skip(part.size());
    }
    return bytes;
}

double percent(double logit) {
    return 100 * exact_logistic(logit);
}

// What stands in front of the content of a file in an archive.
struct packed_head {
    bool packed = false;
    std::uint64_t size = 0;   // of the file
    std::uint64_t stored = 0; // bytes in the archive, this head among them
};

// False if no content with an end behind it stands there.
bool read_packed_head(file_view& file, packed_head& head) {
    constexpr std::size_t head_size = 16;
    constexpr std::size_t least_stream = 8; // bytes
    const auto bytes = file.ahead(head_size);
    std::array<std::uint8_t, head_size> words{};
    std::copy_n(bytes.begin(), std::min(bytes.size(), head_size), words.begin());
    head.packed = load_u32(words.data()) == signature::packed;
    if (!head.packed) {
        head.size = load_u32(words.data());
        head.stored = head.size + 4;
        return bytes.size() >= 4 && ends_at(file.path(), file.position() + head.stored);
    }
    if (load_u32(words.data() + 4) != 2)
        return false;
    head.size = load_u32(words.data() + 8);
    head.stored = load_u32(words.data() + 12);
    if (head.stored >= head_size && ends_at(file.path(), file.position() + head.stored))
        return true;
    // The last 16 bytes of every packed file are missing; of a small one, part of this head is among them.
    for (std::size_t size = std::min(head_size, bytes.size()) - 1; size >= least_stream; --size) {
        if (!is_tag(bytes[size], archive_tag::file_ends) || (size > 12 && bytes[12] != size))
            continue;
        std::fill(words.begin() + static_cast<std::ptrdiff_t>(size), words.end(), std::uint8_t{0});
        head.size = load_u32(words.data() + 8);
        head.stored = size;
        return true;
    }
    return false;
}

// Reads the content of a file in an archive and tells its entry. False after a defect.
bool take_packed(file_view& file, view_sink& sink, const std::string& name) {
    packed_head head;
    if (!read_packed_head(file, head)) {
        if (!file.has(1) || !is_tag(file.ahead(1)[0], archive_tag::file_ends)) {
            sink.defect(file.position(), "the content of " + visible(name) + " has no end");
            return false;
        }
        head = {}; // it could not be read when the archive was made
    }
    if (sink.wants_entry())
        sink.entry({{"file", name}, {"size", head.size}, {"packed", head.packed ? head.stored : 0}});
    file.skip(head.stored + 1);
    return true;
}

std::string_view tag_text(entry_tag tag) {
    constexpr std::string_view names[] = {"section", "byte",     "byte",   "2 bytes",     "4 bytes",
                                          "8 bytes", "16 bytes", "string", "wide string", "blob"};
    const auto number = static_cast<std::size_t>(tag);
    return number < std::size(names) ? names[number] : "unknown";
}

// The names of a whole settings file by their IDs.
std::map<std::uint16_t, std::string> settings_names(std::span<const std::uint8_t> bytes) {
    std::map<std::uint16_t, std::string> names;
    std::size_t at = 8;
    while (at + 2 < bytes.size()) {
        const auto id = load_le<std::uint16_t>(bytes.data() + at);
        const auto* const text = reinterpret_cast<const char*>(bytes.data() + at + 2);
        const std::size_t length = strnlen(text, bytes.size() - at - 2);
        if (id == 0xFFFF)
            break;
        names.emplace(id, std::string(text, length));
        at += 2 + length + 1;
    }
    return names;
}

void show_settings(storage_object& storage, const std::map<std::uint16_t, std::string>& names,
                   const storage_handle* parent, unsigned depth, view_sink& sink) {
    storage_handle* entry = storage.find_section(nullptr, parent);
    while (entry) {
        const entry_tag tag = entry->entry->type();
        const auto* const value = dynamic_cast<const storage_value*>(entry->entry.get());
        const auto* const section = dynamic_cast<const storage_section*>(entry->entry.get());
        const auto name = names.find(entry->id);
        if (sink.wants_entry())
            sink.entry({{"name", name == names.end() ? "?" : name->second},
                        {"kind", std::string(tag_text(tag))},
                        {section ? "children" : "bytes", std::uint64_t{section ? section->count()
                                                                       : value ? value->size()
                                                                               : 0}}});
        if (section && depth == 0)
            show_settings(storage, names, entry, depth + 1, sink);
        entry = storage.next_release(entry, true);
    }
}

} // namespace

std::string moment(std::uint32_t minutes) {
    return minutes == 0 || minutes == no_minutes ? "-" : time_text(minutes * ticks_per_minute).substr(0, 16);
}

void cut_short(const file_view& file, view_sink& sink, const std::string& inside) {
    sink.defect(file.position(), "the file ends inside " + inside);
}

void expect_end(file_view& file, view_sink& sink) {
    if (file.has(1))
        sink.defect(file.position(), "bytes behind the end");
}

bool take_header(file_view& file, view_sink& sink, fileheader& header) {
    const auto start = file.ahead(8 + 4 * std::size_t{fileheader::limit});
    std::size_t size = 0;
    if (header.read(start, size)) {
        file.skip(size);
        return true;
    }
    if (start.size() >= 4 && load_u32(start.data()) != header.signature)
        sink.defect(file.position(), "the signature is " + to_hex(load_u32(start.data()), 8) + ", not " +
                                         to_hex(header.signature, 8));
    else if (start.size() >= 8 && load_u32(start.data() + 4) > fileheader::limit)
        sink.defect(file.position() + 4, "the header has more than 30 values");
    else
        cut_short(file, sink, "a header");
    return false;
}

bool take_short_text(file_view& file, view_sink& sink, std::string& text) {
    const auto bytes = file.ahead(256);
    if (bytes.empty() || bytes.size() - 1 < bytes[0]) {
        cut_short(file, sink, "a name");
        return false;
    }
    text.assign(reinterpret_cast<const char*>(bytes.data() + 1), bytes[0]);
    file.skip(1 + text.size());
    return true;
}

void walk_time_mark(file_view& file, view_sink& sink) {
    if (!file.has(8)) {
        cut_short(file, sink, "the time");
        return;
    }
    sink.field("time", time_text(load_le<std::uint64_t>(file.ahead(8).data())));
    file.skip(8);
    expect_end(file, sink);
}

void walk_signals(file_view& file, view_sink& sink) {
    if (!file.has(4)) {
        cut_short(file, sink, "the signals");
        return;
    }
    const std::uint32_t word = load_u32(file.ahead(4).data());
    file.skip(4);
    sink.list("events");
    for (unsigned bit = 0; bit < 32; ++bit)
        if ((word >> bit & 1) != 0 && sink.wants_entry())
            sink.entry({{"event", std::uint64_t{bit}}});
    expect_end(file, sink);
}

void walk_stage_mark(file_view& file, view_sink& sink) {
    constexpr std::string_view text = stage_marker_text;
    const auto bytes = file.ahead(text.size() + 1);
    if (std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()) != text)
        sink.defect(0, "not the text of a stage marker");
}

void walk_watch(file_view& file, view_sink& sink) {
    constexpr std::size_t entry_size = 16;
    constexpr std::array kinds = {"folder", "file", "file that has gone", "learned as ham",
                                  "learned as spam"};
    fileheader header(signature::watch);
    if (!take_header(file, sink, header))
        return;
    sink.list("entries");
    bool in_folder = false;
    for (; file.has(entry_size); file.skip(entry_size)) {
        const auto entry = file.ahead(entry_size);
        const std::uint32_t kind = load_u32(entry.data());
        if (kind == 0 || kind > kinds.size() || ((kind == 2 || kind == 3) && !in_folder)) {
            sink.defect(file.position(), "an entry of the unknown kind " + grouped(kind));
            return;
        }
        in_folder = in_folder || kind == 1;
        if (sink.wants_entry())
            sink.entry(
                {{"what", std::string(kinds.at(kind - 1))},
                 {"key", to_hex(load_u32(entry.data() + 12), 8) + to_hex(load_u32(entry.data() + 8), 8)},
                 {"stamp", std::uint64_t{load_u32(entry.data() + 4)}}});
    }
}

void walk_statistic(file_view& file, view_sink& sink) {
    constexpr std::size_t entry_size = 36;
    constexpr std::uint32_t minutes_in_hour = 60;
    if (!file.has(4) || load_u32(file.ahead(4).data()) != signature::statistic) {
        sink.defect(0, "it doesn't begin with STAT");
        return;
    }
    file.skip(4);
    sink.list("hours");
    std::uint64_t previous = 0;
    for (std::uint64_t entries = 0; file.has(1); ++entries) {
        const auto bytes = file.ahead(entry_size);
        if (bytes.size() < entry_size) {
            cut_short(file, sink, "entry " + grouped(entries + 1));
            return;
        }
        const auto word = [&](std::size_t i) { return std::uint64_t{load_u32(bytes.data() + 4 * i)}; };
        if (entries != 0 && word(0) <= previous)
            sink.defect(file.position(), "the hour is out of order");
        previous = word(0);
        if (sink.wants_entry())
            sink.entry({{"hour", time_text(word(0) * minutes_in_hour * ticks_per_minute).substr(0, 13)},
                        {"spam bytes", word(1)},
                        {"ham bytes", word(2)},
                        {"re-marked spam bytes", word(3)},
                        {"re-marked ham bytes", word(4)},
                        {"spam", word(5)},
                        {"ham", word(6)},
                        {"re-marked spam", word(7)},
                        {"re-marked ham", word(8)}});
        file.skip(entry_size);
    }
}

void walk_archive(file_view& file, view_sink& sink) {
    sink.list("files");
    std::vector<std::string> folders;
    std::string name;
    while (file.has(1)) {
        const auto tag = static_cast<archive_tag>(file.ahead(1)[0]);
        const std::uint64_t at = file.position();
        file.skip(1);
        if (tag == archive_tag::archive_ends && folders.empty()) {
            expect_end(file, sink);
            return;
        }
        if (tag == archive_tag::folder_ends && !folders.empty()) {
            folders.pop_back();
            continue;
        }
        const bool fits = tag == archive_tag::folder_begins
                              ? folders.size() < deepest_archive_folder
                              : tag == archive_tag::file_begins && !folders.empty();
        if (!fits) {
            sink.defect(at, "tag " + grouped(static_cast<std::uint64_t>(tag)) + " doesn't belong there");
            return;
        }
        if (!take_short_text(file, sink, name))
            return;
        if (tag == archive_tag::folder_begins) {
            folders.push_back(name);
            continue;
        }
        std::string path;
        for (const std::string& folder : folders)
            path += folder.empty() ? "" : folder + "\\";
        if (!take_packed(file, sink, path + name))
            return;
    }
    cut_short(file, sink, "the archive");
}

void walk_verdict(file_view& file, view_sink& sink) {
    verdict_state state;
    if (!parse_verdict(take_all(file, largest_verdict), state))
        return sink.defect(0, "damaged, or of another version: none of it is taken");
    const auto spam = std::ranges::count_if(state.messages, &judged_message::spam);
    const auto weights = state.memory.weights();
    const auto places = weights.size() - static_cast<std::size_t>(std::ranges::count(weights, 0));
    sink.field("messages judged", state.judged);
    sink.field("messages kept", std::uint64_t{state.messages.size()});
    sink.field("spam kept", static_cast<std::uint64_t>(spam));
    sink.field("not learned yet", std::uint64_t{state.unlearned});
    sink.field("trust", state.trust);
    if (!state.ham_scores.empty())
        sink.field("spam from", percent(spam_logit(state, {.spam_threshold = 0})));
    sink.field("places of the memory in use", std::uint64_t{places});
    sink.field("bias of the memory", static_cast<double>(state.memory.bias) / token_memory::unit);
    sink.list("messages");
    for (const judged_message& message : state.messages)
        if (sink.wants_entry())
            sink.entry({{"time", moment(message.time)},
                        {"spam", message.spam},
                        {"score", percent(message.score / score_unit)},
                        {"learned score", percent(message.learned_score / score_unit)},
                        {"base spam", std::uint64_t{message.what.spam_messages}},
                        {"base ham", std::uint64_t{message.what.ham_messages}}});
}

void walk_settings(file_view& file, view_sink& sink) {
    const std::vector<std::uint8_t> bytes = take_all(file, storage_object::max_packed_size);
    storage_object storage;
    if (bytes.size() > storage_object::max_packed_size || !storage.load(bytes)) {
        sink.defect(0, "damaged: none of it is taken");
        return;
    }
    sink.field("version", std::uint64_t{bytes[4]});
    const auto names = settings_names(bytes);
    sink.field("names", std::uint64_t{names.size()});
    sink.list("entries");
    show_settings(storage, names, nullptr, 0, sink);
}

void walk_file(file_kind kind, file_view& file, view_sink& sink) {
    file.go_to(0);
    switch (kind) {
    case file_kind::atom:
        return walk_atom(file, sink);
    case file_kind::base:
        return walk_base(file, sink);
    case file_kind::time_mark:
        return walk_time_mark(file, sink);
    case file_kind::list:
        sink.list("message ids");
        return walk_list(file, sink);
    case file_kind::index:
        return walk_index(file, sink);
    case file_kind::columns:
        return walk_columns(file, sink);
    case file_kind::cache:
        return walk_cache(file, sink);
    case file_kind::statistic:
        return walk_statistic(file, sink);
    case file_kind::signals:
        return walk_signals(file, sink);
    case file_kind::archive:
        return walk_archive(file, sink);
    case file_kind::settings:
        return walk_settings(file, sink);
    case file_kind::stage_mark:
        return walk_stage_mark(file, sink);
    case file_kind::watch:
        return walk_watch(file, sink);
    case file_kind::verdict:
        return walk_verdict(file, sink);
    default:
        sink.defect(0, "no file of the engine");
    }
}

} // namespace tvr
