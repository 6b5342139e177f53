// The registry of this backend: a text file for each store, with a line for each key and value.
//
//   [Software\Orvenix\Brackenhold\Paths]
//   tvr_srv.exe=1:5c746d70          (type, a digit, and the data, both in hexadecimal digits)
//
// Names are escaped in the same way as data where they hold "=", "[" or bytes below a blank.

#include "platform/registry.h"
#include "platform/ascii.h"

#include <map>

#include "platform/error.h"
#include "platform/posix/errors.h"
#include "platform/posix/paths.h"
#include "platform/posix/stores/text_store.h"

namespace tvr::platform {

using namespace posix;

namespace {

constexpr std::size_t store_limit = std::size_t{4} << 20; // bytes; a larger file counts as damaged

std::string lower_text(std::string_view text) {
    std::string out(text);
    for (char& c : out)
        c = lower(c);
    return out;
}

constexpr std::string_view alphabet = "0123456789abcdef";

std::string to_digits(std::string_view data) {
    std::string out;
    for (const char c : data) {
        const auto byte = static_cast<unsigned char>(c);
        out += alphabet[byte >> 4];
        out += alphabet[byte & 15];
    }
    return out;
}

int digit(char c) {
    if (is_digit(c))
        return c - '0';
    return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

std::optional<std::string> from_digits(std::string_view digits) {
    std::string out;
    if (digits.size() % 2 != 0)
        return std::nullopt;
    for (std::size_t i = 0; i < digits.size(); i += 2) {
        const int high = digit(digits[i]);
        const int low = digit(digits[i + 1]);
        if (high < 0 || low < 0)
            return std::nullopt;
        out += static_cast<char>(high * 16 + low);
    }
    return out;
}

bool is_plain(std::string_view name) {
    if (name.empty() || name.front() == '[' || name.front() == '%')
        return false;
    for (const char c : name)
        if (static_cast<unsigned char>(c) < ' ' || c == '=')
            return false;
    return true;
}

std::string written_name(std::string_view name) {
    return is_plain(name) ? std::string(name) : "%" + to_digits(name);
}

std::optional<std::string> read_name(std::string_view text) {
    return text.starts_with('%') ? from_digits(text.substr(1)) : std::optional<std::string>(text);
}

struct named_value {
    std::string name;
    registry_value value;
};

struct stored_key {
    std::string path;
    std::map<std::string, named_value> values; // by lowered name
};

using store = std::map<std::string, stored_key>; // by lowered path

std::optional<named_value> parse_value(std::string_view line) {
    const std::size_t equals = line.find('=');
    const std::size_t colon = line.find(':', equals == std::string_view::npos ? 0 : equals);
    if (equals == std::string_view::npos || colon != equals + 2)
        return std::nullopt;
    const auto name = read_name(line.substr(0, equals));
    const auto data = from_digits(line.substr(colon + 1));
    const int type = digit(line[equals + 1]);
    if (!name || !data || type < 0)
        return std::nullopt;
    return named_value{*name, {static_cast<std::uint32_t>(type), *data}};
}

// Lines that make no sense are passed over.
store parse(std::string_view text) {
    store result;
    stored_key* key = nullptr;
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(text.size(), line.size() + 1));
        if (line.starts_with('[') && line.ends_with(']')) {
            const std::string path(line.substr(1, line.size() - 2));
            key = &result[lower_text(path)];
            key->path = path;
        } else if (key) {
            if (auto value = parse_value(line))
                key->values[lower_text(value->name)] = std::move(*value);
        }
    }
    return result;
}

std::string write_out(const store& keys) {
    std::string text;
    for (const auto& [lowered, key] : keys) {
        text += "[" + key.path + "]\n";
        for (const auto& [name, value] : key.values)
            text += written_name(value.name) + "=" + alphabet[value.value.type] + ":" +
                    to_digits(value.value.data) + "\n";
    }
    return text;
}

std::string store_path(registry_root root) {
    return root == registry_root::current_user ? native_user_store() : native_machine_store();
}

store read_store(const std::string& path, writers trusted = writers::any) {
    return path.empty() ? store() : parse(read_text_file(path, store_limit, trusted).value_or(std::string()));
}

// What follows the store, and may hold keys that it doesn't.
store read_behind(registry_root root) {
    return root == registry_root::current_user
               ? store()
               : read_store(native_machine_store_behind(), writers::root_or_user);
}

// A key is there if it has been made, or one below it has. "Software" is always there.
bool has_key(const store& keys, const std::string& lowered) {
    if (lowered == "software" || keys.contains(lowered))
        return true;
    const auto below = keys.lower_bound(lowered + "\\");
    return below != keys.end() && below->first.starts_with(lowered + "\\");
}

const registry_value* find_value(const store& keys, const std::string& key, const std::string& name) {
    const auto found = keys.find(key);
    if (found == keys.end())
        return nullptr;
    const auto value = found->second.values.find(name);
    return value == found->second.values.end() ? nullptr : &value->second.value;
}

} // namespace

bool registry_key::open(registry_root root, std::string_view path, registry_access rights) {
    close();
    const std::string lowered = lower_text(path);
    if (!has_key(read_store(store_path(root)), lowered) && !has_key(read_behind(root), lowered))
        return fail(error::file_not_found);
    m_open = true;
    m_rights = rights;
    m_root = root;
    m_path = path;
    return true;
}

bool registry_key::create(registry_root root, std::string_view path) {
    close();
    const std::string lowered = lower_text(path);
    const bool done = replace_text_file(store_path(root), store_limit, [&](std::string& text) {
        store keys = parse(text);
        if (has_key(keys, lowered))
            return false;
        keys[lowered].path = path;
        text = write_out(keys);
        return true;
    });
    if (!done)
        return false;
    m_open = true;
    m_rights = registry_access::allowed;
    m_root = root;
    m_path = path;
    return true;
}

void registry_key::close() noexcept {
    m_open = false;
}

std::optional<registry_value> registry_key::query(std::string_view name) const {
    if (!m_open) {
        fail(error::invalid_handle);
        return std::nullopt;
    }
    if (m_rights == registry_access::write) {
        fail(error::access_denied);
        return std::nullopt;
    }
    const std::string key = lower_text(m_path);
    const std::string value = lower_text(name);
    const store keys = read_store(store_path(m_root));
    if (const registry_value* found = find_value(keys, key, value))
        return *found;
    const store behind = read_behind(m_root);
    if (const registry_value* found = find_value(behind, key, value))
        return *found;
    fail(error::file_not_found);
    return std::nullopt;
}

bool registry_key::set(std::string_view name, std::uint32_t type, std::string_view data) {
    if (!m_open)
        return fail(error::invalid_handle);
    if (m_rights == registry_access::read)
        return fail(error::access_denied);
    if (type >= alphabet.size())
        return fail(error::invalid_parameter);
    return replace_text_file(store_path(m_root), store_limit, [&](std::string& text) {
        store keys = parse(text);
        stored_key& key = keys[lower_text(m_path)];
        if (key.path.empty())
            key.path = m_path;
        key.values[lower_text(name)] = {std::string(name), {type, std::string(data)}};
        text = write_out(keys);
        return true;
    });
}

bool registry_key::remove(std::string_view name) {
    if (!m_open)
        return fail(error::invalid_handle);
    if (m_rights == registry_access::read)
        return fail(error::access_denied);
    bool found = false;
    const bool done = replace_text_file(store_path(m_root), store_limit, [&](std::string& text) {
        store keys = parse(text);
        const auto key = keys.find(lower_text(m_path));
        found = key != keys.end() && key->second.values.erase(lower_text(name)) != 0;
        text = write_out(keys);
        return found;
    });
    return done && (found || fail(error::file_not_found));
}

} // namespace tvr::platform
