// tvrctl log: switches the engine's logs.

#include <array>
#include <cstdio>
#include <memory>
#include <string_view>

#include "client/user_folder.h"
#include "common/bytes.h"
#include "common/logger.h"
#include "common/path.h"
#include "platform/error.h"
#include "platform/file.h"
#include "platform/process.h"
#include "platform/registry.h"
#include "signal/event_channel.h"
#include "tools/command.h"

namespace tvr {

namespace {

constexpr std::uint32_t to_files = 2; // the bit of EnableKWILLog

bool write_number(platform::registry_key& key, std::string_view name, std::uint32_t number) {
    std::array<char, 4> bytes{};
    store_u32(bytes.data(), number);
    return key.set(name, platform::registry_type::dword, {bytes.data(), bytes.size()});
}

// The folder that an engine of this user writes to. It goes by its own place if none is registered.
std::string log_folder() {
    logger like_the_engines;
    const auto engine = event_channel::locate_server();
    like_the_engines.configure(engine ? *engine : platform::module_path(),
                               root_folder().empty() ? std::string() : registry_path_value("TessivarLog"));
    return like_the_engines.folder();
}

int tell_log_folder() {
    const std::string folder = log_folder();
    const std::string shown = platform::display_path(folder);
    std::printf("They will lie in %s\n", shown.c_str());
    if (check_directory(folder) == folder_state::usable)
        return exit_code::done;
    const std::uint32_t code = platform::last_error();
    return fail(path_error(folder, code) +
                "; the engine can't write there, and its lines will be lost. The folder is the registry "
                "value \"TessivarLog\", or the engine's own where no installation root is registered");
}

int switch_log(bool on) {
    platform::registry_key key;
    if (!key.create(platform::registry_root::local_machine, "Software") ||
        !write_number(key, "EnableKWILLog", on ? to_files : 0) || !write_number(key, "KWILLogLevel", 1))
        return fail("the switch can't be written: no right to change the machine's settings");
    std::printf("The engine's logs are %s from its next start on.\n", on ? "written" : "off");
    return on ? tell_log_folder() : exit_code::done;
}

} // namespace

void add_log(CLI::App& program, int& code) {
    CLI::App* command = program.add_subcommand("log", "Switch the engine's logs on or off");
    command->require_subcommand(1);
    command->add_subcommand("on", "Write logs")->callback([&code] { code = switch_log(true); });
    command->add_subcommand("off", "Write no logs")->callback([&code] { code = switch_log(false); });
    command->footer("Example:\n  tvrctl log on; tvrctl stop; tvrctl start");
}

} // namespace tvr
