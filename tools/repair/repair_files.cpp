#include "tools/repair/repair_files.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <map>
#include <optional>

#include "common/bytes.h"
#include "common/file_names.h"
#include "common/file_stream.h"
#include "common/files.h"
#include "common/path.h"
#include "msid/list_record.h"
#include "msid/msidmap.h"
#include "platform/clock.h"
#include "platform/error.h"
#include "platform/file.h"
#include "stage/temp_folder.h"
#include "tools/formats/file_view.h"
#include "tools/formats/signatures.h"
#include "tools/formats/walks.h"

namespace tvr {

namespace {

constexpr std::string_view unfinished_folder = "repair\\unfinished\\";
constexpr std::uint64_t most_in_vain = 64; // bytes read for each byte of damage

std::string stamp_text() {
    const platform::calendar_time now = platform::local_time();
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%04d%02d%02d-%02d%02d%02d", now.year, now.month, now.day,
                  now.hour, now.minute, now.second);
    return text.data();
}

// Notes only whether there is a defect, but for totals in the header.
class quiet_sink : public view_sink {
public:
    void defect(std::uint64_t, const std::string&) override { damaged = true; }
    void wrong_total(std::uint64_t, const std::string&, std::uint32_t) override {}

    bool damaged = false;
};

class id_sink final : public quiet_sink {
public:
    explicit id_sink(const id_visitor& visit) : m_visit(visit) {}

    void list_record(std::uint64_t, std::string_view id, std::uint32_t value) override {
        if (is_live_id(id, value))
            m_visit(id, value);
    }

private:
    const id_visitor& m_visit;
};

// Copies bytes of a file after what the other holds.
bool copy_range(const std::string& from, std::uint64_t begin, std::uint64_t end, file_stream& to) {
    file_view source(from);
    source.go_to(begin);
    while (begin != end) {
        const auto bytes = source.ahead(1);
        const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(bytes.size(), end - begin));
        if (size == 0 || !to.write(bytes.data(), size))
            return false;
        source.skip(size);
        begin += size;
    }
    return true;
}

// The offset after the record at `start`, if it is whole and nothing is wrong with it.
std::optional<std::uint64_t> record_end(file_view& file, std::uint64_t start) {
    quiet_sink sink;
    message_head head;
    file.go_to(start);
    if (!take_header(file, sink, head.header) || !take_short_text(file, sink, head.msid) || !file.has(8))
        return std::nullopt;
    const std::uint64_t end = start + head.length;
    const std::uint32_t count = load_u32(file.ahead(8).data());
    const std::uint32_t size = load_u32(file.ahead(8).data() + 4);
    file.skip(8);
    if (file.position() + size != end)
        return std::nullopt;
    for (std::uint32_t i = 0; i < count; ++i) {
        const auto bytes = file.ahead(1 + 255 + 4);
        const std::size_t length = bytes.empty() ? 0 : bytes[0];
        if (length == 0 || bytes.size() < length + 5 || file.position() + length + 5 > end)
            return std::nullopt;
        file.skip(length + 5);
    }
    return file.position() == end ? std::optional(end) : std::nullopt;
}

bool begins_record(file_view& file, std::uint64_t at) {
    file.go_to(at);
    return file.has(4) && load_u32(file.ahead(4).data()) == signature::message;
}

// Where the record after a damaged one may begin: by the length that the damaged one tells, if that leads to
// the beginning of a record; otherwise at the next signature. Nothing if there is none.
std::optional<std::uint64_t> next_record(file_view& file, std::uint64_t damaged) {
    if (begins_record(file, damaged) && file.has(12)) {
        const std::uint64_t end = damaged + load_u32(file.ahead(12).data() + 8);
        if (end > damaged && begins_record(file, end))
            return end;
    }
    std::array<std::uint8_t, 4> word{};
    store_u32(word.data(), signature::message);
    for (file.go_to(damaged + 1); file.has(word.size());) {
        const auto bytes = file.ahead(file_view::piece);
        const auto found = std::search(bytes.begin(), bytes.end(), word.begin(), word.end());
        if (found != bytes.end())
            return file.position() + static_cast<std::uint64_t>(found - bytes.begin());
        file.skip(bytes.size() - (word.size() - 1));
    }
    return std::nullopt;
}

std::string finish(file_stream& file, bool written, const std::string& path) {
    written = written && file.raw().flush();
    return file.close() && written ? std::string() : failure(path, "can't be written");
}

} // namespace

repair_folder::repair_folder(std::string working_directory, old_files old)
    : m_working(std::move(working_directory)), m_old(old) {}

repair_folder::~repair_folder() {
    std::string folder = m_working + std::string(unfinished_folder);
    if (!is_folder(folder))
        return;
    temp_folder::empty_folder(folder);
    platform::remove_directory(folder);
    platform::remove_directory(m_working + "repair"); // only if nothing was ever set aside
}

std::string repair_folder::unfinished(std::string_view name) {
    const std::string folder = m_working + std::string(unfinished_folder);
    make_folders(folder);
    if (!is_folder(folder))
        return {};
    std::string path = folder + std::string(name);
    platform::delete_file(path);
    return path;
}

std::string repair_folder::place_for(const std::string& path) {
    if (m_aside.empty()) {
        const std::string stem = m_working + "repair\\" + stamp_text();
        m_aside = stem;
        for (unsigned n = 2; platform::get_attributes(m_aside); ++n)
            m_aside = stem + "-" + std::to_string(n);
        m_aside += '\\';
    }
    std::string target = m_aside + path.substr(m_working.size());
    if (target.ends_with('\\'))
        target.pop_back();
    const std::string folder(folder_part(target));
    make_folders(folder);
    const std::string first = target;
    for (unsigned n = 2; platform::get_attributes(target); ++n)
        target = first + "-" + std::to_string(n);
    return is_folder(folder) ? target : std::string();
}

std::string repair_folder::set_aside(const std::string& path) {
    if (!platform::get_attributes(path))
        return {};
    if (m_old == old_files::deleted)
        return platform::delete_file(path) && platform::make_durable({folder_of(path)})
                   ? std::string()
                   : failure(path, "can't be deleted");
    const std::string target = place_for(path);
    if (target.empty())
        return failure(m_aside, "can't be made");
    const std::string source = path.ends_with('\\') ? path.substr(0, path.size() - 1) : path;
    return move_durably(source, target) ? std::string() : failure(path, "can't be set aside");
}

std::string repair_folder::replace(const std::string& made, const std::string& path) {
    if (m_old == old_files::kept && platform::get_attributes(path)) {
        const std::string target = place_for(path);
        if (target.empty())
            return failure(m_aside, "can't be made");
        if (!link_or_copy(path, target, true) || !platform::make_durable({folder_of(target)}))
            return failure(path, "can't be kept aside");
    }
    return replace_durably(made, path) ? std::string() : failure(path, "can't be replaced");
}

cache_scan scan_cache(const std::string& path) {
    cache_scan scan;
    file_view file(path);
    std::uint64_t at = 4;      // after the count
    std::uint64_t in_vain = 0; // bytes that were read of what is no record
    std::optional<std::uint64_t> next = at;
    for (file.go_to(at); next && file.has(1); file.go_to(at)) {
        if (const auto end = record_end(file, at)) {
            if (scan.ranges.empty() || scan.ranges.back().second != at)
                scan.ranges.emplace_back(at, at);
            scan.ranges.back().second = *end;
            ++scan.records;
            at = *end;
            continue;
        }
        // What looks like records again and again is not worth any time.
        in_vain += file.position() - std::min(file.position(), at);
        next = next_record(file, at);
        if (next && in_vain > most_in_vain * (*next + file_view::piece))
            next.reset();
        if (next) {
            scan.lost += *next - at;
            at = *next;
        }
    }
    for (file.go_to(at); file.has(1);) {
        const std::size_t rest = file.ahead(1).size();
        scan.lost += rest;
        file.skip(rest);
    }
    return scan;
}

std::string write_cache(const std::string& from, const cache_scan& scan, const std::string& to) {
    file_stream file;
    bool written = file.create_to_write(to) && file.write_u32(static_cast<std::uint32_t>(scan.records));
    for (const auto& [begin, end] : scan.ranges)
        written = written && copy_range(from, begin, end, file);
    return finish(file, written, to);
}

std::string visit_ids(const std::string& list, repair_folder& folder, const id_visitor& visit) {
    std::string source = list;
    std::array<std::uint8_t, 4> word{};
    const std::size_t got = platform::peek_file(list, 0, word.data(), word.size()).value_or(0);
    std::uint32_t ignored = 0;
    quiet_sink head_sink;
    fileheader header(signature::list);
    header.add(ignored, 0).add(ignored, 0);
    file_view start(list);
    if (got == word.size() && !take_header(start, head_sink, header)) {
        // Only a list that is whole under another header is one.
        source = folder.unfinished("headless.lst");
        const auto whole = [&] {
            quiet_sink sink;
            file_view file(source);
            walk_list(file, sink);
            return !sink.damaged;
        };
        if (source.empty())
            return failure(folder.working() + std::string(unfinished_folder), "can't be made");
        if (std::string why = write_patched(list, {{0, signature::list}, {4, 2}, {8, 0}, {12, 0}}, source);
            !why.empty() || !whole())
            return why;
    }
    id_sink sink(visit);
    file_view file(source);
    walk_list(file, sink);
    return file.failed() ? failure(source, "can't be read") : std::string();
}

namespace {

bool is_sound_list(const std::string& list) {
    class : public quiet_sink {
        void wrong_total(std::uint64_t place, const std::string& reason, std::uint32_t) override {
            defect(place, reason);
        }
    } sink; // a list of our own making has the right totals
    file_view file(list);
    walk_list(file, sink);
    return !sink.damaged && !file.failed();
}

} // namespace

std::string remake_map(const std::string& list, repair_folder& folder,
                       const std::function<bool(std::string_view, std::uint32_t)>& keeps) {
    const std::string index = list.substr(0, list.size() - 4) + names::index_ending;
    const std::string name(file_part(list).substr(0, file_part(list).size() - 4));
    const std::string new_list = folder.unfinished(name + names::list_ending);
    const std::string new_index = folder.unfinished(name + names::index_ending);
    if (new_list.empty())
        return failure(folder.working() + std::string(unfinished_folder), "can't be made");
    bool written = true;
    std::uint64_t kept = 0;
    std::string unread;
    {
        msidmap map(folder_part(new_list), name);
        unread = visit_ids(list, folder, [&](std::string_view id, std::uint32_t value) {
            if (keeps && !keeps(id, value))
                return;
            ++kept;
            written = written && map.insert(id, value);
        });
    }
    if (!unread.empty())
        return unread;
    // An insertion doesn't tell when its header failed.
    if (!written || (kept != 0 && !is_sound_list(new_list)))
        return failure(new_list, "can't be written");
    // The index goes first: without one, any list is right. The engine makes one where there is none.
    const bool had_index = is_file(index);
    if (std::string why = folder.set_aside(index); !why.empty())
        return why;
    if (kept == 0)
        return folder.set_aside(list);
    if (std::string why = folder.replace(new_list, list); !why.empty())
        return why;
    return had_index ? folder.replace(new_index, index) : std::string();
}

std::string write_patched(const std::string& from,
                          const std::vector<std::pair<std::uint64_t, std::uint32_t>>& words,
                          const std::string& to) {
    file_stream file;
    bool written =
        file.open(to, platform::access::read_write, platform::share::read, platform::creation::create_always);
    file_view source(from);
    while (written && source.has(1)) {
        const auto bytes = source.ahead(1);
        written = file.write(bytes.data(), bytes.size());
        source.skip(bytes.size());
    }
    for (const auto& [offset, word] : words)
        written = written && file.seek(static_cast<std::int64_t>(offset), platform::origin::begin) &&
                  file.write_u32(word);
    return finish(file, written && !source.failed(), to);
}

std::string write_statistic(const std::string& from, const std::string& to) {
    constexpr std::size_t entry_size = 36;
    std::map<std::uint32_t, std::array<std::uint8_t, entry_size>> entries; // by hour
    file_view source(from);
    for (source.go_to(4); source.has(entry_size); source.skip(entry_size)) {
        const auto bytes = source.ahead(entry_size).first<entry_size>();
        std::copy(bytes.begin(), bytes.end(), entries[load_u32(bytes.data())].begin());
    }
    file_stream file;
    bool written = file.create_to_write(to) && file.write_u32(signature::statistic);
    for (const auto& [hour, bytes] : entries)
        written = written && file.write(bytes.data(), bytes.size());
    return finish(file, written && !source.failed(), to);
}

} // namespace tvr
