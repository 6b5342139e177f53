// A client makes an engine go that hangs: each way to hang, and the rung of the ladder that helps.

#include <gtest/gtest.h>

#include <csignal>
#include <sys/wait.h>

#include "platform/change_hook.h"
#include "platform/entry.h"
#include "platform/presence.h"
#include "signal/event_channel.h"
#include "signal/identity.h"
#include "support/child_process.h"
#include "support/file_bytes.h"
#include "support/log_lines.h"
#include "system/engine_root.h"

namespace tvr {
namespace {

using lines = std::vector<std::string>;

constexpr std::uint32_t patience = 60'000; // milliseconds; only reached by a fault

const std::string calls = "[i] Calling shutdown_server";
const std::string begins = "[i] server will be killed and restarted now...";
const std::string demands = "_restart_server: private message was sent to demand immediate exiting";
const std::string left = "_restart_server: server was killed by sending private termination message";
const std::string ended = "_restart_server: server was killed by termination hit of sledge-hammer";

std::string stuck_at;

// The thread that is about to change the file stays where it is.
std::uint32_t get_stuck(platform::change, std::string_view path) {
    if (!path.ends_with(stuck_at))
        return 0;
    platform::event stuck;
    stuck.create_named("stuck");
    stuck.set();
    platform::event never;
    never.create(false);
    never.wait(platform::infinite);
    return 0;
}

// The engine. The argument is the file at which it gets stuck, if any.
const child_role hanging_engine("hanging_engine", [](std::string_view file) {
    stuck_at = file;
    if (!file.empty())
        platform::set_change_hook(get_stuck);
    return engine_main("");
});

// The pauses between two looks, which take no time here. From the second rung on they wait for the end of
// the process, if it is to end by that rung.
unsigned pauses = 0;
bool obeys = false;
child_process* engine = nullptr;

void pause_instead(std::uint32_t milliseconds) noexcept {
    EXPECT_EQ(milliseconds, 100U);
    if (++pauses > 70 && obeys)
        engine->join();
}

class restart : public testing::Test {
protected:
    restart() {
        pauses = 0;
        obeys = false;
        engine = nullptr;
        (void)log.take();
    }
    // An engine of this kind, up to the point where it hangs.
    child_process start(const std::string& hangs_at) {
        platform::event stuck;
        EXPECT_TRUE(stuck.create_named("stuck"));
        child_process child("hanging_engine", hangs_at);
        engine_root::wait_for("the engine's start", [] { return engine_root::process() != 0; });
        if (!hangs_at.empty()) {
            channel.raise(ev_reset); // for the work thread; the main thread hangs before it listens
            EXPECT_TRUE(stuck.wait(patience));
        }
        EXPECT_EQ(engine_root::process(), child.id());
        (void)log.take();
        return child;
    }
    void expect(const lines& logged, unsigned expected_pauses, int exit_code) {
        EXPECT_TRUE(channel._restart_server(pause_instead));
        EXPECT_EQ(log.take(), logged);
        EXPECT_EQ(engine->join(), exit_code);
        if (obeys)
            EXPECT_GE(pauses, expected_pauses);
        else
            EXPECT_EQ(pauses, expected_pauses);
        EXPECT_EQ(channel.start_server(false), start_result::no_server);
    }

    engine_root root;
    log_lines log{[](const std::string& line) {
        // An engine that goes by itself once it is waited for.
        if (line == begins && !engine)
            platform::close_presence(server_class, server_title);
    }};
    event_channel channel;
};

TEST_F(restart, nobody) {
    EXPECT_TRUE(channel._restart_server(pause_instead));
    EXPECT_EQ(log.take(), lines{calls});
    EXPECT_EQ(pauses, 0U);
    EXPECT_EQ(engine_root::process(), 0U);
}

TEST_F(restart, one_in_a_debugger) {
    platform::presence shown;
    ASSERT_TRUE(shown.create(server_class, server_title));
    shown.set_visible(true);
    EXPECT_FALSE(channel._restart_server(pause_instead));
    EXPECT_EQ(log.take(), (lines{calls, "[i] server's window is visible. If you are not debugging it now, "
                                        "simple kill it manually..."}));
    EXPECT_EQ(pauses, 0U);
    EXPECT_TRUE(platform::find_presence(server_class, server_title).found);
}

TEST_F(restart, one_that_goes_by_itself) {
    channel.set_file(root.client().working_directory() + "flags.bin");
    const auto flags = root.base().parent_path() / "flags.bin";
    ASSERT_TRUE(std::filesystem::remove(flags));
    child_process child = start("");
    EXPECT_TRUE(channel._restart_server(pause_instead));
    EXPECT_EQ(log.take(), (lines{calls, begins, left}));
    EXPECT_EQ(pauses, 0U);
    EXPECT_EQ(child.join(), 0);
    EXPECT_EQ(read_file(flags), le(16)) << "number 4 was raised";
}

TEST_F(restart, stuck_work_thread) {
    root.append(1, 2); // what it is stuck at
    child_process child = start("autotrain.bys");
    engine = &child;
    obeys = true;
    expect({calls, begins, demands, left}, 70, 255);
}

TEST_F(restart, stuck_main_thread) {
    std::filesystem::remove(root.transact() / "ipc.bin");
    child_process child = start("ipc.bin");
    engine = &child;
    expect({calls, begins, demands, ended}, 140, child_process::killed);
}

TEST_F(restart, stopped_by_a_signal) {
    child_process child = start("");
    engine = &child;
    const auto id = static_cast<pid_t>(child.id());
    ASSERT_EQ(kill(id, SIGSTOP), 0);
    ASSERT_EQ(waitpid(id, nullptr, WUNTRACED), id);
    expect({calls, begins, demands, ended}, 140, child_process::killed);
}

} // namespace
} // namespace tvr
