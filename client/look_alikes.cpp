#include "client/look_alikes.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "client/mail/utf8.h"
#include "common/path.h"
#include "common/registry_text.h"
#include "platform/process.h"
#include "settings/settings.h"
#include "settings/transliteration.h"

namespace tvr {

namespace {

constexpr unsigned char blank = 32;
constexpr unsigned char ascii_end = 128;
constexpr std::size_t entry_count = ascii_end - blank;

std::vector<std::string> characters(std::string_view text) {
    std::vector<std::string> all;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t start = at;
        (void)next_code_point(text, at);
        all.emplace_back(text.substr(start, at - start));
    }
    return all;
}

// The text settings of the user, or else of the root, as the engine takes them at its start.
void read_seed(settings& set) {
    set.schema(schema_mode::declare);
    set.schema(schema_mode::basic_defaults);
    registry_text key;
    std::optional<std::string> folder;
    if (key.open(platform::registry_root::current_user, paths_key))
        folder = key.read("tvram settings");
    if (!folder || !set.read_text(join_path(platform::expand_environment(*folder), "tvram.ini")))
        set.read_text(join_path(root_folder(), "tvram.ini"));
}

} // namespace

look_alikes::look_alikes(std::shared_ptr<const settings> set) : m_set(std::move(set)) {
    const std::string& table = m_set->spam_transliteration_table;
    if (!is_utf8(table) || !is_utf8(m_set->local_user_alphabet))
        return;
    m_alphabet = characters(m_set->local_user_alphabet);
    m_entries = characters(table);
    if (m_entries.size() < entry_count)
        m_entries.clear();
}

std::shared_ptr<const look_alikes> look_alikes::of_user() {
    static const std::shared_ptr<const look_alikes> users = []() -> std::shared_ptr<const look_alikes> {
        auto set = std::make_shared<settings>();
        read_seed(*set);
        return set->use_partically_translitting ? std::make_shared<const look_alikes>(std::move(set))
                                                : nullptr;
    }();
    return users;
}

bool look_alikes::has_letter(std::string_view word) const {
    return std::ranges::any_of(
        m_alphabet, [&](const std::string& letter) { return word.find(letter) != std::string_view::npos; });
}

std::string_view look_alikes::plain(std::string_view word, std::string& room) const {
    if (m_entries.empty()) {
        room = word;
        return partial_transliteration(room, *m_set);
    }
    if (!has_letter(word))
        return word;
    room.clear();
    for (const char each : word) {
        const auto code = static_cast<unsigned char>(each);
        if (code > blank && code < ascii_end)
            room += m_entries[code - std::size_t{blank}];
        else
            room += each;
    }
    return room;
}

} // namespace tvr
