#include "settings/settings_file.h"

#include "common/file_names.h"
#include "common/logger.h"
#include "common/path.h"
#include "platform/file.h"
#include "platform/process.h"
#include "settings/common_settings.h"

namespace tvr {

namespace {

constexpr std::uint32_t milliseconds = 1000; // in a second

// Texts of a localised edition.
constexpr std::uint32_t localised_mark = 292;
constexpr std::uint32_t localised_alphabet = 293;
constexpr std::uint32_t localised_table = 294;
constexpr std::uint32_t folder_message = 498;

void take_localised_edition(settings& set) {
    if (!set.local_user_alphabet.empty() || platform::resource_string(localised_mark) != "localized")
        return;
    set.local_user_alphabet = platform::resource_string(localised_alphabet);
    set.spam_transliteration_table = platform::resource_string(localised_table);
    set.use_partically_translitting = 1;
}

} // namespace

bool _kwilsfile::is_attached() const {
    if (!m_settings)
        TVR_LOG(default_log, "[-] _kwilsfile: Unable to locate file for data without attached datastorage");
    return m_settings != nullptr;
}

const std::string* _kwilsfile::settingsfile() {
    if (!is_attached())
        return nullptr;
    if (m_settingsfile.empty())
        m_settingsfile = join_path(m_settings->working_directory.raw, names::settings);
    return &m_settingsfile;
}

const std::string* _kwilsfile::advancedfile() {
    if (!is_attached())
        return nullptr;
    if (m_advancedfile.empty()) {
        const std::string root = root_folder();
        if (root.empty())
            return nullptr;
        m_advancedfile = join_path(root, names::advanced_settings);
    }
    return &m_advancedfile;
}

void _kwilsfile::find_working_directory() {
    if (!m_settings)
        return;
    m_settings->declare_base();
    std::string folder = common_settings::getsettingsfolder();
    if (!folder.empty()) {
        add_backslash(folder);
        m_settings->working_directory.raw = folder;
        TVR_LOG(default_log, "[i] workdir is %s", folder.c_str());
    }
    m_settings->expand_all();
}

bool _kwilsfile::load() {
    if (!m_settings || m_settings->load(settingsfile(), nullptr, store_binary | store_text) != 0)
        return false;
    add_backslash(m_settings->working_directory.raw);
    add_backslash(m_settings->working_directory.expanded);
    __createdirstructure();
    m_settings->schema(schema_mode::advanced_defaults);
    if (m_settings->load(nullptr, advancedfile(), store_binary | store_text) != 0)
        return false;
    magic = magic_valid;
    return true;
}

void _kwilsfile::prepare() {
    if (!m_settings)
        return;
    settings& set = *m_settings;
    find_working_directory();
    set.schema(schema_mode::declare);
    set.schema(schema_mode::basic_defaults);
    set.filter_log.raw = set.working_directory.raw + names::filter_log;
    set.list_of_ignoring_kludges.raw = set.working_directory.raw + names::kludges;
    set.expand_all();

    const std::string working = set.working_directory.expanded;
    const std::string root = root_folder();
    const std::string own_kludges = join_path(working, names::kludges);
    const std::string root_kludges = join_path(root, names::kludges);
    const std::string root_advanced = join_path(root, names::advanced_settings);
    set.use_white_list_of_kludges = 1;
    if (!read_seed(join_path(working, names::settings_seed)))
        read_seed(join_path(root, names::settings_seed));
    __createdirstructure();
    if (platform::copy_file(root_kludges, own_kludges, true))
        set.use_white_list_of_kludges = 1;
    const std::string* advanced = advancedfile();
    // deliberate: both names are those of one file, so that this changes nothing.
    if (advanced && !file_exists(*advanced))
        platform::copy_file(root_advanced, *advanced, true);
    set.load(nullptr, advanced, store_binary | store_text);
    take_localised_edition(set);
}

std::uint32_t _kwilsfile::save() {
    if (!m_settings || (magic != magic_valid && magic != magic_accepted))
        return 0;
    add_backslash(m_settings->working_directory.raw);
    add_backslash(m_settings->working_directory.expanded);
    return m_settings->save(settingsfile(), advancedfile(), store_binary | store_text);
}

bool _kwilsfile::read_seed(std::string_view file) {
    return m_settings && m_settings->read_text(file);
}

bool _kwilsfile::advanced_load(std::string_view file) {
    const std::string name(file);
    if (!m_settings)
        return false;
    const bool done = m_settings->load(nullptr, &name, store_text) == 0;
    m_settings->training_delay *= milliseconds;
    return done;
}

bool _kwilsfile::advanced_save(std::string_view file) {
    const std::string name(file);
    if (!m_settings)
        return false;
    m_settings->training_delay /= milliseconds;
    const bool done = m_settings->save(nullptr, &name, store_text) == 0;
    m_settings->training_delay *= milliseconds;
    return done;
}

std::size_t _kwilsfile::size() const {
    return m_settings ? m_settings->flat_size() + 4 : 0;
}

bool _kwilsfile::__createdirstructure() {
    if (!m_settings)
        return false;
    path_setting& working = m_settings->working_directory;
    working.expanded = platform::expand_environment(working.raw);
    for (const char* folder : {"", names::base_folder, names::transact_path})
        if (check_directory(join_path(working.expanded, folder)) != folder_state::usable) {
            std::string text = platform::resource_string(folder_message);
            if (const std::size_t place = text.find("%s"); place != std::string::npos)
                text.replace(place, 2, working.expanded);
            TVR_LOG(default_log, "[-] _kwilsfile: fail __createdirstructure (%s)", text.c_str());
            return false;
        }
    return true;
}

} // namespace tvr
