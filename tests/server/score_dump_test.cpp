// The scores of the tokens of a file, from an engine by hand.
#include "server/score_dump.h"

#include "common/path.h"
#include "platform/process.h"
#include "support/test.h"

namespace tvr {
namespace {

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
