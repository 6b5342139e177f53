// The settings in their binary form.

#include <cstring>
#include <map>
#include <vector>

#include "common/bytes.h"
#include "settings/storage.h"
#include "tools/formats/walks.h"

namespace tvr {

namespace {

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

} // namespace tvr
