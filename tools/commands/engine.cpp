// tvrctl start, stop, force, purge: the engine's own keys, and a word about what came of them.

#include <cstdio>
#include <memory>
#include <optional>

#include "client/tvr_ipc.h"
#include "client/user_folder.h"
#include "common/file_names.h"
#include "dict/dictbase.h"
#include "platform/clock.h"
#include "platform/error.h"
#include "platform/file.h"
#include "platform/presence.h"
#include "platform/process.h"
#include "settings/common_settings.h"
#include "signal/identity.h"
#include "tools/command.h"
#include "tools/state/engine_view.h"
#include "tools/state/waiting_mail.h"

namespace tvr {

namespace {

// Waits for the engine that was just started; its process id, or 0.
std::uint32_t wait_for_engine() {
    std::uint32_t process = 0;
    engine_view::wait_until(engine_view::start_patience,
                            [&] { return (process = engine_view::process_id()) != 0; });
    return process;
}

// Raises an event of an engine that runs, or is started for it, and stays until it has heard.
int raise_and_report(engine_event event, const char* text) {
    training_client client;
    const ipc_status status = client.raise(event);
    if (!status)
        return fail(status.text);
    if (wait_for_engine() == 0)
        return fail("the engine was started, but doesn't come up");
    // It shows itself before it listens, and the event goes with the last who holds it. One that is busy
    // holds it, and hears later.
    engine_view::wait_until(engine_view::start_patience, [&] { return !client.is_pending(event); });
    std::printf("%s\n", text);
    return exit_code::done;
}

int start() {
    if (const std::uint32_t process = engine_view::process_id()) {
        std::printf("The engine runs already, as process %u.\n", process);
        return exit_code::done;
    }
    training_client client;
    // `add` alone makes the engine do nothing but start its delay again.
    const ipc_status status = client.raise(engine_event::add);
    if (!status)
        return fail(status.text);
    const std::uint32_t process = wait_for_engine();
    if (process == 0)
        return fail("the engine was started, but doesn't come up");
    std::printf("The engine runs as process %u.\n", process);
    return exit_code::done;
}

// Asks on a terminal; elsewhere the option has to say it.
bool may_purge(bool yes) {
    if (yes)
        return true;
    if (!platform::is_terminal(stdin)) {
        fail("this forgets all training; say so with --yes");
        return false;
    }
    std::printf("This forgets all training, what the verdict learned, and what \"tvrctl watch\" remembers. "
                "Go on? (--yes doesn't ask) [y/N] ");
    std::fflush(stdout);
    const int answer = std::getchar();
    return answer == 'y' || answer == 'Y';
}

int purge(bool yes) {
    if (!may_purge(yes))
        return exit_code::nothing_taken;
    const int code =
        raise_and_report(engine_event::reset, "The engine was told to forget all training. The published "
                                              "base stays in use until the next training.");
    // Or a watched folder would count as learned.
    const std::string memory = find_user_folder().path + names::watch;
    if (code == exit_code::done && platform::get_attributes(memory) && !platform::delete_file(memory))
        return fail(path_error(memory, platform::last_error()) + "; what \"tvrctl watch\" remembers stays");
    return code;
}

int doesnt_run() {
    std::printf("The engine doesn't run.\n");
    return exit_code::done;
}

// Why the engine isn't idle, or hasn't been for so long; or an empty text.
std::string busy_reason(const engine_view& view, std::uint32_t process, unsigned minutes) {
    if (std::string work = view.work_left(); !work.empty())
        return work;
    constexpr std::uint64_t minute = 600'000'000; // of 100 ns
    return view.last_busy(process) + minutes * minute > platform::system_time()
               ? "it was busy within the last " + std::to_string(minutes) + " minutes"
               : std::string();
}

int stop() {
    const std::uint32_t process = engine_view::process_id();
    if (process == 0)
        return doesnt_run();
    platform::close_presence(server_class, server_title);
    if (!engine_view::wait_for_end(process))
        return fail("the engine was told to stop, but process " + std::to_string(process) + " doesn't end");
    std::printf("The engine has stopped. A training under way goes on at the next start.\n");
    return exit_code::done;
}

// Whoever appends at that moment waits for the lock, finds no engine, and starts it.
int stop_if_idle(unsigned minutes) {
    const std::uint32_t process = engine_view::process_id();
    if (process == 0)
        return doesnt_run();
    training_client client; // holds what is raised meanwhile
    if (!client.status())
        return fail(client.status().text);
    const engine_view view(client.working_directory());
    std::string why = busy_reason(view, process, minutes);
    file_lock lock;
    if (why.empty()) {
        if (why = take_lock(lock, client.working_directory() + names::transact_path); !why.empty())
            return fail(why);
        why = busy_reason(view, process, minutes);
    }
    if (!why.empty()) {
        std::printf("The engine goes on: %s.\n", why.c_str());
        return exit_code::nothing_taken;
    }
    const int code = stop();
    lock.release();
    if (client.is_pending(engine_event::reset))
        client.raise(engine_event::reset);
    return code;
}

} // namespace

void add_engine_commands(CLI::App& program, int& code) {
    program.add_subcommand("start", "Start the engine")
        ->footer("Example:\n  tvrctl start")
        ->callback([&code] { code = start(); });
    auto idle = std::make_shared<std::optional<unsigned>>();
    CLI::App* stopping = program.add_subcommand("stop", "Stop the engine");
    stopping->add_option("--if-idle", *idle, "Only if nothing waits, and it has done nothing for so long")
        ->type_name("MINUTES")
        ->check(CLI::Range(0, 525'600));
    stopping->footer(
        "With --if-idle no message is lost or forgotten: what another program hands over at that moment "
        "is\nlearned, by an engine that it starts again.\n\n"
        "Exit code 0: the engine doesn't run any more; 1: it isn't idle, and goes on; 2: wrong "
        "arguments;\n3: an error.\n\n"
        "Examples:\n  tvrctl stop\n  tvrctl stop --if-idle 30");
    stopping->callback([idle, &code] { code = *idle ? stop_if_idle(**idle) : stop(); });
    program.add_subcommand("force", "Train on the waiting messages now")
        ->footer("Example:\n  tvrctl force")
        ->callback(
            [&code] { code = raise_and_report(engine_event::train, "The engine was told to train now."); });
    auto yes = std::make_shared<bool>(false);
    CLI::App* command = program.add_subcommand("purge", "Forget all training");
    command->add_flag("-y,--yes", *yes, "Don't ask first");
    command->footer(
        "The published base stays in use until the next training. What the verdict learned and\n"
        "what \"tvrctl watch\" remembers are forgotten, too.\n\n"
        "Exit code 0: the engine was told; 1: the answer was no; 2: wrong arguments; 3: an error.\n\n"
        "Example:\n  tvrctl purge --yes");
    command->callback([yes, &code] { code = purge(*yes); });
}

} // namespace tvr
