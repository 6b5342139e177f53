// Which messages count as known: from lists and caches whose bytes are written by hand.

#include "client/known_messages.h"
#include "support/atom_bytes.h"
#include "support/test.h"

namespace tvr {
namespace {

// A message that waits, with no tokens; `flags`: 1 deleted, 2 spam.
std::string waiting(const std::string& id, std::uint32_t flags) {
    return record_bytes(flags, 0, 0, id, le(0, 0));
}

TEST(known_messages_test, the_last_word_counts) {
    test_root root;
    const auto put = [&](const char* path, const std::string& bytes) {
        write_file(root.path() / path, bytes);
    };
    const std::string list = "nSID" + le(2, 0, 0);
    put("base/spamdict.lst", list + counted("a", 1) + counted("b", 1) + counted("c", 0) + counted("d", 1));
    // The list of the other half is on its way.
    put("base/transact/0004/nspamdict.lst", list + counted("a", 1) + counted("e", 1) + "\1"); // cut short
    put("base/transact/autotrain.bys",
        le(0) + waiting("f", 2) + waiting("f", 0) + waiting("g", 1) + waiting("d", 0));
    put("base/transact/~autotrain.bys", le(0) + waiting("f", 2));
    put("base/transact/0001/dis1.tmp", le(0) + waiting("h", 2));
    put("base/transact/0002/data.bys", le(0) + waiting("i", 2) + "rubbish");
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
