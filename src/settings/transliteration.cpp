#include "settings/transliteration.h"

#include <algorithm>
#include <numeric>
#include <optional>

#include "common/file_stream.h"
#include "common/path.h"
#include "common/text.h"
#include "platform/registry.h"
#include "settings/settings.h"

namespace tvr {

namespace {

constexpr unsigned char blank = 32;
constexpr unsigned char ascii_end = 128;
constexpr std::size_t partial_size = ascii_end - blank; // entries

} // namespace

std::string& partial_transliteration(std::string& text) {
    const settings* set = current_settings();
    return set ? partial_transliteration(text, *set) : text;
}

std::string& partial_transliteration(std::string& text, const settings& set) {
    if (!set.use_partically_translitting || set.spam_transliteration_table.size() < partial_size ||
        text.find_first_of(set.local_user_alphabet) == std::string::npos)
        return text;
    for (char& each : text) {
        const auto code = static_cast<unsigned char>(each);
        if (code > blank && code < ascii_end)
            each = set.spam_transliteration_table[code - std::size_t{blank}];
    }
    return text;
}

xlt_table::xlt_table() : m_bytes() {
    std::iota(m_bytes.begin(), m_bytes.end(), std::uint8_t{0});
}

bool xlt_table::load(std::string_view name) {
    if (name.empty()) {
        m_name.clear();
        m_loaded = false;
        return true;
    }
    if (!m_name.empty() && m_name != name)
        return m_loaded;
    m_loaded = false;
    const std::string wanted(trim(name));
    const settings* set = current_settings();
    if (set && set->use_translit_tables_from_registry && load_registry(wanted))
        m_name = wanted;
    if (!m_loaded && load_file(wanted))
        m_name = wanted;
    return m_loaded;
}

bool xlt_table::load_registry(const std::string& name) {
    platform::registry_key key;
    // deliberate: nothing stands between the key of the paths and "XLT".
    if (!key.open(platform::registry_root::current_user, std::string(paths_key) + "XLT\\" + name))
        return false;
    const auto value = key.query("Table");
    if (!value || value->data.size() > m_bytes.size())
        return false;
    take(value->data);
    return true;
}

bool xlt_table::load_file(const std::string& name) {
    const std::string place = "xlt\\" + name + ".bin";
    std::string path = join_path(root_folder(), place);
    if (!file_exists(path))
        path = join_path(current_settings() ? current_settings()->working_directory.expanded : "", place);
    file_stream file;
    std::string bytes(m_bytes.size(), '\0');
    std::size_t got = 0;
    if (!file.open_to_read(path) || !file.read(bytes.data(), bytes.size(), got))
        return false;
    bytes.resize(got);
    take(bytes);
    return m_loaded;
}

void xlt_table::take(std::string_view bytes) {
    std::copy(bytes.begin(), bytes.end(), m_bytes.begin());
    m_loaded = !bytes.empty();
}

void xlt_table::translate(std::string& text) const {
    if (!m_loaded)
        return;
    for (char& each : text) {
        const auto code = static_cast<unsigned char>(each);
        if (code >= blank)
            each = static_cast<char>(m_bytes.at(code));
    }
}

} // namespace tvr
