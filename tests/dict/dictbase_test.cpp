#include "dict/dictbase.h"

#include "dict/dict_folder.h"
#include "platform/process.h"
#include "support/atom_bytes.h"
#include "support/child_process.h"
#include "support/test.h"

namespace tvr {
namespace {

std::string record(std::uint32_t flags) {
    return record_bytes(flags, 0, 0, "", le(0, 0));
}

struct DictBase : testing::Test {
    DictBase() {
        std::filesystem::create_directory(folder);
        base.init(root.engine_path("t\\autotrain.bys"));
    }

    test_root root;
    const std::filesystem::path folder = root.path() / "t";
    const std::filesystem::path cache = folder / "autotrain.bys";
    dictbase base;
};

TEST_F(DictBase, SnapshotsMoveOrMerge) {
    const auto expect_snapshot = [&](const std::string& bytes) {
        base.try_snapshot_to_tilda();
        EXPECT_EQ(folder_content(folder), (files{{"~autotrain.bys", bytes}}));
    };
    write_file(cache, le(3) + "first");
    expect_snapshot(le(3) + "first");
    write_file(cache, le(2) + std::string(500000, 'x'));
    expect_snapshot(le(5) + "first" + std::string(500000, 'x'));

    write_file(folder / "~autotrain.bys", le(7) + "stale");
    write_file(folder / "~~autotrain.bys", le(10) + "left over");
    write_file(cache, le(1) + "next");
    expect_snapshot(le(11) + "left overnext");
    expect_snapshot(le(11) + "left overnext"); // without a cache
    write_file(cache, "abc");                  // shorter than its count
    expect_snapshot(le(11) + "left overnext");

    dictbase unready;
    unready.try_snapshot_to_tilda();
    EXPECT_FALSE(unready.removeall());
    EXPECT_FALSE(base.removeall());
    write_file(cache, le(1));
    EXPECT_TRUE(base.removeall());
    EXPECT_FALSE(std::filesystem::exists(cache));
}

TEST_F(DictBase, CountsAndLooksForManualMarks) {
    EXPECT_EQ(base.message_count(), 0U);
    EXPECT_FALSE(base.has_manual_marks());
    const struct {
        std::string bytes;
        std::uint32_t count;
        bool manual;
    } cases[] = {
        {"", 0, false},
        {"\1\2\3", 0, false},
        {le(0x01020304), 0x01020304, false},
        {le(1) + record(3) + record(11), 1, false},
        {le(1) + record(3) + record(4), 1, true},
        {le(0) + record(15), 0, true},
        {le(1) + record(4).replace(8, 4, le(0)), 1, true}, // of length 0: looked at, then the walk ends
        {le(2) + record(3).replace(8, 4, le(0)) + record(4), 2, false},
        {le(2) + record(0) + "foreign" + record(4), 2, false},
        {le(2) + record(0).substr(0, 20), 2, false},
    };
    for (const auto& each : cases) {
        write_file(cache, each.bytes);
        EXPECT_EQ(base.message_count(), each.count);
        EXPECT_EQ(base.has_manual_marks(), each.manual);
        EXPECT_EQ(read_file(cache), each.bytes);
        EXPECT_FALSE(std::filesystem::exists(folder / "lock.bin"));
    }
}

// Answers whether another process gets the lock.
const child_role taker("taker", [](std::string_view path) {
    file_lock lock(path);
    return lock.try_acquire() ? 0 : 1;
});

TEST_F(DictBase, TheLockNestsAndKeepsOthersOut) {
    const std::string path = root.engine_path("t\\lock.bin");
    const auto file = folder / "lock.bin";
    write_file(file, le(12345) + "left by a process that died");
    file_lock lock;
    EXPECT_FALSE(lock.try_acquire()) << "without a path";
    lock.set_path(path);
    ASSERT_TRUE(lock.try_acquire());
    ASSERT_TRUE(lock.try_acquire());
    // Who doesn't ask for sharing may read it here; elsewhere nobody can.
    const std::string held = read_file(file);
    EXPECT_TRUE(held.empty() || held.starts_with(le(platform::current_process_id())));
    EXPECT_EQ(child_process("taker", path).join(), 1);
    file_lock other(path);
    EXPECT_FALSE(other.try_acquire()) << "nor another object of this process";
    lock.release();
    EXPECT_EQ(child_process("taker", path).join(), 1);
    lock.release();
    EXPECT_FALSE(std::filesystem::exists(file));
    lock.release(); // one too many does nothing
    EXPECT_EQ(child_process("taker", path).join(), 0);
    EXPECT_TRUE(other.try_acquire());
    other.release();

    // Where no lock file can be made, nobody is kept waiting for it.
    std::filesystem::remove_all(folder);
    EXPECT_EQ(base.message_count(), 0U);
    EXPECT_FALSE(base.has_manual_marks());
    base.try_snapshot_to_tilda();
}

struct DictFolder : testing::Test {
    std::string engine(const char* name) const { return root.engine_path(name) + "\\"; }

    test_root root;
};

TEST_F(DictFolder, ReservesTheLowestFreeName) {
    for (const char* name : {"d0000.bye", "d0001.bye", "d0003.bye", "d000A.bye"})
        write_file(root.path() / "a" / name, "");
    dict_folder folder(engine("a"), "d");
    for (const auto& [from, name] :
         {std::pair{0, "d0002.bye"}, {0, "d0004.bye"}, {10, "d000B.bye"}, {0x10000, "d10000.bye"}}) {
        EXPECT_EQ(folder.new_file(static_cast<std::uint32_t>(from)), engine("a") + name);
        EXPECT_EQ(read_file(root.path() / "a" / name), le(0x19780702, 5, 0, 0, 0, 0, 0));
    }
}

TEST_F(DictFolder, CopiesMovesAndReplaces) {
    const auto a = root.path() / "a", b = root.path() / "b", c = root.path() / "c";
    write_file(a / "d0000.bye", "new0");
    write_file(a / "d0002.bye", "new2");
    write_file(a / "e0000.bye", "other");
    write_file(a / "_d0001.bye", "aside");
    std::filesystem::create_directory(a / "dfolder.bye");
    write_file(b / "d0000.bye", "old0");
    write_file(b / "d0001.bye", "old1");
    for (const bool keep : {true, false}) {
        dict_folder(engine("a"), "d").copy_all(engine("b"), keep);
        EXPECT_EQ(
            folder_content(b),
            (files{{"d0000.bye", keep ? "old0" : "new0"}, {"d0001.bye", "old1"}, {"d0002.bye", "new2"}}));
    }
    dict_folder folder(engine("a"), "d");
    folder.enumerate("d*.bye");
    EXPECT_EQ(folder.files(), (std::vector<std::string>{"d0000.bye", "d0002.bye"}));
    folder.replace(engine("b"));
    EXPECT_EQ(folder.path(), engine("a"));
    EXPECT_EQ(folder_content(b), (files{{"d0000.bye", "new0"}, {"d0002.bye", "new2"}}));
    EXPECT_EQ(folder_content(a), (files{{"_d0001.bye", "aside"}, {"e0000.bye", "other"}}));

    std::filesystem::create_directory(c);
    dict_folder(engine("b"), "d").move_all(engine("c"));
    EXPECT_TRUE(std::filesystem::is_empty(b));
    EXPECT_EQ(folder_content(c).size(), 2U);
    dict_folder(engine("c"), "d").delete_all();
    EXPECT_TRUE(std::filesystem::is_empty(c));
}

} // namespace
} // namespace tvr
