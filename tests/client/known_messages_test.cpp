// Which messages count as known: from lists and caches whose bytes are written by hand.

#include "client/known_messages.h"
#include "support/test.h"

namespace tvr {
namespace {

using namespace std::string_literals;

// A good message, waiting, with a one-letter ID and no tokens; `flags`: 1 deleted, 2 spam.
std::string waiting(char id, char flags) {
    return "\x04\x20\x06\x25\x06\0\0\0\x2A\0\0\0"s + flags + "\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\1"s +
           id + "\0\0\0\0\0\0\0\0"s;
}

const std::string list_head = "nSID\2\0\0\0\0\0\0\0\0\0\0\0"s;

TEST(known_messages_test, the_last_word_counts) {
    test_root root;
    const auto put = [&](const char* path, const std::string& bytes) {
        const auto file = root.path() / path;
        std::filesystem::create_directories(file.parent_path());
        write_file(file, bytes);
    };
    put("base/spamdict.lst", list_head + "\1a\1\0\0\0"s + "\1b\1\0\0\0"s + "\1c\0\0\0\0"s + "\1d\1\0\0\0"s);
    // The list of the other half is on its way.
    put("base/transact/0004/nspamdict.lst", list_head + "\1a\1\0\0\0"s + "\1e\1\0\0\0\1"s); // cut short
    put("base/transact/autotrain.bys",
        "\0\0\0\0"s + waiting('f', 2) + waiting('f', 0) + waiting('g', 1) + waiting('d', 0));
    put("base/transact/~autotrain.bys", "\0\0\0\0"s + waiting('f', 2));
    put("base/transact/0001/dis1.tmp", "\0\0\0\0"s + waiting('h', 2));
    put("base/transact/0002/data.bys", "\0\0\0\0"s + waiting('i', 2) + "rubbish");
    known_messages known(root.engine_path() + "\\");
    known.load();
    const auto text = [&](const char* id) {
        const known_as as = known.find(id);
        return std::string(as.ham ? "ham " : "") + (as.spam ? "spam " : "") + (as.waits ? "waits" : "");
    };
    const std::pair<const char*, const char*> cases[] = {
        {"a", "ham spam "}, {"b", "spam "}, {"c", ""},           {"d", "ham waits"}, {"e", "ham "},
        {"f", "ham waits"}, {"g", ""},      {"h", "spam waits"}, {"i", "spam waits"}};
    for (const auto& [id, wanted] : cases)
        EXPECT_EQ(text(id), wanted) << id;
    EXPECT_TRUE(known.is_learned("a", true, false));
    EXPECT_FALSE(known.is_learned("a", true, true));
    EXPECT_TRUE(known.is_learned("b", true, true));
    EXPECT_FALSE(known.is_learned("b", false, false));
    known.note("b", false);
    EXPECT_TRUE(known.is_learned("b", false, false));
}

} // namespace
} // namespace tvr
