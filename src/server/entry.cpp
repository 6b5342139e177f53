// The entry routine: the command line decides whether the process is the server or a small tool.

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "common/logger.h"
#include "common/text.h"
#include "platform/entry.h"
#include "platform/presence.h"
#include "platform/process.h"
#include "server/app_module.h"
#include "server/log_merge.h"
#include "server/registration.h"
#include "server/score_dump.h"
#include "server/self_test.h"
#include "server/work_server.h"
#include "signal/event_channel.h"
#include "signal/identity.h"

namespace tvr {

namespace {

// Of files that are open at a time. All atoms of both halves are while the compiled base is made: some 20,
// with the usual settings.
constexpr unsigned least_handles = 64;

// The jobs take what follows their key and one more character.

void register_server(std::string_view) {
    check_registry();
}

template <std::uint32_t flags>
void uninstall(std::string_view) {
    do_uninstall(flags);
}

template <channel_event number>
void raise_event(std::string_view) {
    event_channel channel;
    channel.start_server(true);
    channel.raise(number);
}

struct command_key {
    std::string_view text;
    void (*job)(std::string_view rest);
};

// In the order in which they are tested. The null job is a normal start that tests in place of serving.
constexpr std::array<command_key, 13> keys = {{
    {"/register", register_server},
    {"-register", register_server},
    {"/Install", register_server},
    {"/RegServer", register_server},
    {"/Uninstall", uninstall<uninstall_server | uninstall_settings>},
    {"/clean", uninstall<uninstall_settings>},
    {"/purge", raise_event<ev_reset>},
    {"/force", raise_event<ev_train>},
    {"/mergelog", merge_logs},
    {"/getscores", [](std::string_view input) { dump_scores(input); }},
    {"/UnRegServer", uninstall<uninstall_server>},
    {"/stop", uninstall<0>},
    {"/test", nullptr},
}};

const command_key* find_key(std::string_view command_line) {
    for (const command_key& key : keys)
        if (starts_with_ignoring_case(command_line, key.text))
            return &key;
    return nullptr;
}

// Ends the process in the order in which the objects of its lifetime go: the statistic is saved, then the
// log is closed. deliberate: the objects themselves stay, since the other threads are neither told nor
// joined and end with the process.
[[noreturn]] void end_process() {
    close_statistic();
    logger::shut_down();
    platform::exit_process(0);
}

void run_server(app_module& module, bool testing) {
    TVR_LOG(default_log, "[i] called with no keys or with unknown keys. Assuming normal start...");
    if (platform::find_presence(server_class, server_title).found) {
        TVR_LOG(default_log, "[-] Another instance found. Aborting...");
        return;
    }
    // A step of a training that can't open a file goes on without it, and what is in that file may be lost.
    // So the engine does nothing where the system lets it have too few.
    if (!platform::reserve_handles(least_handles)) {
        TVR_LOG(default_log, "[-] Fewer than %u files can be open at a time. Aborting...", least_handles);
        return;
    }
    logger::instance().rotate(transact_log);
    logger::instance().rotate(profiler_log);
    if (!module.create_presence())
        return;
    makeversion();
    check_registry();
    static work_server server(module.window());
    if (server.init()) {
        platform::thread work_thread;
        if (testing) {
            run_self_tests(server.pipeline());
        } else {
            work_thread.start([] { return server.work(); });
            module.run();
        }
        server.stop();
        server.stop_again();
    }
    end_process();
}

} // namespace

int engine_main(std::string_view command_line) {
    static app_module module(platform::process_module());
    module.read_paths();
    logger::instance().rotate(default_log);
    if (const command_key* key = find_key(command_line)) {
        TVR_LOG(default_log, "[i] called with key %s", std::string(command_line).c_str());
        if (!key->job)
            run_server(module, true);
        else // deliberate: one character is skipped, whichever it is, and nothing is trimmed.
            key->job(command_line.substr(std::min(key->text.size() + 1, command_line.size())));
    } else {
        run_server(module, false);
    }
    return 0;
}

} // namespace tvr
