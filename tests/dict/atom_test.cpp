#include "dict/atom.h"

#include "common/minutes.h"
#include "dict/message_reader.h"
#include "dict/ring.h"
#include "support/atom_bytes.h"
#include "support/platform_limits.h"
#include "support/test.h"
#include "token_list.h"

namespace tvr {
namespace {

struct Atom : testing::Test {
    Atom() { std::filesystem::create_directory(root.path() / "out"); }
    void open(std::string_view bytes) {
        std::filesystem::remove(file);
        write_file(file, bytes);
        atom.emplace();
        atom->open(root.engine_path("d0000.bye"));
    }

    test_root root;
    const std::filesystem::path file = root.path() / "d0000.bye";
    const std::filesystem::path out = root.path() / "out" / "d0000.bye";
    std::optional<bye_atom> atom;
};

TEST_F(Atom, PlanningCountsAndWidensTheSpan) {
    const struct {
        const char* what;
        head_values before;
        std::uint32_t stamp;
        bool positive;
        head_values after;
        std::size_t changes = 1;
    } cases[] = {
        {"first", {0, 0, 0, 0, 0}, 20000, true, {1, 0, 0, 20000, 0}},
        {"same time", {1, 2, 3, 20000, 0}, 20000, true, {2, 2, 3, 20000, 0}},
        {"later", {2, 0, 0, 20000, 0}, 20005, true, {3, 0, 0, 20000, 20005}},
        {"latest", {2, 0, 0, 20000, 20005}, 20006, true, {3, 0, 0, 20000, 20006}},
        {"earlier", {2, 0, 0, 20000, 20005}, 10000, true, {3, 0, 0, 20000, 20005}},
        {"earlier than the only one", {1, 0, 0, 20000, 0}, 10000, true, {2, 0, 0, 20000, 10000}},
        {"small stamps are used", {0, 0, 0, 0, 0}, 5, true, {1, 0, 0, 5, 0}},
        {"not ordinal by accident", {1, 0, 0, 0, 20000}, 20000, true, {2, 0, 0, 20000, 0}},
        {"a removal widens too", {2, 0, 0, 20000, 0}, 20005, false, {1, 0, 0, 20000, 20005}},
        {"below zero", {0, 0, 0, 20000, 0}, 20000, false, {minus(1), 0, 0, 20000, 0}},
        {"nothing to an ordinal one", {5, 0, 0, 20000, 20000}, 20000, true, {5, 0, 0, 20000, 20000}, 0},
        {"but from it", {5, 0, 0, 20000, 20000}, 20000, false, {4, 0, 0, 20000, 0}},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.what);
        open(atom_head_bytes(each.before));
        const std::uint32_t seen = bye_ring::messages_seen;
        atom->add_message(77, each.stamp, each.positive);
        const head_values& head = each.after;
        EXPECT_EQ(std::tie(atom->messages, atom->tokens, atom->occurrences, atom->oldest, atom->newest),
                  std::tie(head.messages, head.tokens, head.occurrences, head.oldest, head.newest));
        EXPECT_EQ(bye_ring::messages_seen - seen, head.messages - each.before.messages);
        ASSERT_EQ(atom->changes().size(), each.changes);
        for (const auto& change : atom->changes()) {
            EXPECT_EQ(change.offset, 77U);
            EXPECT_EQ(change.positive, each.positive);
        }
    }
    open("");
    atom->add_message(0, 0xFFFFFFFE, true);
    EXPECT_LE(atom->oldest, now_minutes()) << "a stamp from the future";

    open(atom_head_bytes({2, 0, 0, 20000, 0}));
    EXPECT_FALSE(atom->try_add(0, 20000, true, 2));
    EXPECT_TRUE(atom->try_add(0, 20000, true, 3));
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(atom->try_add(0, 20000, false, 0));
    EXPECT_FALSE(atom->try_add(0, 20000, false, 9)) << "nothing left";
}

TEST_F(Atom, Rewrites) {
    const auto an_atom = [](std::uint32_t count, std::uint32_t occurrences, const std::string& entries) {
        return atom_bytes({9, count, occurrences, 20000, 0}, count, entries);
    };
    const std::string usual = an_atom(2, 4, counted("ab", 3) + counted("cd", 1));
    const std::string fresh = atom_head_bytes({1, 0, 0, 20000, 0});
    const std::string damaged = atom_head_bytes({1, 2, 3, 20000, 0}) + le(9, 3) + "abc";
    const std::string cd = counted("cd", 1);
    const std::string with_aa = an_atom(3, 13, counted("ab", 5) + counted("aa", 7) + cd);
    const std::string with_one_ab = an_atom(2, 2, counted("ab", 1) + cd);
    const struct {
        const char* what;
        bool strict;
        token_list differences;
        std::string before, after; // empty: no file
        std::string left = {};     // of the differences: all are used up, if strict
    } cases[] = {
        {"nothing", true, {}, usual, usual},
        {"zeros", true, {{"ab", 0}, {"new", 0}}, usual, usual},
        {"more", true, {{"ab", 2}, {"aa", 7}}, usual, with_aa},
        {"one gone", true, {{"ab", minus(3)}}, usual, an_atom(1, 1, cd)},
        {"all gone", true, {{"ab", minus(3)}, {"cd", minus(1)}}, usual, ""},
        {"wraps", true, {{"cd", minus(3)}}, usual, an_atom(2, 1, counted("ab", 3) + counted("cd", minus(2)))},
        {"stops", false, {{"ab", minus(4)}, {"cd", minus(1)}, {"zz", minus(2)}}, usual, "", "ab=-1 zz=-2 "},
        {"takes", false, {{"ab", minus(2)}, {"zz", minus(2)}}, usual, with_one_ab, "zz=-2 "},
        {"gives too", false, {{"cd", 4}}, usual, an_atom(2, 8, counted("ab", 3) + counted("cd", 5))},
        {"has none of it", false, {{"zz", minus(2)}}, usual, usual, "zz=-2 "},
        {"fresh", true, {{"x", 1}}, fresh, atom_bytes({1, 1, 1, 20000, 0}, 1, counted("x", 1))},
        // A damaged block counts as empty; what its end leaves of the message IDs is carried on.
        {"damaged", true, {{"x", 1}}, damaged, atom_bytes({1, 1, 4, 20000, 0}, 1, counted("x", 1)) + "c"},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.what);
        open(each.before);
        std::filesystem::remove(out);
        write_file(out, "in the way");
        dword_map final;
        put_in(final, each.differences);
        ASSERT_TRUE(atom->rewrite(final, root.engine_path("out"), each.strict));
        EXPECT_EQ(std::filesystem::exists(out), !each.after.empty());
        EXPECT_EQ(read_file(out), each.after);
        EXPECT_EQ(read_file(file), each.before) << "the old file is as it was";
        EXPECT_EQ(link_count(file), each.after == each.before ? 2U : 1U);
        EXPECT_EQ(listed(final), each.left);
    }
    std::filesystem::remove(file);
    dword_map final;
    final.get_or_add("kept");
    EXPECT_FALSE(atom->rewrite(final, root.engine_path("out"), true));
    EXPECT_EQ(final.count(), 1U);
}

// The third section is carried along, and kept up to date by the changes.
TEST_F(Atom, AppliesMessagesToTokensAndIds) {
    std::string data = le(3) + message_bytes(20001, "<1>", 2, counted("ab", 2) + counted("cd", 1)) +
                       message_bytes(20002, "<2>", 2, counted("ab", 5) + counted("x", 1));
    const auto third = static_cast<std::uint32_t>(data.size());
    data += message_bytes(20001, "<cut>", 2, counted("z", 4) + counted("yy", 1));
    data.resize(data.size() - 3);
    write_file(root.path() / "data.bys", data);
    write_file(root.path() / "main" / "s.lst", "nSID" + le(2, 1, 0) + counted("<2>", 4));
    std::filesystem::create_directory(root.path() / "work");
    open(atom_bytes({1, 1, 1, 20000, 0}, 1, counted("q", 1)) + "nSID" + le(2, 2, 0) + counted("<2>", 3) +
         counted("<old>", 8));
    const std::uint32_t second = 4 + 32 + 4 + 8 + 14;
    atom->add_message(4, 20001, true);
    atom->add_message(second, 20002, false);
    atom->add_message(third, 20001, true);
    atom->add_message(second + 1, 20002, true); // no record there
    atom->add_message(1 << 20, 20002, true);

    message_reader reader;
    ASSERT_TRUE(reader.open(root.engine_path("data.bys")));
    msid_access ids;
    ids.open(root.engine_path("main\\"), root.engine_path("work\\"), "s");
    dword_map final;
    atom->apply_changes(final, reader, ids);
    EXPECT_EQ(listed(final), "ab=-3 cd=1 x=-1 z=4 ") << "without the token that is cut";
    EXPECT_EQ(ids.lookup("<1>"), 20001U);
    EXPECT_EQ(ids.lookup("<cut>"), 20001U);
    EXPECT_EQ(ids.lookup("<2>"), 0U);
    final.clear();
    put_in(final, {{"q", 1}});
    ASSERT_TRUE(atom->rewrite(final, root.engine_path("out"), true));
    EXPECT_EQ(read_file(out), atom_bytes({4, 1, 2, 20000, 20002}, 1, counted("q", 2)) + "nSID" + le(2, 3, 0) +
                                  counted("<old>", 8) + counted("<1>", 20001) + counted("<cut>", 20001));
    atom.reset();
    EXPECT_TRUE(std::filesystem::is_empty(root.path() / "tmp")) << "a temporary file stayed";
}

TEST_F(Atom, FoldsIntoItsPredecessor) {
    const struct {
        std::uint32_t oldest, newest, target_oldest, target_newest, then_oldest, then_newest;
    } cases[] = {
        {200, 300, 100, 0, 100, 300},   // the usual case
        {200, 300, 100, 150, 100, 300}, // a gap between them
        {200, 300, 100, 250, 100, 250}, // an overlap leaves the end alone
        {200, 0, 100, 150, 100, 0},     // one moment
        {50, 60, 100, 150, 50, 150},    // out of order
        {200, 300, 0, 0, 200, 300},     // a new target
    };
    write_file(root.path() / "data.bys", le(0));
    message_reader reader;
    ASSERT_TRUE(reader.open(root.engine_path("data.bys")));
    msid_access none;
    for (const auto& each : cases) {
        const std::string ids = "nSID" + le(2, 1, 0);
        write_file(root.path() / "t.bye",
                   atom_bytes({1, 1, 1, each.target_oldest, each.target_newest}, 1, counted("t", 1)) + ids +
                       counted("<t>", 1));
        bye_atom target;
        target.open(root.engine_path("t.bye"));
        open(atom_bytes({1, 2, 4, each.oldest, each.newest}, 2, counted("q", 3) + counted("z", 1)) + ids +
             counted("<q>", 2));
        dword_map final;
        put_in(final, {{"q", minus(1)}});
        atom->fold(final, reader, none, &target);
        EXPECT_EQ(target.oldest, each.then_oldest);
        EXPECT_EQ(target.newest, each.then_newest);
        EXPECT_EQ(listed(final), "q=2 z=1 ");
        ASSERT_TRUE(target.rewrite(final, root.engine_path("out"), true));
        EXPECT_TRUE(read_file(root.path() / "out" / "t.bye")
                        .ends_with(ids.substr(0, 8) + le(2, 0) + counted("<t>", 1) + counted("<q>", 2)));
        dword_map alone;
        atom->fold(alone, reader, none, nullptr);
        EXPECT_EQ(listed(alone), "q=3 z=1 ");
    }
}

} // namespace
} // namespace tvr
