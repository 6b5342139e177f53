// The merging of the logs, through the key of the command line.

#include "platform/entry.h"
#include "platform/file.h"
#include "support/test.h"

namespace tvr {
namespace {

using namespace std::literals;

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

} // namespace
} // namespace tvr
