// tvrctl config: shows and changes the settings.

#include <cstdio>
#include <memory>

#include <nlohmann/json.hpp>

#include "common/path.h"
#include "platform/file.h"
#include "platform/process.h"
#include "tools/command.h"
#include "tools/settings/setting_list.h"
#include "tools/state/engine_view.h"

namespace tvr {

namespace {

const char* name_of(setting_reader reader) {
    return reader == setting_reader::engine  ? "engine"
           : reader == setting_reader::score ? "verdict"
                                             : "mail program";
}

const char* title_of(setting_group group) {
    return group == setting_group::basic      ? "Basic settings"
           : group == setting_group::advanced ? "Advanced settings"
           : group == setting_group::schedule ? "When a training is due"
           : group == setting_group::verdict  ? "The verdict"
                                              : "Settings of all users";
}

std::string quoted(const std::string& value) {
    return value.empty() || value.find(' ') != std::string::npos ? "\"" + value + "\"" : value;
}

bool is_ours(const setting_view& setting) {
    return setting.facts->reader != setting_reader::client;
}

void print_group(const setting_list& list, setting_group group, bool all) {
    std::string place =
        "the defaults, since no installation root is registered: the folder whose advanced.ini "
        "the engine reads (tvrctl config root FOLDER)";
    for (const setting_view& setting : list.all())
        if (setting.group == group && !setting.file.empty())
            place = setting.file;
    std::printf("%s: %s\n", title_of(group), place.c_str());
    for (const setting_view& setting : list.all()) {
        if (setting.group != group || (!all && !is_ours(setting)))
            continue;
        std::printf("  %-34s %s\n", setting.facts->key, quoted(setting.value).c_str());
        std::printf("      %s; %s, default %s; read by the %s%s\n", setting.facts->meaning,
                    limits_text(setting).c_str(), quoted(setting.fallback).c_str(),
                    name_of(setting.facts->reader), setting.file.empty() ? "; can't be set now" : "");
    }
}

void print_table(const setting_list& list, bool all) {
    print_group(list, setting_group::common, all);
    std::printf("\n");
    print_group(list, setting_group::advanced, all);
    std::printf("\n");
    print_group(list, setting_group::basic, all);
    if (!all)
        std::printf("\nWhat mail programs keep in the same files is shown with --all.\n");
}

void print_json(const setting_list& list, bool all) {
    auto json = nlohmann::json::array();
    const auto text_or_null = [](const std::string& text) {
        return text.empty() ? nlohmann::json() : nlohmann::json(text);
    };
    for (const setting_view& setting : list.all())
        if (all || is_ours(setting))
            json.push_back({{"key", setting.facts->key},
                            {"value", setting.value},
                            {"default", setting.fallback},
                            {"limits", limits_text(setting)},
                            {"meaning", setting.facts->meaning},
                            {"reader", name_of(setting.facts->reader)},
                            {"file", text_or_null(setting.file)},
                            {"obstacle", text_or_null(setting.obstacle)}});
    std::printf("%s\n", json.dump(2, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
}

int list_settings(bool as_json, bool all) {
    platform::only_look();
    const setting_list list;
    if (as_json)
        print_json(list, all);
    else
        print_table(list, all);
    return exit_code::done;
}

int unknown_key(const std::string& key) {
    fail("there is no setting \"" + key + "\"; \"tvrctl config list --all\" names them all");
    return exit_code::usage;
}

int get(const std::string& key) {
    platform::only_look();
    const setting_list list;
    const setting_view* const setting = list.find(key);
    if (!setting)
        return unknown_key(key);
    std::printf("%s\n", setting->value.c_str());
    return exit_code::done;
}

int set(const std::string& key, const std::string& value) {
    const setting_list list;
    const setting_view* const setting = list.find(key);
    if (!setting)
        return unknown_key(key);
    if (const std::string why = list.set(*setting, value); !why.empty())
        return fail(why);
    const setting_list after;
    std::printf("%s: %s (was %s), in %s\n", setting->facts->key, quoted(after.find(key)->value).c_str(),
                quoted(setting->value).c_str(), setting->file.c_str());
    if (setting->group == setting_group::schedule || setting->group == setting_group::verdict)
        std::printf("It is in force at once.\n");
    else if (setting->group == setting_group::common)
        std::printf("Clients take it at once; the engine doesn't read it.\n");
    else if (setting->facts->reader == setting_reader::client)
        std::printf(
            "The engine takes it at its next start, but goes by it in nothing: it is the mail client's.\n");
    else if (const std::uint32_t process = engine_view::process_id())
        std::printf("The engine takes it at its next start; process %u goes on with the old value "
                    "(tvrctl stop; tvrctl start).\n",
                    process);
    else
        std::printf("The engine takes it at its next start.\n");
    return exit_code::done;
}

int root(const std::string& folder) {
    if (folder.empty()) {
        const std::string now = root_folder();
        std::printf("%s\n", now.empty() ? "No installation root is registered (\"TessivarRoot\")."
                                        : platform::display_path(now).c_str());
        return now.empty() ? exit_code::nothing_taken : exit_code::done;
    }
    std::string path = platform::from_display_path(folder);
    if (!path.starts_with('\\') && path.find(':') == std::string::npos)
        path = join_path(platform::current_directory(), path);
    if (const std::string why = register_root(path); !why.empty())
        return fail(why);
    std::printf("The installation root is %s; advanced.ini is read from there at the engine's next start.\n",
                platform::display_path(root_folder()).c_str());
    return exit_code::done;
}

} // namespace

void add_config(CLI::App& program, int& code) {
    struct config_options {
        bool json = false;
        bool all = false;
        std::string key, value, folder;
    };
    auto options = std::make_shared<config_options>();
    CLI::App* command = program.add_subcommand("config", "Show and change the settings");
    command->require_subcommand(1);
    CLI::App* list = command->add_subcommand("list", "Show all settings with their defaults and limits");
    list->add_flag("--json", options->json, "Print one JSON array");
    list->add_flag("--all", options->all, "Show those too that only mail programs read");
    list->callback([options, &code] { code = list_settings(options->json, options->all); });
    CLI::App* one = command->add_subcommand("get", "Print the value of one setting");
    one->add_option("KEY", options->key, "Its name, as the list has it")->required();
    one->callback([options, &code] { code = get(options->key); });
    CLI::App* change = command->add_subcommand("set", "Change one setting");
    change->add_option("KEY", options->key, "Its name, as the list has it")->required();
    change->add_option("VALUE", options->value, "Its new value; flags take on and off too")->required();
    change->callback([options, &code] { code = set(options->key, options->value); });
    CLI::App* place = command->add_subcommand("root", "Show or register the installation root");
    place->add_option("FOLDER", options->folder, "A folder that is to hold advanced.ini");
    place->callback([options, &code] { code = root(options->folder); });
    command->footer(
        "The installation root is the folder whose advanced.ini the engine of each user reads. The package\n"
        "registers /etc/tessivar; \"tvrctl config root FOLDER\" registers one of your own.\n"
        "The values shown are those of the engine's next start.\n\n"
        "Examples:\n"
        "  tvrctl config list\n"
        "  tvrctl config root ~/.config/tessivar\n"
        "  tvrctl config set \"training delay\" 60");
}

} // namespace tvr
