// A client makes an engine go that hangs: each way to hang, and the rung of the ladder that helps.

#include "platform/change_hook.h"
#include "platform/entry.h"
#include "platform/presence.h"
#include "signal/event_channel.h"
#include "signal/identity.h"
#include "support/child_process.h"
#include "support/log_lines.h"
#include "support/test.h"
#include "system/engine_root.h"

namespace tvr {
namespace {

using lines = std::vector<std::string>;

const std::string calls = "[i] Calling shutdown_server";
const std::string begins = "[i] server will be killed and restarted now...";
const std::string demands = "_restart_server: private message was sent to demand immediate exiting";
const std::string left = "_restart_server: server was killed by sending private termination message";
const std::string ended = "_restart_server: server was killed by termination hit of sledge-hammer";

std::string stuck_at;

// The thread that is about to change the file stays where it is.
std::uint32_t get_stuck(platform::change, std::string_view path) {
    if (stuck_at.empty() || !path.ends_with(stuck_at))
        return 0;
    platform::event stuck, never;
    stuck.create_named("stuck");
    stuck.set();
    never.create(false);
    never.wait(platform::infinite);
    return 0;
}

// The engine. The argument is the file at which it gets stuck, if any.
const child_role hanging_engine("hanging_engine", [](std::string_view file) {
    stuck_at = file;
    platform::set_change_hook(get_stuck);
    return engine_main("");
});

child_process* obedient = nullptr; // an engine that ends by the second rung
unsigned pauses = 0;

// The pause between two looks, which takes no time unless there is something to wait for.
void pause_instead(std::uint32_t milliseconds) noexcept {
    EXPECT_EQ(milliseconds, 100U);
    if (++pauses > 70 && obedient)
        obedient->join();
}

class restart : public testing::Test {
protected:
    restart() {
        obedient = nullptr;
        pauses = 0;
    }
    // An engine up to the point where it hangs.
    child_process start(const std::string& hangs_at) {
        platform::event stuck;
        EXPECT_TRUE(stuck.create_named("stuck"));
        child_process child("hanging_engine", hangs_at);
        engine_root::wait_for_start();
        if (!hangs_at.empty()) {
            channel.raise(ev_reset); // for the work thread; the main thread hangs before anybody listens
            EXPECT_TRUE(stuck.wait(60'000));
        }
        return child;
    }
    void expect(bool answer, const lines& logged) {
        (void)log.take();
        EXPECT_EQ(channel._restart_server(pause_instead), answer);
        EXPECT_EQ(log.take(), logged);
    }

    engine_root root;
    log_lines log;
    event_channel channel;
};

TEST_F(restart, nobody_and_one_in_a_debugger) {
    expect(true, {calls});
    platform::presence shown;
    ASSERT_TRUE(shown.create(server_class, server_title));
    shown.set_visible(true);
    expect(false, {calls, "[i] server's window is visible. If you are not debugging it now, simple kill it "
                          "manually..."});
    EXPECT_EQ(pauses, 0U);
    EXPECT_TRUE(platform::find_presence(server_class, server_title).found);
}

TEST_F(restart, one_that_goes_by_itself) {
    channel.set_file(root.client().working_directory() + "flags.bin");
    const auto flags = root.base().parent_path() / "flags.bin";
    ASSERT_TRUE(std::filesystem::remove(flags));
    child_process child = start("");
    log.listen([](const std::string& line) {
        if (line == begins)
            platform::close_presence(server_class, server_title);
    });
    expect(true, {calls, begins, left});
    EXPECT_EQ(pauses, 0U);
    EXPECT_EQ(child.join(), 0);
    EXPECT_EQ(read_file(flags), le(16)) << "number 4 was raised";
}

TEST_F(restart, stuck_work_thread) {
    root.append(1, 2); // what it is stuck at
    child_process child = start("autotrain.bys");
    obedient = &child;
    expect(true, {calls, begins, demands, left});
    EXPECT_GE(pauses, 70U);
    EXPECT_EQ(child.join(), child_process::code_of(-1));
}

TEST_F(restart, stuck_main_thread) {
    std::filesystem::remove(root.transact() / "ipc.bin");
    child_process child = start("ipc.bin");
    expect(true, {calls, begins, demands, ended});
    EXPECT_EQ(pauses, 140U);
    EXPECT_EQ(child.join(), child_process::killed);
    expect(true, {calls});
}

} // namespace
} // namespace tvr
