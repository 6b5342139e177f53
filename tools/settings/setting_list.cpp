#include "tools/settings/setting_list.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "client/training_schedule.h"
#include "client/user_folder.h"
#include "client/verdict/user_limits.h"
#include "common/file_names.h"
#include "common/files.h"
#include "common/path.h"
#include "common/text.h"
#include "platform/error.h"
#include "platform/file.h"
#include "platform/registry.h"
#include "settings/common_settings.h"
#include "tools/settings/setting_file.h"

namespace tvr {

namespace {

constexpr std::size_t table_size = 96; // characters of a transliteration table
constexpr const char* no_root =
    "no installation root is registered; that is the folder whose advanced.ini the "
    "engine reads, and \"tvrctl config root FOLDER\" registers one";

// Brings the settings up in the order of the engine's start, without making anything.
void take_defaults(settings& set, const std::string& raw_working) {
    set.schema(schema_mode::declare);
    set.schema(schema_mode::basic_defaults);
    set.working_directory.raw = raw_working;
    set.filter_log.raw = raw_working + names::filter_log;
    set.list_of_ignoring_kludges.raw = raw_working + names::kludges;
    set.use_white_list_of_kludges = 1;
    set.schema(schema_mode::advanced_defaults);
}

bool is_quantity(field_type type) {
    return type == field_type::integer || type == field_type::number || type == field_type::real;
}

std::optional<double> number_of(std::string_view text, bool real) {
    double value = 0;
    const char* const end = text.data() + text.size();
    if (real) {
        const auto got = std::from_chars(text.data(), end, value);
        return got.ec == std::errc() && got.ptr == end && std::isfinite(value) ? std::optional(value)
                                                                               : std::nullopt;
    }
    std::uint32_t whole = 0;
    const auto got = std::from_chars(text.data(), end, whole);
    return got.ec == std::errc() && got.ptr == end ? std::optional<double>(whole) : std::nullopt;
}

} // namespace

setting_list::setting_list() {
    m_working = find_user_folder().path;
    m_root = root_folder();
    add_fields(common_settings::known_settingsfolder());
    add_schedule();
    add_common();
    add_verdict();
}

void setting_list::add_fields(const std::string& raw_working) {
    settings plain;
    settings present;
    take_defaults(plain, raw_working);
    take_defaults(present, raw_working);
    for (const std::string& folder : {m_working, m_root})
        if (const std::string seed = join_path(folder, names::settings_seed);
            m_seed.empty() && !folder.empty() && present.read_text(seed))
            m_seed = seed;
    // The list of header names comes to a user with the first start, and is then used in any case.
    if (!m_root.empty() && file_exists(m_root + names::kludges) && !file_exists(m_working + names::kludges))
        present.use_white_list_of_kludges = 1;
    const std::string advanced = m_root.empty() ? "" : m_root + names::advanced_settings;
    if (!advanced.empty())
        present.read_text(advanced, 1);

    for (std::size_t i = 0; i < present.fields().size(); ++i) {
        const field_descriptor& field = present.fields()[i];
        setting_view view;
        view.facts = facts_of(field.key);
        if (!view.facts)
            continue;
        view.group = field.group == 0 ? setting_group::basic : setting_group::advanced;
        view.type = field.type;
        view.value = settings::value_text(field);
        view.fallback = settings::value_text(plain.fields()[i]);
        view.file = view.group == setting_group::advanced ? advanced : m_working + names::settings_seed;
        if (to_lower(field.key) != field.key)
            view.obstacle = "no text file can set it: names in such files have no capitals";
        else if (field.key == folder_key)
            view.obstacle =
                "a line in a file would part the engine from its clients; the registry value \"tvram "
                "settings\" tells all of them where the data lies";
        else if (view.group == setting_group::advanced && m_root.empty())
            view.obstacle = no_root;
        else if (m_working.empty() && view.group == setting_group::basic)
            view.obstacle = find_user_folder().error;
        view.file = view.obstacle.empty() ? platform::display_path(view.file) : std::string();
        m_all.push_back(std::move(view));
    }
}

void setting_list::add_schedule() {
    const training_schedule present(m_working);
    for (std::size_t i = 0; i < schedule_facts.size(); ++i) {
        const auto index = static_cast<schedule_value>(i);
        setting_view view;
        view.facts = &schedule_facts.at(i);
        view.group = setting_group::schedule;
        view.type = view.facts->most == 1 ? field_type::flag : field_type::number;
        view.value = std::to_string(present.get(index));
        view.fallback = std::to_string(training_schedule::default_value(index));
        if (m_working.empty())
            view.obstacle = "the user's folder can't be found or made";
        else
            view.file = platform::display_path(training_schedule::path(m_working));
        m_all.push_back(std::move(view));
    }
}

void setting_list::add_common() {
    const auto folder = common_settings::common_folder();
    for (std::size_t i = 0; i < common_facts.size(); ++i) {
        setting_view view;
        view.facts = &common_facts.at(i);
        view.group = setting_group::common;
        view.type = view.facts->most == 1 ? field_type::flag : field_type::number;
        view.value = std::to_string(common_settings::get_value(static_cast<common_value>(i)));
        view.fallback = std::to_string(common_settings::default_value(static_cast<common_value>(i)));
        if (folder)
            view.file = platform::display_path(*folder + names::common_settings);
        else
            view.obstacle = "there is no folder for the settings of all users";
        m_all.push_back(std::move(view));
    }
}

void setting_list::add_verdict() {
    setting_view view;
    view.facts = &verdict_facts;
    view.group = setting_group::verdict;
    view.type = field_type::number;
    view.value = std::to_string(false_positives::get(m_working));
    view.fallback = std::to_string(false_positives::usual);
    if (m_working.empty())
        view.obstacle = "the user's folder can't be found or made";
    else
        view.file = platform::display_path(false_positives::path(m_working));
    m_all.push_back(std::move(view));
}

const setting_view* setting_list::find(std::string_view key) const {
    for (const setting_view& view : m_all)
        if (equals_ignoring_case(key, view.facts->key))
            return &view;
    return nullptr;
}

std::string setting_list::set(const setting_view& setting, std::string_view value) const {
    const std::string name = "\"" + std::string(setting.facts->key) + "\"";
    if (!setting.obstacle.empty())
        return name + " can't be set: " + setting.obstacle;
    std::string checked;
    if (const std::string why = check_value(setting, value, checked); !why.empty())
        return name + " " + why;
    if (setting.group == setting_group::schedule) {
        const auto index = static_cast<schedule_value>(setting.facts - schedule_facts.data());
        const auto number = static_cast<std::uint32_t>(number_of(checked, false).value_or(0));
        return training_schedule::set(m_working, index, number) ? std::string()
                                                                : setting.file + ": can't be written";
    }
    if (setting.group == setting_group::verdict) {
        const auto allowed = static_cast<std::uint32_t>(number_of(checked, false).value_or(0));
        return false_positives::set(m_working, allowed) ? std::string() : setting.file + ": can't be written";
    }
    if (setting.group == setting_group::common) {
        const auto index = static_cast<common_value>(setting.facts - common_facts.data());
        const auto number = static_cast<std::uint32_t>(number_of(checked, false).value_or(0));
        const auto spam =
            static_cast<std::uint32_t>(common_settings::get_value(common_value::spam_threshold));
        const auto unsure =
            static_cast<std::uint32_t>(common_settings::get_value(common_value::unsure_threshold));
        if ((index == common_value::spam_threshold && number < unsure) ||
            (index == common_value::unsure_threshold && number > spam))
            return "\"spam threshold\" must not be below \"unsure threshold\"; set the other one first";
        return common_settings::set_value(number, index)
                   ? std::string()
                   : setting.file + ": " + reason_text(platform::last_error()) +
                         "; it holds for all users of this machine, and its administrator sets it";
    }
    const bool basic = setting.group == setting_group::basic;
    if (const user_folder folder = basic ? make_user_folder() : user_folder(); !folder.error.empty())
        return folder.error;
    const std::string path = basic ? m_working + names::settings_seed : m_root + names::advanced_settings;
    // A new file in the working directory hides the one in the root, and so begins with its lines.
    const std::string source = basic && !m_seed.empty() && !file_exists(path) ? m_seed : path;
    std::string text;
    if (std::string why = read_setting_file(source, text); !why.empty())
        return why;
    const auto changed = with_setting(text, setting.facts->key, checked);
    if (!changed)
        return name + " can't have this value: a settings file holds no line ends and quotes, and no blanks "
                      "in front";
    if (changed->size() > largest_setting_file)
        return platform::display_path(path) + ": would become larger than 1 MiB";
    return write_setting_file(path, *changed);
}

std::string limits_text(const setting_view& setting) {
    const auto plain = [](double number) {
        char text[32];
        const auto end = std::to_chars(text, text + sizeof text, number, std::chars_format::general, 12);
        return std::string(text, end.ptr);
    };
    if (setting.type == field_type::flag)
        return "0 or 1";
    if (is_quantity(setting.type) && setting.facts->most == 0)
        return "a number";
    if (is_quantity(setting.type))
        return plain(setting.facts->least) + " to " + plain(setting.facts->most);
    if (setting.type == field_type::path)
        return "a path";
    return setting.facts->key == table_key ? "96 characters, or empty" : "a text";
}

std::string check_value(const setting_view& setting, std::string_view value, std::string& checked) {
    checked.clear();
    if (setting.type == field_type::flag) {
        for (const std::string_view yes : {"1", "on", "yes", "true"})
            if (value == yes)
                checked = "1";
        for (const std::string_view no : {"0", "off", "no", "false"})
            if (value == no)
                checked = "0";
        if (!checked.empty())
            return {};
    } else if (is_quantity(setting.type)) {
        const auto number = number_of(value, setting.type == field_type::real);
        checked = value;
        if (number && *number >= setting.facts->least && *number <= setting.facts->most)
            return {};
    } else if (setting.facts->key != table_key || value.empty() || value.size() == table_size) {
        checked = value;
        return {};
    }
    const bool whole = is_quantity(setting.type) && setting.type != field_type::real;
    return "takes " + limits_text(setting) + (whole ? " in whole numbers" : "") + ", not \"" +
           std::string(value) + "\"";
}

std::string register_root(std::string_view folder) {
    make_folders(folder);
    const auto attributes = platform::get_attributes(folder);
    const std::string shown = platform::display_path(folder);
    if (!attributes || !(*attributes & platform::attribute::directory))
        return shown + ": no folder, and none can be made";
    platform::registry_key key;
    if (!key.create(platform::registry_root::local_machine, paths_key) ||
        !key.set("TessivarRoot", platform::registry_type::string, folder))
        return "the root can't be registered: " + reason_text(platform::last_error());
    std::string wanted(folder);
    add_backslash(wanted);
    return root_folder() == wanted ? std::string() : shown + ": the path is too long for a root";
}

} // namespace tvr
