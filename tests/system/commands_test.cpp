// Each key of the engine and each command of tvrctl that the other system tests leave out, on real files.

#include <nlohmann/json.hpp>

#include "common/path.h"
#include "platform/file.h"
#include "platform/process.h"
#include "platform/registry.h"
#include "support/test.h"
#include "system/engine_root.h"

namespace tvr {
namespace {

namespace fs = std::filesystem;

platform::registry_key paths() {
    platform::registry_key key;
    EXPECT_TRUE(key.create(platform::registry_root::local_machine, paths_key));
    return key;
}

std::string registered(const char* name) {
    const auto value = paths().query(name);
    return value ? value->data.substr(0, value->data.find('\0')) : "none";
}

TEST(keys, register_and_unregister) {
    engine_root root;
    const std::string self = engine_root::server();
    const std::string folder = platform::from_display_path((root.path() / "settings").string());
    const struct {
        const char* key;
        std::string server, settings; // what the registry holds afterwards
        bool runs;
    } table[] = {
        {"/register", self, folder, true},       {"-REGISTER", self, folder, true},
        {"/Install", self, folder, true},        {"/regserver2", self, folder, true},
        {"/RegServe", "moved", folder, true}, // no key: an engine, which finds the first
        {"/Uninstall", "none", "none", false},   {"/clean", "moved", "none", false},
        {"/UnRegServer", "none", folder, false}, {"/stop", "moved", folder, false},
        {"/STOP", "moved", folder, false}, // nobody to stop
    };
    for (const auto& row : table) {
        if (engine_root::process() == 0 && row.key != std::string("/STOP")) {
            root.start();
            engine_root::wait_for("its registration", [&] { return registered("tvr_srv.exe") == self; });
        }
        auto key = paths();
        ASSERT_TRUE(key.set("tvr_srv.exe", platform::registry_type::string, "moved"));
        ASSERT_TRUE(key.set("tvram settings", platform::registry_type::string, folder));
        EXPECT_EQ(root.run_key(row.key), 0);
        EXPECT_EQ(registered("tvr_srv.exe"), row.server) << row.key;
        EXPECT_EQ(registered("tvram settings"), row.settings) << row.key;
        EXPECT_EQ(engine_root::process() != 0, row.runs) << row.key;
    }
}

// The current folder for a while.
class in_folder {
public:
    explicit in_folder(const fs::path& folder) : m_before(fs::current_path()) { fs::current_path(folder); }
    ~in_folder() { fs::current_path(m_before); }
    in_folder(const in_folder&) = delete;
    in_folder& operator=(const in_folder&) = delete;

private:
    fs::path m_before;
};

TEST(keys, register_the_whole_path) {
    const engine_root root;
    const fs::path server = platform::display_path(engine_root::server());
    const fs::path copy =
        root.path() / "x.software" / server.filename(); // the name looks like that of a library
    fs::create_directory(copy.parent_path());
    fs::copy_file(server, copy);
    const in_folder here(root.path());
    ASSERT_TRUE(platform::start_process(".\\x.software\\tvr_srv.exe", "/register"));
    engine_root::wait_for("its registration", [&] {
        return registered("tvr_srv.exe") == platform::from_display_path(copy.string());
    });
}

TEST(keys, merge_logs_and_dump_scores) {
    engine_root root;
    root.train(1, 20);
    const std::string words = (root.path() / "words.txt").string();
    write_file(words, "B offer\nB never seen");
    EXPECT_EQ(root.run_key("/getscores " + words), 0);
    EXPECT_EQ(read_file(root.path() / "words.out"), text_form("B offer\t0.99\nB never seen\tn/f\n\tn/f\n"));
    EXPECT_EQ(root.run_key("/mergelog " + (root.path() / "log").string()), 0);
    EXPECT_TRUE(holds(read_file(root.path() / "log/common.log"), " transac   [i] transaction::init"));
}

class commands : public testing::Test {
protected:
    engine_root root;
};

TEST_F(commands, look_at_the_files_of_a_training) {
    root.train(1, 60);
    root.stop();
    tvrctl("verify", 0);
    tvrctl("inspect /absent", 1);
    const std::string atom = (root.base() / "spamdict0000.bye").string();
    tvrctl("inspect " + atom, 0, "atom");
    EXPECT_EQ(nlohmann::json::parse(tvrctl("inspect --all --json " + atom, 0))["kind"], "atom");
    const struct {
        const char* file;
        std::size_t kept; // bytes; 0: the file goes
        std::string command;
        int code;
        const char* part;
    } rows[] = {
        {"spamdict0000.bye", 200, "verify", 1, "spamdict0000.bye"},
        {"spamdict0000.bye", 200, "inspect " + atom, 1, "offset"},
        {"spamdict0000.bye", 0, "verify", 1, "atoms are missing"},
        {"nspamdict.lst", 0, "verify", 1, "message IDs of 30 messages are missing"},
        {"cashe.rgd", 200, "status", 3, "there are"},
    };
    for (const auto& row : rows) {
        const std::string whole = read_file(root.base() / row.file);
        write_file(root.base() / row.file, whole.substr(0, row.kept));
        if (row.kept == 0)
            fs::remove(root.base() / row.file);
        tvrctl(row.command, row.code, row.part);
        write_file(root.base() / row.file, whole);
    }
    const auto state = nlohmann::json::parse(tvrctl("status --json", 0));
    EXPECT_TRUE(state["engine"]["pid"].is_null());
    EXPECT_EQ(state["base"]["published"].get<std::string>().back(), 'Z');
}

TEST_F(commands, say_what_they_did_not_understand) {
    tvrctl("bogus", 2, "no command \"bogus\"");
    tvrctl("statsu", 2, "do you mean \"status\"?");
    tvrctl("config lst", 2, "do you mean \"list\"?");
    tvrctl("purge", 1, "--yes");
}

TEST_F(commands, carry_the_base_over) {
    root.train(1, 60);
    const std::string text = (root.path() / "base.txt").string();
    tvrctl("export " + text, 0);
    EXPECT_TRUE(tvrctl("export", 0).starts_with(read_file(text)));
    const auto before = root.base_files();
    tvrctl("import " + text, 3); // over a base that is there
    tvrctl("purge --yes", 0);
    root.wait_for_purge();
    tvrctl("stop", 0);
    write_file(root.path() / "cut.txt", read_file(text).substr(0, 1000));
    tvrctl("import " + (root.path() / "cut.txt").string(), 3);
    EXPECT_LE(root.base_files().size(), 1U);
    fs::remove(root.base() / "cashe.rgd");
    tvrctl("import " + text, 0);
    EXPECT_TRUE(same_files(root.base_files(), before));
}

TEST_F(commands, forget_what_waits) {
    root.append(1, 10);
    tvrctl("forget \"<1.3>\"", 0, "won't be learned");
    tvrctl("forget \"<nobody@nowhere.example>\"", 1, "nobody");
    root.start();
    root.force();
    root.wait_until_trained();
    EXPECT_EQ(root.messages(), 9U);
    tvrctl("forget \"<1.3>\"", 1, "train");
}

TEST_F(commands, change_settings_that_the_engine_takes) {
    fs::create_directory(root.path() / "install");
    tvrctl("config set \"no such key\" 1", 2, "no such key");
    tvrctl("config root " + (root.path() / "install").string(), 0);
    tvrctl("config set \"training delay\" 0", 3, "training delay");
    tvrctl("config set \"training delay\" 1", 0);
    tvrctl("config set \"recalculating strategy\" 1", 0);
    EXPECT_EQ(tvrctl("config get \"Training Delay\"", 0), "1\n");
    tvrctl("config list", 0, "recalculating strategy             1\n");
    root.append(1, 10);
    tvrctl("start", 0);
    engine_root::wait_for("a training by itself", [&] { return !root.stamp().empty(); });
}

TEST_F(commands, take_a_relative_root) {
    const std::string whole = *platform::environment_variable("TESSIVAR_ROOT");
    const in_folder here(root.path().parent_path());
    platform::set_environment_variable("TESSIVAR_ROOT", root.path().filename().string());
    root.append(1, 10);
    tvrctl("start", 0);
    tvrctl("force", 0);
    root.wait_until_trained();
    tvrctl("stop", 0);
    platform::set_environment_variable("TESSIVAR_ROOT", whole);
}

TEST_F(commands, control_the_engine) {
    tvrctl("start", 0);
    const std::uint32_t process = engine_root::process();
    EXPECT_NE(process, 0U);
    tvrctl("start", 0, "runs already, as process " + std::to_string(process));
    root.append(1, 10);
    tvrctl("stop --if-idle 0", 1, "10 messages wait");
    tvrctl("force", 0);
    root.wait_until_trained();
    tvrctl("stop --if-idle 5", 1, "within the last 5 minutes");
    tvrctl("purge --yes", 0);
    root.wait_for_purge();
    EXPECT_EQ(engine_root::process(), process);
    tvrctl("stop --if-idle 0", 0);
    EXPECT_EQ(engine_root::process(), 0U);
    tvrctl("stop", 0);

    tvrctl("log off", 0);
    const std::string before = root.log("tvr_srv.log");
    root.start();
    root.stop();
    EXPECT_EQ(root.log("tvr_srv.log"), before);
    tvrctl("log on", 0);
    root.start();
    EXPECT_NE(root.log("tvr_srv.log"), before);
}

} // namespace
} // namespace tvr
