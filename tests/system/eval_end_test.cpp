// Whatever ends tvrctl eval, nothing of it is left.

#include <signal.h>

#include "common/path.h"
#include "platform/file.h"
#include "platform/process.h"
#include "support/child_process.h"
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
        child_process eval("shell", "exec '" + platform::display_path(module_folder()) +
                                        "tvrctl' eval -q --stream --block 1 --spam " + sample +
                                        "/spam --ham " + sample + "/ham");
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

} // namespace
} // namespace tvr
