#include "common/logger.h"

#include "support/platform_objects.h"
#include "support/test.h"

namespace tvr {
namespace {

using namespace std::literals;

class logger_test : public testing::Test {
protected:
    // A logger that has found these values, with its module in the folder "app" and its logs in "logs".
    logger& start(const std::string& flags, const std::string& level = {}) {
        machine_key key("Software");
        key.remove("EnableKWILLog");
        key.remove("KWILLogLevel");
        // deliberate: other types count as well
        EXPECT_TRUE(flags.empty() || key.set("EnableKWILLog", platform::registry_type::dword, flags));
        EXPECT_TRUE(level.empty() || key.set("KWILLogLevel", platform::registry_type::binary, level));
        std::filesystem::create_directories(logs);
        object.reset();
        object.emplace();
        object->configure(root.engine_path("app\\prog.v2.exe"), root.engine_path("logs"));
        return *object;
    }
    std::string content(const std::string& name) {
        std::string bytes = read_file(logs / name);
        std::filesystem::remove(logs / name);
        return bytes;
    }

    test_root root;
    std::filesystem::path logs = root.path() / "logs";
    std::optional<logger> object;
};

TEST_F(logger_test, is_off_unless_the_registry_says_otherwise) {
    struct {
        std::string flags;
        std::string level;
        bool enabled;
        bool second_level;
    } const table[] = {
        {le(4), "", true, false},        {le(6), le(2), true, true},      {le(1), le(9), false, false},
        {le(16 + 32), "", false, false}, {le(2), le(0), false, false},    {le(2), le(1), true, false},
        {"\2", "", true, false},         {le(2) + "x", "", false, false}, {le(2), "\2\0"s, true, true},
    };
    for (const auto& row : table) {
        start(row.flags, row.level);
        EXPECT_EQ(logger::enabled(), row.enabled) << &row - table;
        EXPECT_EQ(logger::enabled(2), row.second_level) << &row - table;
    }
    EXPECT_TRUE(std::filesystem::is_empty(logs));
    object.reset();
    EXPECT_FALSE(logger::enabled());
}

// The text with a 0 for each digit.
std::string shape(std::string text) {
    for (char& c : text)
        if (c >= '0' && c <= '9')
            c = '0';
    return text;
}

TEST_F(logger_test, lines) {
    const std::string date = "0000/00/00 00:00:00   ";
    const std::string thread = std::to_string(platform::current_thread_id()) + ":";
    const std::tuple<int, std::string, std::string> table[] = {
        {2, "[i] text", date + "[i] text\r\n"},
        {3, "text", "00:00:00   text\r\n"},
        {2 + 32, "text", date + thread + "text\r\n"},
        {2 + 16 + 1 + 32, "text", thread + "text"},
        {2, "", date + "\r\n"},
        {2, "one\r\ntwo\n", date + "one\r\ntwo\r\n\r\n"},
        {2 + 16, "\r\r\n\n\r", "\r\n\r\n"},
        {2 + 16, std::string(5000, 'x'), std::string(5000, 'x')},
        {2 + 16, std::string(20, 'x'), std::string(20, 'x')},
    };
    for (const auto& [flags, text, line] : table) {
        EXPECT_TRUE(start(le(flags)).log("t.log", "%s", text.c_str()));
        EXPECT_EQ(shape(content("t.log")), shape(line));
    }
    logger& log = start(le(18));
    log.log("t.log", "%d %s%%", -5, "a");
    log.log("t.log", "b");
    EXPECT_EQ(content("t.log"), "-5 a%b");
}

TEST_F(logger_test, names_lead_to_files) {
    logger& log = start(le(18));
    const std::pair<const char*, std::string> table[] = {
        {nullptr, "prog.v2.log"}, {"", "prog.v2.log"}, {"transact.log", "transact.log"}, {"\\lead", "lead"}};
    for (const auto& [name, file] : table) {
        log.log(name, "x");
        EXPECT_EQ(content(file), "x") << file;
    }
    log.log("c:\\full.log", "x");
    EXPECT_TRUE(platform::get_attributes("c:\\full.log"));
    EXPECT_TRUE(std::filesystem::is_empty(logs));
}

TEST_F(logger_test, the_first_line_fixes_the_folder) {
    const auto app = root.path() / "app";
    std::filesystem::create_directories(app);
    for (const bool there : {false, true}) {
        logger& log = start(le(18));
        log.configure(root.engine_path("app\\prog.exe"), "");
        if (there)
            std::filesystem::create_directory(app / "log");
        log.log("t.log", "x");
        EXPECT_EQ(log.folder(), root.engine_path(there ? "app\\log" : "app"));
        std::filesystem::create_directory(app / "log");
        log.log("u.log", "x");
        EXPECT_EQ(read_file((there ? app / "log" : app) / "u.log"), "x");
        std::filesystem::remove_all(app / "log");
    }
}

TEST_F(logger_test, rotation_keeps_one_generation) {
    logger& log = start(le(18));
    log.rotate("t.log");
    EXPECT_TRUE(std::filesystem::is_empty(logs));
    for (const char* text : {"first", "second", "third"}) {
        log.rotate("t.log");
        log.log("t.log", "%s", text);
    }
    EXPECT_EQ(read_file(logs / "t.log"), "third");
    EXPECT_EQ(read_file(logs / "t.0"), "second");
    log.log(default_log, "x");
    log.rotate(default_log);
    EXPECT_EQ(content("prog.v2.0"), "x");
    start(le(4)).rotate("t.log");
    EXPECT_EQ(read_file(logs / "t.log"), "third");
}

TEST_F(logger_test, a_line_that_cannot_be_written_is_lost) {
    logger& log = start(le(18));
    platform::file held;
    ASSERT_TRUE(held.open(root.engine_path("logs\\t.log"), platform::access::write, platform::share::read,
                          platform::creation::create_new));
    EXPECT_TRUE(log.log("t.log", "lost"));
    EXPECT_TRUE(log.log("no\\t.log", "lost"));
    held.close();
    log.log("t.log", "kept");
    EXPECT_EQ(content("t.log"), "kept");
}

} // namespace
} // namespace tvr
