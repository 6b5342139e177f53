// The real engine from outside: one instance, its keys, and what makes it train.

#include "common/path.h"
#include "platform/file.h"
#include "platform/process.h"
#include "platform/registry.h"
#include "support/test.h"
#include "system/engine_root.h"

namespace tvr {
namespace {

namespace fs = std::filesystem;

// Whoever comes second goes away without harm, even of many that are started at the same moment.
TEST(engine, is_alone) {
    engine_root root;
    for (int i = 0; i < 8; ++i)
        engine_root::launch();
    engine_root::wait_for_start();
    const std::uint32_t first = engine_root::process();
    EXPECT_EQ(root.run_key(""), 0); // finds the first and ends
    EXPECT_EQ(engine_root::process(), first);
    EXPECT_TRUE(holds(root.log("tvr_srv.log"), "[-] Another instance found. Aborting..."));
    root.train(1, 10);
    EXPECT_EQ(root.messages(), 10U);
}

TEST(engine, logs_its_start_and_its_stop_in_order) {
    engine_root root;
    root.train(1, 10);
    root.stop();
    const std::string log = root.log("tvr_srv.log");
    std::size_t at = 0;
    for (const char* line :
         {"[i] called with no keys or with unknown keys. Assuming normal start...", "[i] check_registry",
          "work_server::init. If you can see this, the memory logging was successfully initialized.",
          "[i] common_settings::getsettingsfolder invoked", "Check if data is valid (0)",
          "Loading statistic file", "------------------------Startup complete!",
          "[i] Event 5000 raised...(1)", "Check if the plug was initialized (1)", "***STOP***"}) {
        const std::size_t found = log.find(line, at);
        ASSERT_NE(found, std::string::npos) << line;
        at = found;
    }
}

TEST(engine, keys_work_from_a_second_process) {
    engine_root root;
    EXPECT_EQ(root.run_key("/register"), 0); // "/force" starts what is registered
    root.append(1, 10);
    EXPECT_EQ(root.run_key("/force"), 0);
    engine_root::wait_for_start();
    root.make_hear(); // the first one may have gone before it listened
    EXPECT_EQ(root.run_key("/force"), 0);
    root.wait_until_trained();
    EXPECT_EQ(root.messages(), 10U);

    EXPECT_EQ(root.run_key("/purge"), 0);
    root.wait_for_purge();
    root.train(2, 6); // from nothing again
    EXPECT_EQ(root.messages(), 6U);

    const std::uint32_t process = engine_root::process();
    EXPECT_EQ(root.run_key("/stop"), 0);
    EXPECT_EQ(engine_root::process(), 0U); // the key waits for that
    engine_root::wait_for("the end of the process", [process] { return !platform::process_exists(process); });
}

TEST(engine, tests_itself) {
    engine_root root;
    const fs::path scratch = root.path() / "tmp/tvrtest";
    write_file(scratch / "base/cashe.mrk", "left by a test that died");
    EXPECT_EQ(root.run_key("/test"), 0);
    EXPECT_FALSE(holds(root.log("unit_test.log"), "[-]"));
    EXPECT_TRUE(holds(root.log("unit_test.log"), "[i] all tests completed"));
    EXPECT_TRUE(holds(root.log("profiler.log"), "[flush_ordered:0] "));
    const std::string log = root.log("tvr_srv.log");
    EXPECT_TRUE(holds(log, "[i] running with /test key - only testing"));
    const std::size_t first_stop = log.find("***STOP***");
    EXPECT_NE(log.find("***STOP***", first_stop + 1), std::string::npos) << log;
    EXPECT_FALSE(fs::exists(scratch));
    EXPECT_TRUE(root.base_files().empty()) << "the user's own base is no place for a test";

    // Without its folder no test can succeed.
    write_file(scratch, "a file of that name");
    const std::string before = root.log("unit_test.log");
    EXPECT_EQ(root.run_key("/TESTs"), 0);
    EXPECT_EQ(root.log("unit_test.0"), before);
    for (const char* name : {"filehead", "transaction", "dword_map"})
        EXPECT_TRUE(holds(root.log("unit_test.log"), "[-] " + std::string(name) + " test FAILED"));
    EXPECT_EQ(read_file(scratch), "a file of that name");

    root.start(); // beside another one it doesn't test
    const std::string failed = root.log("unit_test.log");
    EXPECT_EQ(root.run_key("/test"), 0);
    EXPECT_EQ(root.log("unit_test.log"), failed);
}

TEST(engine, trains_when_enough_messages_wait_or_one_that_the_user_marked) {
    engine_root root;
    root.set_training(0, 4);
    root.append(1, 4); // not more than 4
    root.start();
    root.wait_for_line("tvr_srv.log", "Startup");
    root.make_hear();
    EXPECT_EQ(root.stamp(), "");
    EXPECT_TRUE(fs::exists(root.transact() / "autotrain.bys"));
    root.append(2, 1);
    root.wait_until_trained();
    EXPECT_EQ(root.messages(), 5U);
    EXPECT_TRUE(holds(root.log("transact.log"), "[i] retrain by timeout"));

    root.append(3, 1, true);
    root.wait_until_trained();
    EXPECT_EQ(root.messages(), 6U);
    EXPECT_TRUE(holds(root.log("transact.log"), "[i] retrain by manual marks"));
}

// A backup program, say, that reads the cache and lets nobody move it meanwhile.
TEST(engine, takes_messages_later_that_another_process_holds) {
    engine_root root;
    root.start();
    root.append(1, 10);
    platform::file held;
    ASSERT_TRUE(held.open(platform::from_display_path((root.transact() / "autotrain.bys").string()),
                          platform::access::read, platform::share::read, platform::creation::open_existing));
    root.force();
    root.wait_for_line("transact.log", "[i] unable to delete source (2)");
    EXPECT_TRUE(fs::exists(root.transact() / "autotrain.bys"));
    EXPECT_EQ(root.stamp(), "");
    held.close();
    root.force();
    root.wait_until_trained();
    EXPECT_EQ(root.messages(), 10U);
}

TEST(engine, a_force_without_messages_changes_nothing) {
    engine_root root;
    root.train(1, 10);
    const auto before = root.base_files();
    const std::string stamp = root.stamp();
    root.force();
    root.wait_for_line("transact.log", "[i] unable to delete source (2)");
    EXPECT_EQ(root.base_files(), before);
    EXPECT_EQ(root.stamp(), stamp);
}

} // namespace
} // namespace tvr
