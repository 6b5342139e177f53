// Signals that come while tvrctl or the engine is at work.

#include <signal.h>

#include "platform/presence.h"
#include "platform/process.h"
#include "signal/identity.h"
#include "support/test.h"
#include "system/engine_root.h"

namespace tvr {
namespace {

namespace fs = std::filesystem;

// What one that was killed has left the next one clears away.
TEST(eval, leaves_nothing_however_it_ends) {
    engine_root root;
    const std::string sample = TVR_SAMPLE_MAIL;
    for (const int signal : {SIGINT, SIGTERM, SIGKILL}) {
        child_process eval =
            start_tvrctl("eval -q --stream --block 1 --spam " + sample + "/spam --ham " + sample + "/ham");
        const fs::path trial = root.path() / "tmp" / ("eval" + std::to_string(eval.id()));
        engine_root::wait_for("a base of the trial", [&] {
            return fs::exists(trial / "appdata/Orvenix/Brackenhold/data/base/cashe.rgd");
        });
        platform::set_environment_variable("TESSIVAR_ROOT", trial.string());
        const std::uint32_t engine = engine_root::process();
        platform::set_environment_variable("TESSIVAR_ROOT", root.path().string());
        EXPECT_NE(engine, 0U);
        kill(static_cast<pid_t>(eval.id()), signal);
        EXPECT_EQ(eval.join(), signal == SIGKILL ? child_process::killed : 3);
        if (signal == SIGKILL)
            tvrctl("eval -q --spam /absent --ham /missing", 3);
        EXPECT_FALSE(platform::process_exists(engine)) << signal;
        EXPECT_FALSE(fs::exists(trial)) << signal;
    }
}

// A client comes while the engine ends: one that hangs makes the moment last.
TEST(idle_stop, nothing_is_handed_to_an_engine_that_ends) {
    engine_root root;
    root.train(1, 10);
    const auto process = static_cast<pid_t>(engine_root::process());
    kill(process, SIGSTOP);
    child_process stop = start_tvrctl("stop --if-idle 0");
    engine_root::wait_for("the lock", [&] { return fs::exists(root.transact() / "lock.bin"); });
    record_batch batch;
    batch.add({.msid = "<late>"}, token_table());
    root.client().set_patience(50);
    EXPECT_EQ(root.client().train(batch).error, ipc_error::locked);
    kill(process, SIGCONT);
    EXPECT_EQ(stop.join(), 0);
    EXPECT_TRUE(root.client().train(batch));
    engine_root::wait_for_start();
    tvrctl("stop --if-idle 0", 1, "1 message waits");
}

// Can be asked to close, and hears nothing else.
const child_role deaf_engine("deaf_engine", [](std::string_view) {
    platform::presence presence;
    if (!presence.create(server_class, server_title))
        return 1;
    presence.run();
    return 0;
});

TEST(idle_stop, what_it_did_not_hear_is_heard_by_the_next) {
    engine_root root;
    root.train(1, 10);
    root.stop();
    child_process engine("deaf_engine");
    engine_root::wait_for_start();
    root.client().raise(engine_event::reset, false);
    child_process stop = start_tvrctl("stop --if-idle 0");
    EXPECT_EQ(engine.join(), 0);
    EXPECT_EQ(stop.join(), 0);
    root.wait_for_purge();
}

} // namespace
} // namespace tvr
