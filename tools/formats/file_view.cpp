#include "tools/formats/file_view.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "common/bytes.h"
#include "common/file_names.h"
#include "common/path.h"
#include "common/text.h"
#include "platform/error.h"
#include "platform/file.h"
#include "stage/temp_folder.h"
#include "tools/formats/signatures.h"
#include "tools/text.h"

namespace tvr {

std::string_view kind_text(file_kind kind) {
    switch (kind) {
    case file_kind::atom:
        return "atom";
    case file_kind::base:
        return "compiled base";
    case file_kind::time_mark:
        return "time mark";
    case file_kind::list:
        return "message-ID list";
    case file_kind::index:
        return "message-ID index";
    case file_kind::columns:
        return "column file";
    case file_kind::cache:
        return "message cache";
    case file_kind::statistic:
        return "statistic";
    case file_kind::signals:
        return "signals";
    case file_kind::archive:
        return "archive";
    case file_kind::settings:
        return "settings";
    case file_kind::stage_mark:
        return "stage marker";
    case file_kind::watch:
        return "memory of tvrctl watch";
    case file_kind::verdict:
        return "learned verdict";
    default:
        return "unknown";
    }
}

file_kind kind_of_name(std::string_view name) {
    constexpr std::pair<std::string_view, file_kind> whole[] = {{names::statistic, file_kind::statistic},
                                                                {names::new_statistic, file_kind::statistic},
                                                                {names::signals, file_kind::signals},
                                                                {names::archive, file_kind::archive},
                                                                {names::old_archive, file_kind::archive},
                                                                {names::settings, file_kind::settings},
                                                                {names::watch, file_kind::watch},
                                                                {names::verdict, file_kind::verdict},
                                                                {names::stage_marker, file_kind::stage_mark}};
    constexpr std::pair<std::string_view, file_kind> ends[] = {{names::atom_ending, file_kind::atom},
                                                               {".rgd", file_kind::base},
                                                               {".mrk", file_kind::time_mark},
                                                               {names::list_ending, file_kind::list},
                                                               {names::index_ending, file_kind::index},
                                                               {names::column_ending, file_kind::columns},
                                                               {".bys", file_kind::cache},
                                                               {".trr", file_kind::archive},
                                                               {".cfg", file_kind::settings}};
    for (const auto& [text, kind] : whole)
        if (name == text)
            return kind;
    for (const auto& [text, kind] : ends)
        if (name.ends_with(text))
            return kind;
    return name.starts_with(names::entered_prefix) && name.ends_with(".tmp") ? file_kind::cache
                                                                             : file_kind::unknown;
}

file_kind kind_of(file_view& file) {
    file.go_to(0);
    const auto start = file.ahead(file_view::piece);
    const file_kind named = kind_of_name(file_part(file.path()));
    // Without a signature; the name goes before a likeness.
    if (start.size() < 4 || named == file_kind::time_mark || named == file_kind::signals)
        return named;
    constexpr std::pair<std::uint32_t, file_kind> signatures[] = {
        {signature::atom, file_kind::atom},           {signature::base, file_kind::base},
        {signature::old_base, file_kind::base},       {signature::list, file_kind::list},
        {signature::index, file_kind::index},         {signature::columns, file_kind::columns},
        {signature::statistic, file_kind::statistic}, {signature::settings, file_kind::settings},
        {signature::watch, file_kind::watch},         {signature::verdict, file_kind::verdict}};
    const std::uint32_t word = load_u32(start.data());
    for (const auto& [value, kind] : signatures)
        if (word == value)
            return kind;
    if (start.size() >= 8 && load_u32(start.data() + 4) == signature::message)
        return file_kind::cache;
    if (std::string_view(reinterpret_cast<const char*>(start.data()), start.size()) == stage_marker_text)
        return file_kind::stage_mark;
    if (named == file_kind::unknown && start[0] == 3 && start[1] == 0 &&
        (start[2] == 1 || start[2] == 3 || start[2] == 4))
        return file_kind::archive;
    return named;
}

std::string defect_count::rest() const {
    return m_all <= most ? std::string() : "and " + grouped(m_all - most) + " more defects";
}

bool is_file(const std::string& path) {
    const auto attributes = platform::get_attributes(path);
    return attributes && (*attributes & platform::attribute::directory) == 0;
}

bool is_folder(const std::string& path) {
    const auto attributes = platform::get_attributes(path);
    return attributes && (*attributes & platform::attribute::directory) != 0;
}

std::vector<std::string> file_names(const std::string& folder, const char* pattern) {
    std::vector<std::string> names;
    platform::directory_search search;
    platform::directory_entry entry;
    for (bool more = search.first(folder + pattern, entry); more; more = search.next(entry))
        if ((entry.attributes & platform::attribute::directory) == 0)
            names.push_back(entry.name);
    return names;
}

std::string visible(std::string_view text) {
    std::string out;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte < 0x7F)
            out += c;
        else
            out += "\\x" + to_hex(byte, 2);
    }
    return out;
}

std::string visible_start(std::string_view text) {
    constexpr std::size_t most = 24;
    return visible(text.substr(0, most)) + (text.size() > most ? "..." : "");
}

std::string shown(const std::string& path) {
    return visible(platform::display_path(path));
}

std::string failure(const std::string& path, const char* what) {
    return shown(path) + ": " + what + " (error " + std::to_string(platform::last_error()) + ")";
}

} // namespace tvr
