// List files against bytes written by hand, and the map against a reference map.
#include <random>

#include "msid/msid_access.h"
#include "msid/msidmap.h"
#include "support/test.h"

namespace tvr {
namespace {

namespace fs = std::filesystem;

using namespace std::literals;

constexpr std::uint32_t signature = 0x4449536E;

std::string head(std::uint32_t records, std::uint32_t garbage) {
    return "nSID" + le(2, records, garbage);
}

std::string dead(std::size_t length) {
    return static_cast<char>(length) + std::string(length + 4, '\0');
}

// Three IDs of one key: the two tens of each fold to the same.
const std::string a = "01234567890000000000";
const std::string b = "00000000000123456789";
const std::string c = "01234000000000056789";

struct MessageMap : testing::Test {
    using numbers = std::vector<std::uint32_t>;

    void start_with(std::string_view bytes) {
        map.reset();
        fs::remove(index);
        write_file(list, bytes);
    }
    // From its files again.
    void open() {
        map.reset();
        map.emplace(folder, "m");
    }
    // The list without a map, and the number of keys that the index tells.
    std::string closed() {
        map.reset();
        return read_file(list);
    }
    std::string index_count() const { return read_file(index).substr(16, 4); }
    numbers found(const std::vector<std::string>& ids) {
        numbers values;
        for (const std::string& id : ids)
            values.push_back(map->search(id));
        return values;
    }

    test_root root;
    const std::string folder = root.engine_path() + "\\";
    const fs::path list = root.path() / "m.lst", index = root.path() / "m.idx";
    std::optional<msidmap> map;
};

TEST_F(MessageMap, WritesChainsAndGarbageByHand) {
    open();
    EXPECT_EQ(read_file(list), "");
    EXPECT_TRUE(map->insert(a, 0x11));
    EXPECT_TRUE(map->insert("x", 0x22));
    EXPECT_TRUE(map->insert("x", 0x99)) << "there already; the old value stands";
    EXPECT_TRUE(map->insert(b, 0x33)); // after x: the chain of a moves to the end
    EXPECT_TRUE(map->insert(c, 0x44)); // the chain is at the end and grows in place
    EXPECT_EQ(read_file(list).size(), 16U + 25 + 6 + 3 * 25) << "after each operation, for all to open";
    EXPECT_EQ(closed(), head(4, 25) + dead(20) + counted("x", 0x22) + counted(a, 0x11) + counted(b, 0x33) +
                            counted(c, 0x44));
    EXPECT_EQ(index_count(), le(4));
    open();
    EXPECT_EQ(found({a, b, c, "00000012340000056789"}), (numbers{0x11, 0x33, 0x44, 0})) << "all of one key";
    EXPECT_TRUE(map->remove(b));
    EXPECT_FALSE(map->remove(b));
    EXPECT_EQ(map->search(b), 0U);
    EXPECT_EQ(closed(),
              head(4, 25) + dead(20) + counted("x", 0x22) + counted(a, 0x11) + counted(c, 0x44) + dead(20));
    EXPECT_EQ(index_count(), le(4)) << "a record of a longer chain leaves the index alone";
    open();
    EXPECT_TRUE(map->remove("x"));
    EXPECT_EQ(map->search("x"), 0U);
    EXPECT_EQ(closed(), head(4, 25) + dead(20) + dead(1) + counted(a, 0x11) + counted(c, 0x44) + dead(20));
    EXPECT_EQ(index_count(), le(5));
    open(); // the counts differ: made again, and compact
    EXPECT_EQ(found({a, c}), (numbers{0x11, 0x44}));
    EXPECT_EQ(closed(), head(2, 0) + counted(a, 0x11) + counted(c, 0x44));
    open();
    map->clear();
    EXPECT_EQ(map->search(a), 0U);
    EXPECT_FALSE(map->remove(a));
    EXPECT_FALSE(fs::exists(list));
    EXPECT_TRUE(map->insert("z", 1));
    EXPECT_EQ(closed(), head(1, 0) + counted("z", 1));
}

TEST_F(MessageMap, DeleteIfKeepsTheRestOfEachChain) {
    start_with(head(5, 0) + counted("x", 1) + counted(a, 2) + counted(b, 3) + counted(c, 4) +
               counted("y", 5));
    numbers seen;
    open();
    EXPECT_TRUE(map->delete_if([&](std::string_view, std::uint32_t value) {
        seen.push_back(value);
        return value <= 3;
    }));
    EXPECT_EQ(found({"x", a, b, c, "y"}), (numbers{0, 0, 0, 4, 5}));
    EXPECT_TRUE(map->delete_if([&](std::string_view id, std::uint32_t value) {
        seen.push_back(value);
        return id == "nobody";
    }));
    EXPECT_TRUE(map->insert("x", 6)) << "an emptied chain takes its ID again";
    EXPECT_EQ(map->search("x"), 6U);
    EXPECT_EQ(seen, (numbers{1, 2, 3, 4, 5, 0, 4, 0, 0, 5}));
    EXPECT_EQ(closed(), head(6, 56) + dead(1) + counted(c, 4) + dead(20) + dead(20) + counted("y", 5) +
                            counted("x", 6));

    msidmap empty(folder, "e");
    EXPECT_FALSE(empty.delete_if([](std::string_view, std::uint32_t) { return true; }));
}

TEST_F(MessageMap, LeavesAListWithoutAHeaderToTheNextInsertion) {
    const std::string records = counted("one", 1) + counted("two", 2);
    const std::string before = "xSID" + le(2, 2, 0) + records;
    start_with(before);
    open();
    EXPECT_EQ(read_file(list), before);
    EXPECT_TRUE(map->insert("three", 3));
    EXPECT_EQ(closed(), head(1, 0) + records + counted("three", 3));
    fs::remove(index);
    open();
    EXPECT_EQ(map->search("one"), 1U);
    EXPECT_EQ(closed(), head(3, 0) + records + counted("three", 3));
}

TEST_F(MessageMap, ComparesLengthsBeforeKeys) {
    const std::string like_the_empty_one(32, ' ');
    start_with(head(2, 0) + counted(like_the_empty_one, 1) + counted("x", 2));
    open();
    EXPECT_TRUE(map->insert("", 3)); // no chain moves
    EXPECT_EQ(read_file(list), head(3, 0) + counted(like_the_empty_one, 1) + counted("x", 2) + counted("", 3))
        << "while it is open";
    EXPECT_EQ(map->search(""), 3U);
}

TEST_F(MessageMap, CompactsAtFivePercentAndAKilobyte) {
    const struct {
        std::size_t filler, last_length; // bytes of live records; three dead ones of 256 bytes and this
        bool compacts;
    } cases[] = {
        {0, 250, false},     // 1023 bytes of garbage are too few, even in 1039
        {0, 251, true},      //
        {19440, 251, true},  // 1024 of 20480 are 5 percent
        {19441, 251, false}, // and of 20481 they are 4
    };
    for (const auto& each : cases) {
        const auto id = [&](char letter) {
            return std::string(letter < 'd' ? 251 : each.last_length, letter);
        };
        std::string bytes, filler;
        for (const char letter : {'a', 'b', 'c', 'd'})
            bytes += counted(id(letter), 7);
        for (std::uint32_t i = 0; i < 80 && filler.size() < each.filler; ++i)
            filler += counted(std::to_string(1000 + i) + std::string(231, '.'), 1);
        if (each.filler != 0)
            filler += counted(std::string(each.filler - filler.size() - 5, '.'), 1);
        start_with(head(99, 0) + bytes + filler);
        open();
        for (const char letter : {'a', 'b', 'c', 'd'})
            EXPECT_TRUE(map->remove(id(letter)));
        EXPECT_EQ(map->garbage(), each.compacts ? 0U : 768 + each.last_length + 5);
        EXPECT_EQ(closed().size(), 16 + filler.size() + (each.compacts ? 0 : bytes.size()));
        EXPECT_TRUE(closed().ends_with(filler));
    }
}

TEST_F(MessageMap, IsMadeAnewWhateverHappenedToTheIndex) {
    open();
    for (std::uint32_t i = 1; i <= 5000; ++i)
        ASSERT_TRUE(map->insert("id" + std::to_string(i), i));
    // What a killed process leaves: an index with an old header.
    const std::pair killed(read_file(list), read_file(index));
    const std::string sound = closed(), whole = read_file(index);
    for (const auto& [of_list, of_index] :
         {killed, {sound, ""}, {sound, whole.substr(0, 1)}, {sound, whole.substr(0, 512)}}) {
        write_file(list, of_list);
        write_file(index, of_index);
        open();
        for (std::uint32_t k = 1; k <= 5000; ++k)
            ASSERT_EQ(map->search("id" + std::to_string(k)), k) << of_index.size();
        EXPECT_EQ(closed(), sound);
        EXPECT_EQ(fs::file_size(index), whole.size());
    }
}

// A list from before the garbage counter, and one from after some further value.
TEST_F(MessageMap, TakesOtherHeaders) {
    const std::string records = counted("one", 1) + counted("two", 2);
    for (const std::string& start : {le(signature, 0), le(signature, 1, 2), le(signature, 3, 2, 0, 77)}) {
        for (const bool with_index : {false, true}) {
            start_with(head(2, 0) + records);
            open(); // makes the index
            closed();
            if (!with_index)
                fs::remove(index);
            write_file(list, start + records);
            open();
            EXPECT_EQ(found({"one", "two"}), (numbers{1, 2})) << start.size();
            EXPECT_TRUE(map->insert("three", 3));
            EXPECT_EQ(closed(), head(3, 0) + records + counted("three", 3));
        }
    }
}

TEST_F(MessageMap, MergesAndRelabelsLiveRecordsOnly) {
    const std::string other = root.engine_path("other.lst");
    const fs::path file = root.path() / "other.lst";
    const auto bytes_with = [](std::uint32_t one, std::uint32_t of_b) {
        return le(signature, 3, 4, 0, 0) + counted("one", one) + dead(4) + counted("z\0z"s, 5) +
               counted(b, of_b) + "\7cut";
    };
    write_file(file, bytes_with(9, 6));
    start_with(head(2, 0) + counted("one", 1) + counted(a, 2));
    open();
    map->merge("");
    map->merge(root.engine_path("missing.lst"));
    map->merge(other);
    EXPECT_EQ(closed(), head(3, 0) + counted("one", 1) + counted(a, 2) + counted(b, 6));

    msidmap::relabel(other, 0x01020304);
    EXPECT_EQ(read_file(file), bytes_with(0x01020304, 0x01020304));
    msidmap::relabel(root.engine_path("missing.lst"), 1);
    EXPECT_TRUE(fs::is_empty(root.path() / "missing.lst"));
    for (const std::string& bytes : {""s, "nSID"s, le(signature, 0x40000000) + counted("one", 1)}) {
        write_file(file, bytes);
        msidmap::relabel(other, 1);
        msidmap(folder, "m").merge(other);
        EXPECT_EQ(read_file(file), bytes);
    }
}

TEST_F(MessageMap, AgreesWithAReferenceMap) {
    std::mt19937 random(11);
    std::map<std::string, std::uint32_t> expected;
    const auto make_id = [&] {
        // Some 600 keys with several IDs each; long ones, so that the list is compacted now and then.
        const std::string x = std::to_string(1000000000 + random() % 300);
        const std::string y = std::to_string(1000000000 + random() % 3);
        std::string id = random() % 2 == 0 ? x + y : y + x;
        return random() % 8 == 0 ? id + std::string(200, '+') : id;
    };
    open();
    for (std::uint32_t i = 1; i <= 30000; ++i) {
        const std::string id = make_id();
        if (const auto what = random() % 5; what < 2) {
            ASSERT_TRUE(map->insert(id, i));
            expected.emplace(id, i);
        } else if (what < 4) {
            ASSERT_EQ(map->remove(id), expected.erase(id) != 0);
        } else {
            ASSERT_EQ(map->search(id), expected.contains(id) ? expected.at(id) : 0);
        }
        if (i % 5000 == 3000) {
            ASSERT_TRUE(map->delete_if([](std::string_view, std::uint32_t value) { return value % 3 == 0; }));
            std::erase_if(expected, [](const auto& entry) { return entry.second % 3 == 0; });
        }
        if (i % 5000 == 0) {
            open();
            for (const auto& [known, value] : expected)
                ASSERT_EQ(map->search(known), value);
            std::size_t live = 0;
            map->delete_if([&](std::string_view, std::uint32_t value) {
                live += value != 0;
                return false;
            });
            ASSERT_EQ(live, expected.size());
        }
    }
}

struct MessageAccess : testing::Test {
    void open(std::string_view list) {
        write_file(root.path() / "main" / "s.lst", list);
        write_file(root.path() / "work" / "s.lst", "an older one");
        access.open(root.engine_path("main\\"), root.engine_path("work\\"), "s");
    }

    test_root root;
    msid_access access;
};

TEST_F(MessageAccess, WorksOnACopy) {
    access.add("nothing", 1);
    access.remove("nothing");
    EXPECT_EQ(access.lookup("nothing"), 0U);
    const std::string before = head(1, 0) + counted("old", 1);
    open(before);
    EXPECT_EQ(access.lookup("old"), 1U);
    access.add("new", 2);
    access.remove("old");
    fs::rename(root.path() / "work" / "s.lst", root.path() / "taken.lst");
    EXPECT_EQ(read_file(root.path() / "taken.lst").substr(24), counted("new", 2));
    EXPECT_EQ(read_file(root.path() / "main" / "s.lst"), before);
    access.reopen();
    EXPECT_EQ(access.lookup("old"), 1U);
    EXPECT_EQ(access.lookup("new"), 0U);
}

TEST_F(MessageAccess, PurgesWhatTheRangesClaim) {
    const std::uint32_t times[] = {9, 10, 20, 21, 30, 30, 30, 31}; // of the IDs a, b, ...
    std::string list = head(8, 0), left;
    for (char id = 'a'; id <= 'h'; ++id)
        list += counted({&id, 1}, times[id - 'a']);
    open(list);
    aged_out_list ranges = {{10, 20, false}, {30, 2, true}};
    access.purge(ranges);
    EXPECT_EQ(ranges[1].last, 0U) << "each claim lowers the count";
    for (char id = 'a'; id <= 'h'; ++id)
        left += id + std::to_string(access.lookup({&id, 1})) + " ";
    EXPECT_EQ(left, "a9 b0 c0 d21 e0 f0 g30 h31 ") << "of the three at 30 the first two are gone";
    EXPECT_FALSE(claims_time(ranges, 30));
    EXPECT_TRUE(claims_time(ranges, 10));
}

} // namespace
} // namespace tvr
