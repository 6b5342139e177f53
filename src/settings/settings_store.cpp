// The two binary stores of the settings: the file settings.cfg and the flat form.

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "common/bytes.h"
#include "settings/binary_form.h"
#include "settings/settings.h"
#include "settings/storage.h"

namespace tvr {

namespace {

constexpr std::uint32_t basic = 0;
constexpr const char* section_name = "tessivar basic settings";
constexpr std::size_t type_size = sizeof(std::uint32_t);

using owned_handle = std::unique_ptr<storage_handle>;

std::span<const std::uint8_t> bytes_of(const std::string& text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

void append_u32(std::string& bytes, std::uint32_t value) {
    char raw[sizeof value];
    store_u32(raw, value);
    bytes.append(raw, sizeof raw);
}

// A field's type and value.
void append_typed(const field_descriptor& field, std::string& bytes) {
    append_u32(bytes, static_cast<std::uint32_t>(field.type));
    append_binary(field, bytes);
}

std::size_t flat_entry_size(const field_descriptor& field) {
    const std::string_view key = field.key;
    // deliberate: an empty key counts without its terminator.
    return (key.empty() ? 0 : key.size() + 1) + type_size + binary_size(field);
}

// One entry of the flat form.
struct flat_entry {
    std::string_view key;
    field_type type;
    std::string_view value;
};

// Takes an entry from the front of `rest`; nothing if it is cut short.
std::optional<flat_entry> take_entry(std::string_view& rest) {
    const std::size_t end = rest.find('\0');
    if (end == std::string_view::npos || rest.size() - end - 1 < type_size)
        return std::nullopt;
    flat_entry entry{rest.substr(0, end), static_cast<field_type>(load_u32(rest.data() + end + 1)), {}};
    rest.remove_prefix(end + 1 + type_size);
    const auto size = binary_extent(entry.type, rest);
    if (!size)
        return std::nullopt;
    entry.value = rest.substr(0, *size);
    rest.remove_prefix(*size);
    return entry;
}

} // namespace

bool base_settings::load_binary(const std::string& file) {
    storage_file store(file);
    if (!store.open(true))
        return false;
    const owned_handle section(store.find_section(section_name, nullptr));
    if (!section || section->entry->type() != entry_tag::section)
        return false;
    std::vector<std::pair<const field_descriptor*, std::string>> found;
    for (const field_descriptor& field : m_fields) {
        std::size_t size = 0;
        if (field.group != basic ||
            !store.get(field.key, section.get(), nullptr, 0, &size, entry_tag::blob, nullptr))
            continue;
        std::string bytes(size, '\0');
        store.get(field.key, section.get(), bytes.data(), size, nullptr, entry_tag::blob, nullptr);
        // deliberate: the stored type isn't looked at; the field's own one tells how to read.
        if (size < type_size || !binary_extent(field.type, std::string_view(bytes).substr(type_size)))
            return false;
        found.emplace_back(&field, std::move(bytes));
    }
    for (const auto& [field, bytes] : found)
        assign_binary(*field, std::string_view(bytes).substr(type_size));
    return true;
}

bool base_settings::save_binary(const std::string& file) const {
    storage_file store(file);
    const owned_handle section(store.create_section(section_name, nullptr, false));
    if (!section)
        return false;
    for (const field_descriptor& field : m_fields) {
        if (field.group != basic)
            continue;
        std::string bytes;
        append_typed(field, bytes);
        if (!store.set(field.key, section.get(), bytes_of(bytes), entry_tag::blob, false))
            return false;
    }
    return store.write(false);
}

std::vector<const field_descriptor*> base_settings::chosen(std::optional<std::string_view> keys) const {
    std::vector<const field_descriptor*> fields;
    if (!keys) {
        for (const field_descriptor& field : m_fields)
            fields.push_back(&field);
        return fields;
    }
    while (!keys->empty()) {
        const std::string_view key = keys->substr(0, keys->find('\0'));
        if (key.empty())
            break;
        if (const field_descriptor* field = find(key))
            fields.push_back(field);
        keys->remove_prefix(std::min(keys->size(), key.size() + 1));
    }
    return fields;
}

const field_descriptor* base_settings::find(std::string_view key) const {
    for (const field_descriptor& field : m_fields)
        if (key == field.key)
            return &field;
    return nullptr;
}

std::size_t base_settings::flat_size(std::optional<std::string_view> keys) const {
    std::size_t size = sizeof(std::uint32_t);
    for (const field_descriptor* field : chosen(keys))
        size += flat_entry_size(*field);
    return size;
}

std::string base_settings::flat_export(std::optional<std::string_view> keys) const {
    const auto fields = chosen(keys);
    std::string block;
    append_u32(block, static_cast<std::uint32_t>(fields.size()));
    for (const field_descriptor* field : fields) {
        block += field->key;
        block += '\0';
        append_typed(*field, block);
    }
    return block;
}

bool base_settings::flat_import(std::string_view block) {
    // Once to see that it is whole, once to take it.
    for (const bool takes : {false, true}) {
        std::string_view rest = block;
        if (rest.size() < sizeof(std::uint32_t))
            return false;
        std::uint32_t count = load_u32(rest.data());
        rest.remove_prefix(sizeof count);
        for (; count != 0; --count) {
            const auto entry = take_entry(rest);
            if (!entry)
                return false;
            const field_descriptor* field = takes ? find(entry->key) : nullptr;
            if (field && field->type == entry->type)
                assign_binary(*field, entry->value);
        }
    }
    return true;
}

} // namespace tvr
