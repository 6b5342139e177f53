// The jobs of the keys "/mergelog" and "/getscores".

#include "common/path.h"
#include "platform/entry.h"
#include "platform/file.h"
#include "platform/process.h"
#include "server/score_dump.h"
#include "support/test.h"

namespace tvr {
namespace {

using namespace std::literals;

// The merging of the logs, through the key of the command line.
class log_merge : public testing::Test {
protected:
    // What becomes of these logs.
    [[nodiscard]] std::string merged(const files& logs) const {
        const auto folder = root.path() / "logs";
        std::filesystem::remove_all(folder);
        write_file(folder / "common.log", "an old one, which goes away whatever there is to merge");
        for (const auto& [name, text] : logs)
            write_file(folder / name, text);
        EXPECT_EQ(engine_main("/mergelog " + root.engine_path("logs")), 0);
        for (const auto& [name, text] : logs)
            EXPECT_EQ(read_file(folder / name), text) << "the sources stay";
        return read_file(folder / "common.log");
    }

    test_root root;
};

TEST_F(log_merge, orders_lines_by_stamp_and_log) {
    EXPECT_EQ(merged({}), "");
    EXPECT_EQ(merged({{"tvr_srv.log", "2006/07/14 09:05:03   b\r\n"
                                      "2006/07/14 09:05:02   out of order, so it waits\r\n"
                                      "2006/07/14 09:05:09   e\r\n"},
                      {"profiler.log", "2006/07/14 09:05:03   c\r\n2006/07/14 09:05:04   d\r\n"},
                      {"tvr_ipc.log", "2006/07/14 09:05:03   a\r\n"},
                      {"transact.log", "2005/12/31 23:59:59   first\r\n"},
                      {"tvr_srv.0", "2000/01/01 00:00:00   rotated\r\n"},
                      {"other.log", "2000/01/01 00:00:00   unknown\r\n"}}),
              text_form("2005/12/31 23:59:59  transac   first\n"
                        "2006/07/14 09:05:03  tvr_ipc   a\n"
                        "2006/07/14 09:05:03  tvr_srv   b\n"
                        "2006/07/14 09:05:02  tvr_srv   out of order, so it waits\n"
                        "2006/07/14 09:05:03  profile   c\n"
                        "2006/07/14 09:05:04  profile   d\n"
                        "2006/07/14 09:05:09  tvr_srv   e\n"));
    // What follows the 19 characters plays no part, and bytes above 127 come last.
    EXPECT_EQ(
        merged({{"enum.log", "2006/07/14 09:05:03 A"},
                {"selection.log", "2006/07/14 09:05:03 B"},
                {"tvr_ipc.log", "\xE9t\xE9"}}),
        text_form("2006/07/14 09:05:03  selecti B\n2006/07/14 09:05:03  enum.lo A\n\xE9t\xE9 tvr_ipc\n"));
}

TEST_F(log_merge, cuts_a_log_into_lines) {
    const std::string full = "2006/07/14 09:05:03 "; // 20 characters
    const std::string rest(4096 - 20, 'x');
    const std::pair<std::string, std::string> table[] = {
        {"", ""},
        {"\r\n\n\r", ""},
        {"\r\n\nshort\r\n", "short memlog.\n"},
        {"a\n\n\nb", "a memlog.\nb memlog.\n"},
        {full, full + " memlog.\n"},
        {full + "+", full + " memlog. +\n"},
        {full + "head\r\nrest of it\r\n\r\nrest\nx\n",
         full + " memlog. head\r\nrest of it\r\n\r\nrest\nx memlog.\n"},
        {full + "head\nRest\n", full + " memlog. head\nRest memlog.\n"},
        {"r\nr\n", "r\nr memlog.\n"},
        {full + rest, full + " memlog. " + rest + "\n"},
        {full + rest + "yz\nnext", full + " memlog. " + rest + "\nyz memlog.\nnext memlog.\n"},
        {full + rest + "\nr", full + " memlog. " + rest + "\nr memlog.\n"},
        {std::string("a\nb\0c\nd", 7), "a memlog.\nb memlog.\n"}, // a zero byte is the end
        {std::string(5000, '\n') + "a", ""}, // nothing but line ends is an empty line, and so the end
    };
    for (const auto& [log, expected] : table)
        EXPECT_EQ(merged({{"memlog.log", log}}), text_form(expected)) << log.substr(0, 60);
}

TEST_F(log_merge, takes_the_folder_as_it_stands) {
    write_file(root.path() / "logs/tvr_ipc.log", "a");
    write_file(root.path() / "logs/tvr_srv.log", "b");
    platform::file holder; // a log that can't be opened counts as empty
    ASSERT_TRUE(holder.open(root.engine_path("logs\\tvr_ipc.log"), platform::access::write,
                            platform::share::read, platform::creation::open_existing));
    const std::string before = platform::current_directory();
    ASSERT_TRUE(platform::set_current_directory(root.engine_path("logs")));
    for (const std::string& line :
         {"/mergelog"s, "/mergelog "s, "/MERGELOG?"s + root.engine_path("logs\\")}) {
        EXPECT_EQ(engine_main(line), 0);
        EXPECT_EQ(read_file("common.log"), text_form("b tvr_srv\n")) << line;
        std::filesystem::remove("common.log");
    }
    EXPECT_TRUE(platform::set_current_directory(before));
    EXPECT_EQ(engine_main("/mergelog " + root.engine_path("absent")), 0);
}

// The scores of the tokens of a file, from an engine by hand.
constexpr const char* fake_engine = TVR_FAKE_ENGINE;

class score_dump : public testing::Test {
protected:
    [[nodiscard]] std::string dump(const std::string& text, const char* library = fake_engine) const {
        write_file(root.path() / "words.txt", text);
        write_file(root.path() / "words.out", "an old one");
        dump_scores(path, library);
        return read_file(root.path() / "words.out");
    }

    test_root root;
    std::string path = root.engine_path("words.txt");
};

TEST_F(score_dump, writes_a_line_for_each_and_one_for_the_end) {
    const std::pair<std::string, std::string> table[] = {
        {"", "\t1\n"}, // nothing asked for: the number of references
        {"\n", "\t1\n\t1\n"},
        {"0 0.123456789\n1 0.5\n-1 0.5\n2 1e10\n",
         "0 0.123456789\t0.123457\n1 0.5\tn/f\n-1 0.5\tFAILED. NULL BASE.\n2 1e10\t1e+10\n\t1\n"},
        {" 1 \n\n0 0", " 1 \tn/f\n\t1\n0 0\t0\n\t1\n"}, // with no line end, the same
        {"0 0.99\r\n", "0 0.99\r\t0.99\n\t1\n"},        // a carriage return that ends no line
    };
    for (const auto& [text, expected] : table) {
        EXPECT_EQ(dump(text_form(text)), text_form(expected)) << text;
        EXPECT_TRUE(std::filesystem::remove(root.path() / "released"));
    }
}

TEST_F(score_dump, names_its_output_after_the_input) {
    const std::pair<std::string, std::string> table[] = {
        {"a", "a.out"}, {"b.", "b.out"}, {"c.tar.gz", "c.tar.out"}, {"d.x\\e", "d.out"}};
    for (const auto& [input, output] : table) {
        dump_scores(root.engine_path(input), fake_engine);
        EXPECT_TRUE(std::filesystem::remove(root.path() / output)) << input;
    }
    dump_scores(root.engine_path("no folder\\x"), fake_engine);
    EXPECT_FALSE(std::filesystem::exists(root.path() / "no folder"));
}

TEST_F(score_dump, tells_failures_in_the_output) {
    const std::string unloadable = "Unable to load " + module_folder() + "tvr_no_such.dll\n";
    EXPECT_EQ(dump("fine\n", "tvr_no_such.dll"), text_form(unloadable));
    EXPECT_EQ(dump("fine\n", "zlib1.dll"), text_form("GetEngine failed.\n")); // it has no such export
    platform::set_environment_variable("TVR_NO_ENGINE", "1");
    EXPECT_EQ(dump("fine\n"), text_form("GetEngine failed.\n"));
    platform::set_environment_variable("TVR_NO_ENGINE", "");

    const std::string absent = root.engine_path("absent");
    const std::string unreadable = "Unable to open input file " + absent + "\n";
    dump_scores(absent, fake_engine);
    EXPECT_EQ(read_file(root.path() / "absent.out"), text_form(unreadable));
    EXPECT_TRUE(std::filesystem::exists(root.path() / "released")) << "the engine was asked for all the same";
    dump_scores(absent, "tvr_no_such.dll");
    EXPECT_EQ(read_file(root.path() / "absent.out"), text_form(unreadable + unloadable));
}

} // namespace
} // namespace tvr
