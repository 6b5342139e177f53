#include "tools/settings/setting_list.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <limits>

#include "client/training_schedule.h"
#include "client/user_folder.h"
#include "client/verdict/user_limits.h"
#include "common/file_names.h"
#include "common/file_stream.h"
#include "common/files.h"
#include "common/path.h"
#include "common/text.h"
#include "platform/error.h"
#include "platform/file.h"
#include "platform/process.h"
#include "platform/registry.h"
#include "settings/common_settings.h"

namespace tvr {

namespace {

constexpr double any = 4294967295.0;
constexpr double messages = 1000000;                           // a bound of sense for sizes in messages
constexpr std::uint64_t largest_file = std::uint64_t{1} << 20; // bytes; the engine reads no larger one
constexpr std::size_t table_size = 96;                         // characters of a transliteration table
constexpr std::string_view table_key = "spam transliteration table";
constexpr std::string_view folder_key = "working directory";
constexpr const char* no_root =
    "no installation root is registered; that is the folder whose advanced.ini the "
    "engine reads, and \"tvrctl config root FOLDER\" registers one";
constexpr auto by_engine = setting_reader::engine;
constexpr auto by_client = setting_reader::client;

constexpr std::array<setting_facts, 35> field_facts = {{
    {folder_key.data(), by_engine, 0, 0, "where all data of the user lies"},
    {"filter log", by_client, 0, 0, "the mail filter's log"},
    {"list of ignoring kludges", by_client, 0, 0, "the list of header names to pass over"},
    {table_key.data(), by_engine, 0, 0, "the letters that stand for the characters from 33 on"},
    {"local user alphabet", by_engine, 0, 0, "the letters that make a text be transliterated"},
    {"show splash screen", by_client, 0, 0, "a picture at the client's start"},
    {"log current process", by_client, 0, 0, "log the steps of the filter"},
    {"log global state", by_client, 0, 0, "log the state of the filter"},
    {"log grades", by_client, 0, 0, "log the grades of messages"},
    {"filter is logged", by_client, 0, 0, "whether the filter logs at all"},
    {"use white list of kludges", by_client, 0, 0, "use the list of header names"},
    {"use partically translitting", by_engine, 0, 0, "transliterate texts with letters of the alphabet"},
    {"use enhanced grade", by_client, 0, 0, "the finer grade of messages"},
    {"sighificant tokens", by_client, 0, any, "how many tokens decide on a message"},
    {"export selective download", by_engine, 0, 0, "write the list of tokens that only spam has"},
    {"selective download spam threshold", by_engine, 0, any, "the least count of a token in that list"},
    {"limit size to hash", by_client, 0, any, "longer tokens are hashed (bytes)"},
    {"limit size to hash header", by_client, 0, any, "the same for words of headers (bytes)"},
    {"simple digits spam marks", by_client, 0, 0, "digits count as marks"},
    {"no spaces spam marks", by_client, 0, 0, "missing blanks count as marks"},
    {"number of exclamations", by_client, 0, any, "exclamation marks that count as a mark"},
    {"training delay", by_engine, 1, 4294967, "seconds of rest before waiting messages are trained"},
    {"learn from zero", by_client, 0, 0, "learn without any training yet"},
    {"use autotrain", by_client, 0, 0, "train on what was filtered"},
    {"use average instead of bayesian", by_client, 0, 0, "the average of grades decides"},
    {"use degeneration", by_client, 0, 0, "look for other forms of unknown tokens"},
    {"use translit tables from registry", by_client, 0, 0, "look for tables in the registry first"},
    {"recalculating strategy", by_engine, 0, 2147483647, "train when more messages than this wait"},
    {"regarding threshold", by_engine, 0.01, 1000, "how much heavier a token of good mail weighs"},
    {"idle time to shut down server", by_client, 0, any, "minutes"},
    {"behaviour when no train info", by_client, 0, any, "what to do before any training"},
    {"optimal base size per half", by_engine, 1, messages, "messages that are remembered of each kind"},
    {"optimal one dict size", by_engine, 1, messages, "messages in one atom"},
    {"min optimal one dict size", by_engine, 1, messages, "messages in one atom of a small base"},
    {"MaxSinglePathLevel", by_client, 0, 0, "the mail filter's"},
}};

constexpr std::array<setting_facts, 5> common_facts = {{
    {"spam threshold", setting_reader::score, 0, 100, "a message of this score or more is spam"},
    {"unsure threshold", setting_reader::score, 0, 100, "of this score or more: unsure"},
    {"enable outlook", by_client, 0, 1, "filter in this mail program"},
    {"enable express", by_client, 0, 1, "filter in this mail program"},
    {"enable thebat", by_client, 0, 1, "filter in this mail program"},
}};

constexpr std::array<setting_facts, training_schedule::values> schedule_facts = {{
    {"train at messages", by_client, 1, messages,
     "those who hand mail over have it trained when so many wait"},
    {"train after hours", by_client, 0, 8760, "they do the same so long after the last training"},
    {"train corrections", by_client, 0, 1, "a verdict that is corrected is trained at once"},
}};
constexpr setting_facts verdict_facts = {false_positives::key, by_client, 0, false_positives::all,
                                         "so much good mail, of 100,000 messages, may be called spam; the "
                                         "score that makes a message spam is found by it"};

const setting_facts* facts_of(std::string_view key) {
    const auto* const found = std::find_if(field_facts.begin(), field_facts.end(),
                                           [&](const setting_facts& facts) { return key == facts.key; });
    return found == field_facts.end() ? nullptr : found;
}

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

// The content of a settings file. Nothing, with the reason, if it is there and can't be used.
std::optional<std::string> read_file(const std::string& path, std::string& why) {
    const std::string shown = platform::display_path(path);
    file_stream file;
    if (!file.open_to_read(path)) {
        const std::uint32_t code = platform::last_error();
        if (code == platform::error::file_not_found || code == platform::error::path_not_found)
            return std::string();
        why = shown + ": can't be read (error " + std::to_string(code) + ")";
        return std::nullopt;
    }
    const std::uint64_t size = file.size().value_or(0);
    if (size > largest_file) {
        why = shown + ": larger than 1 MiB; the engine doesn't read it";
        return std::nullopt;
    }
    std::string text(static_cast<std::size_t>(size), '\0');
    std::size_t got = 0;
    if (!file.read(text.data(), text.size(), got)) {
        why = shown + ": can't be read";
        return std::nullopt;
    }
    text.resize(got);
    return text;
}

// Writes a temporary file beside the file, and puts it in its place.
std::string rewrite_file(const std::string& path, const std::string& text) {
    namespace fs = std::filesystem;
    const std::string shown = platform::display_path(path);
    const auto refuse = [&] {
        return shown + ": " + reason_text(platform::last_error()) +
               "; without the right to write there, a root of your own can be registered: "
               "\"tvrctl config root FOLDER\"";
    };
    const auto beside = platform::make_temp_file(folder_part(path), "set");
    if (!beside)
        return refuse();
    const fs::path target(shown);
    const fs::path made(platform::display_path(*beside));
    std::error_code error;
    platform::file file;
    const bool written = file.open(*beside, platform::access::write, platform::share::none,
                                   platform::creation::create_always) &&
                         file.write(text.data(), text.size());
    if (!written) {
        const std::string why = refuse();
        file.close();
        platform::delete_file(*beside);
        return why;
    }
    file.close();
    if (const auto old = fs::status(target, error); !error && fs::exists(old))
        fs::permissions(made, old.permissions(), error);
    if (replace_durably(*beside, std::string(path)))
        return {};
    const std::string why = refuse();
    platform::delete_file(*beside);
    return why;
}

// The line with a new value; what stands behind the old one stays if the line still means the value.
std::optional<std::string> changed_line(std::string_view line, std::string_view key, std::string_view value) {
    const std::string start = std::string(line.substr(0, line.find('='))) + "=";
    std::string_view rest = line.substr(start.size());
    const std::size_t begin = std::min(rest.find_first_not_of(" \t"), rest.size());
    const std::string blanks(rest.substr(0, begin));
    rest.remove_prefix(begin);
    std::string_view comment;
    if (rest.starts_with('"')) {
        const std::size_t end = rest.find('"', 1);
        comment = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
    } else if (const std::size_t end = rest.find(';'); end != std::string_view::npos) {
        const std::size_t last = rest.substr(0, end).find_last_not_of(" \t");
        comment = rest.substr(last == std::string_view::npos ? 0 : last + 1);
    }
    for (const std::string_view behind : {comment, std::string_view()}) {
        std::string made = start + blanks + "\"" + std::string(value) + "\"" + std::string(behind);
        const auto parsed = parse_setting_line(made);
        if (parsed && equals_ignoring_case(parsed->name, key) && parsed->value == value)
            return made;
    }
    return std::nullopt;
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
    std::string why;
    const auto checked = checked_value(setting, value, why);
    if (!checked)
        return name + " " + why;
    if (setting.group == setting_group::schedule) {
        const auto index = static_cast<schedule_value>(setting.facts - schedule_facts.data());
        const auto number = static_cast<std::uint32_t>(number_of(*checked, false).value_or(0));
        return training_schedule::set(m_working, index, number) ? std::string()
                                                                : setting.file + ": can't be written";
    }
    if (setting.group == setting_group::verdict) {
        const auto allowed = static_cast<std::uint32_t>(number_of(*checked, false).value_or(0));
        return false_positives::set(m_working, allowed) ? std::string() : setting.file + ": can't be written";
    }
    if (setting.group == setting_group::common) {
        const auto index = static_cast<common_value>(setting.facts - common_facts.data());
        const auto number = static_cast<std::uint32_t>(number_of(*checked, false).value_or(0));
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
    const auto text = read_file(source, why);
    if (!text)
        return why;
    const auto changed = with_setting(*text, setting.facts->key, *checked);
    if (!changed)
        return name + " can't have this value: a settings file holds no line ends and quotes, and no blanks "
                      "in front";
    if (changed->size() > largest_file)
        return platform::display_path(path) + ": would become larger than 1 MiB";
    return rewrite_file(path, *changed);
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

std::optional<std::string> checked_value(const setting_view& setting, std::string_view value,
                                         std::string& why) {
    if (setting.type == field_type::flag) {
        for (const std::string_view yes : {"1", "on", "yes", "true"})
            if (value == yes)
                return "1";
        for (const std::string_view no : {"0", "off", "no", "false"})
            if (value == no)
                return "0";
    } else if (is_quantity(setting.type)) {
        const auto number = number_of(value, setting.type == field_type::real);
        if (number && *number >= setting.facts->least && *number <= setting.facts->most)
            return std::string(value);
    } else if (setting.facts->key != table_key || value.empty() || value.size() == table_size) {
        return std::string(value);
    }
    const bool whole = is_quantity(setting.type) && setting.type != field_type::real;
    why = "takes " + limits_text(setting) + (whole ? " in whole numbers" : "") + ", not \"" +
          std::string(value) + "\"";
    return std::nullopt;
}

std::optional<std::string> with_setting(std::string_view text, std::string_view key, std::string_view value) {
    if (value.find_first_of(std::string_view("\r\n\0", 3)) != std::string_view::npos)
        return std::nullopt;
    const std::size_t first_end = text.find('\n');
    const bool dos = first_end != std::string_view::npos && first_end != 0 && text[first_end - 1] == '\r';
    std::size_t found = std::string_view::npos;
    std::size_t found_size = 0;
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = std::min(text.find('\n', start), text.size());
        std::string_view line = text.substr(start, end - start);
        if (line.ends_with('\r'))
            line.remove_suffix(1);
        const auto parsed = parse_setting_line(line);
        if (parsed && equals_ignoring_case(parsed->name, key)) {
            found = start;
            found_size = line.size();
        }
        start = end + 1;
    }
    if (found != std::string_view::npos) {
        const auto line = changed_line(text.substr(found, found_size), key, value);
        return line ? std::optional(std::string(text).replace(found, found_size, *line)) : std::nullopt;
    }
    const auto line = changed_line(std::string(key) + "=", key, value);
    if (!line)
        return std::nullopt;
    const char* const line_end = dos ? "\r\n" : "\n";
    std::string result(text);
    if (!result.empty() && result.back() != '\n')
        result += line_end;
    return result.append(*line).append(line_end);
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
