// tvrctl stop --if-idle beside a client that comes while the engine ends: one that hangs makes the moment
// last.

#include <signal.h>
#include <unistd.h>

#include "common/path.h"
#include "platform/file.h"
#include "platform/presence.h"
#include "signal/identity.h"
#include "support/child_process.h"
#include "support/test.h"
#include "system/engine_root.h"

namespace tvr {
namespace {

const child_role stopper("stopper", [](std::string_view) {
    const std::string program = platform::display_path(module_folder()) + "tvrctl";
    return execl(program.c_str(), "tvrctl", "stop", "--if-idle", "0", nullptr);
});

// Can be asked to close, and hears nothing else.
const child_role deaf_engine("deaf_engine", [](std::string_view) {
    platform::presence presence;
    if (!presence.create(server_class, server_title))
        return 1;
    presence.run();
    return 0;
});

TEST(idle_stop, nothing_is_handed_to_an_engine_that_ends) {
    engine_root root;
    root.start();
    root.train(1, 10);
    const auto process = static_cast<pid_t>(engine_root::process());
    kill(process, SIGSTOP);
    child_process stop("stopper");
    engine_root::wait_for("the lock", [&] { return std::filesystem::exists(root.transact() / "lock.bin"); });
    record_batch batch;
    batch.add({.msid = "<late>"}, token_table());
    root.client().set_patience(50);
    EXPECT_EQ(root.client().train(batch).error, ipc_error::locked);
    kill(process, SIGCONT);
    EXPECT_EQ(stop.join(), 0);
    EXPECT_TRUE(root.client().train(batch));
    engine_root::wait_for("the next engine", [] { return engine_root::process() != 0; });
    EXPECT_TRUE(holds(tvrctl("stop --if-idle 0", 1), "1 message waits"));
}

TEST(idle_stop, what_it_did_not_hear_is_heard_by_the_next) {
    engine_root root;
    root.start();
    root.train(1, 10);
    root.stop();
    child_process engine("deaf_engine");
    engine_root::wait_for("its start", [] { return engine_root::process() != 0; });
    root.client().raise(engine_event::reset, false);
    child_process stop("stopper");
    EXPECT_EQ(engine.join(), 0);
    EXPECT_EQ(stop.join(), 0);
    root.wait_for_purge();
}

} // namespace
} // namespace tvr
