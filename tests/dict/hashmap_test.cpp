#include "dict/hashmap.h"

#include <cmath>
#include <random>

#include "common/file_stream.h"
#include "common/token_hash.h"
#include "platform/change_hook.h"
#include "platform/error.h"
#include "support/test.h"
#include "token_list.h"

namespace tvr {
namespace {

using namespace std::literals;

std::string numbered(std::uint32_t number) {
    return "key" + std::to_string(number);
}

struct TokenMap : testing::Test {
    bool load(hashmap_impl& map, std::string_view bytes) {
        write_file(root.path() / "block", bytes);
        file_stream file;
        return file.open_to_read(root.engine_path("block")) && map.init_from_file(file);
    }
    std::string saved(hashmap_impl& map, bool ordered) {
        {
            file_stream file;
            file.create_to_write(root.engine_path("block"));
            EXPECT_TRUE(ordered ? map.flush_ordered(file) : map.flush(file));
        }
        return read_file(root.path() / "block");
    }

    test_root root;
};

TEST_F(TokenMap, BlocksByHand) {
    dword_map map;
    EXPECT_EQ(saved(map, false), le(0, 0));
    EXPECT_EQ(saved(map, true), le(0, 0));
    // By hand: order_hash of "bz" is 0x62, of "ay" and "ax" 0x61, of "q" 0.
    const std::string bz = counted("bz", 0x01020304);
    const std::string ay = counted("ay", 2);
    const std::string q = counted("q", 0);
    const std::string ax = counted("ax", 4);
    ASSERT_TRUE(load(map, le(4, 27) + bz + ay + q + ax + "and more"));
    EXPECT_EQ(listed(map), "bz=16909060 ay=2 q=0 ax=4 ");
    EXPECT_EQ(saved(map, true), le(4, 27) + q + ay + ax + bz);
    EXPECT_EQ(saved(map, false), le(4, 27) + bz + ay + q + ax) << "ordering leaves the map as it was";
    EXPECT_EQ(map._get_value("b"), nullptr);
    EXPECT_EQ(map._get_value(""), nullptr);
    const std::uint32_t nine = 9;
    EXPECT_TRUE(map._assign("bz", &nine));
    EXPECT_TRUE(map._assign("ay", nullptr)) << "leaves the value";
    EXPECT_EQ(load_u32(map.get_or_add("new")), 0U);
    map.compact();
    EXPECT_EQ(saved(map, false), le(3, 21) + counted("bz", 9) + ay + ax);
    for (const char* gone : {"q", "new"})
        EXPECT_EQ(map._get_value(gone), nullptr) << gone;

    float_map grades;
    const float kept[] = {0.5F, -0.0F, std::nanf("")};
    for (const float& grade : kept)
        ASSERT_TRUE(grades._assign(numbered(static_cast<std::uint32_t>(&grade - kept)), &grade));
    grades.compact();
    EXPECT_EQ(grades.count(), 2U);
    EXPECT_EQ(grades._get_value("key1"), nullptr) << "0.0 of either sign is dropped";
}

// The table has 1021 slots at first, and 69 percent of them are 704. It grows only on an insertion that had
// to probe, so that a block loaded tells another size than one grown by insertions that met empty slots.
TEST_F(TokenMap, GrowsOnlyOnAProbedInsertion) {
    dword_map map;
    std::vector<bool> taken(1021);
    std::uint32_t number = 0;
    const auto next_key = [&](bool probes) {
        for (;; ++number) {
            const std::uint32_t slot = probe_hash(numbered(number)) % 1021;
            if (taken[slot] == probes) {
                taken[slot] = true;
                return numbered(number++);
            }
        }
    };
    EXPECT_EQ(map.tablesize(), 0U);
    const std::uint32_t one = 1;
    for (int i = 0; i < 800; ++i) {
        ASSERT_TRUE(map._assign(next_key(false), &one));
        ASSERT_EQ(map.tablesize(), 1021U);
    }
    ASSERT_TRUE(map._assign(next_key(true), &one));
    EXPECT_EQ(map.tablesize(), 1481U);

    for (const auto& [count, slots] :
         {std::pair{704U, 1021U}, {710U, 1481U}, {1021U, 1481U}, {1022U, 2153U}}) {
        std::string entries;
        for (std::uint32_t i = 0; i < count; ++i)
            entries += counted(numbered(i), 1);
        ASSERT_TRUE(load(map, le(count, entries.size()) + entries));
        EXPECT_EQ(map.tablesize(), slots) << count;
    }
    for (std::uint32_t i = 3; i < 1022; ++i)
        store_u32(map._get_value(numbered(i)), 0);
    map.compact();
    EXPECT_EQ(map.tablesize(), 1021U) << "a rebuild may make it smaller";
    EXPECT_EQ(listed(map), "key0=1 key1=1 key2=1 ");
    put_in(map, {{"key0", 0}, {"key1", 0}, {"key2", 0}});
    map.compact();
    EXPECT_EQ(saved(map, false), le(0, 0));
    EXPECT_TRUE(map._assign("again", &one));
    EXPECT_EQ(listed(map), "again=1 ");
}

TEST_F(TokenMap, AgreesWithAReferenceMapOver100000Keys) {
    std::mt19937 random(5);
    dword_map map;
    std::map<std::string, std::uint32_t, std::less<>> expected;
    while (expected.size() < 100000) {
        std::string key(1 + random() % (random() % 8 == 0 ? 250 : 12), '\0');
        for (char& byte : key)
            byte = static_cast<char>(random());
        const auto count = static_cast<std::uint32_t>(random() % 4);
        std::uint8_t* value = map.get_or_add(key);
        store_u32(value, load_u32(value) + count);
        expected[key] += count;
    }
    const auto agrees = [&] {
        ASSERT_EQ(map.count(), expected.size());
        for (const auto& [key, count] : expected) {
            const std::uint8_t* value = map._get_value(key);
            ASSERT_TRUE(value != nullptr && load_u32(value) == count);
        }
        ASSERT_EQ(map._get_value("never there"), nullptr);
    };
    agrees();
    // Beyond 16 MiB the slots have no bits to spare.
    for (std::uint32_t i = 0; map.datasize() < 0x1000100; ++i)
        ASSERT_TRUE(map._assign(numbered(i) + std::string(240, 'x'), nullptr));
    for (const auto& [key, count] : expected)
        ASSERT_TRUE(map._get_value(key) != nullptr);
    map.clear();
    for (const auto& [key, count] : expected)
        map._assign(key, &count);
    ASSERT_TRUE(load(map, saved(map, true)));
    agrees();
    map.expect_absent_keys();
    agrees();
    for (std::uint32_t i = 0; i < 1000; ++i)
        ASSERT_EQ(map._get_value("absent" + std::to_string(i)), nullptr);
    std::string_view key;
    std::uint8_t* value = nullptr;
    std::uint32_t last = 0;
    for (map.rewind(); map.next(key, value);) {
        ASSERT_LE(last, order_hash(key));
        last = order_hash(key);
    }
    dword_map taken;
    taken.swap(map);
    ASSERT_EQ(taken.get_or_add("later")[0], 0);
    ASSERT_NE(taken._get_value("later"), nullptr);
    taken.swap(map);
    expected["later"] = 0;
    agrees();
    map.compact();
    std::erase_if(expected, [](const auto& entry) { return entry.second == 0; });
    agrees();
}

// One pass over ordered entries does what lookups do, also among keys of one hash, which differ in the last
// byte.
TEST_F(TokenMap, AddsDifferencesInOrder) {
    std::mt19937 random(7);
    const auto up_to = [&](std::uint32_t most) { return static_cast<std::uint32_t>(random() % most); };
    const auto fill = [&](dword_map& map, std::uint32_t least) {
        for (std::uint32_t left = up_to(300); left != 0; --left)
            store_u32(map.get_or_add(numbered(up_to(500))), least + up_to(3));
    };
    for (int round = 0; round < 100; ++round) {
        dword_map made, counts, looked_up, differences;
        fill(made, 0);
        fill(differences, 0U - 1);
        ASSERT_TRUE(load(counts, saved(made, true)) && load(looked_up, saved(made, true)));
        std::uint32_t sum = 0;
        std::string_view key;
        std::uint8_t* difference = nullptr;
        for (differences.rewind(); differences.next(key, difference);) {
            std::uint8_t* const count = looked_up.get_or_add(key);
            store_u32(count, load_u32(count) + load_u32(difference));
            sum += load_u32(difference);
        }
        looked_up.compact();
        const auto done = counts.add_in_order(differences);
        ASSERT_TRUE(done.has_value());
        ASSERT_EQ(done->sum, sum);
        ASSERT_EQ(saved(counts, false), saved(looked_up, true));
        for (looked_up.rewind(); looked_up.next(key, difference);)
            ASSERT_EQ(load_u32(counts._get_value(key)), load_u32(difference));
    }
    const std::string up = counted("aa", 1), down = counted("b", 1);
    const struct {
        std::string counts, differences;
    } refused[] = {{le(2, 13) + up + down, le(1, 7) + up},
                   {le(1, 7) + up, le(2, 12) + counted("", 1) + up},
                   {le(2, 12) + counted("", 1) + up, le(1, 7) + up}};
    for (const auto& each : refused) {
        dword_map counts, differences;
        ASSERT_TRUE(load(counts, each.counts) && load(differences, each.differences));
        EXPECT_FALSE(counts.add_in_order(differences).has_value());
        EXPECT_EQ(saved(counts, false), each.counts);
    }
}

TEST_F(TokenMap, SurvivesBlocksWhoseCountsLie) {
    const std::string a = counted("a", 1);
    const std::string b = counted("b", 2);
    const struct {
        const char* what;
        std::string bytes;
        bool loads;
        std::string tokens;
    } cases[] = {
        {"nothing", "", true, ""},
        {"head cut", le(1) + "\1\0"s, false, ""},
        {"count 0 and size 0", le(0, 0) + a, true, ""},
        {"count without size", le(1, 0) + a, false, ""},
        {"size without count", le(0, 12) + a + b, true, ""},
        {"count too low", le(1, 12) + a + b, true, "a=1 "},
        {"count too high", le(3, 12) + a + b, false, ""},
        {"count a little too high", le(2, 12) + counted("abcdefg", 1), true, "abcdefg=1 "},
        {"4 billion entries", le(0xFFFFFFFF, 12) + a + b, false, ""},
        {"size far beyond the file", le(2, 0xFFFFFFF0) + a + b, true, "a=1 b=2 "},
        {"size beyond the file", le(2, 60) + a + b, true, "a=1 b=2 "},
        {"entry cut", le(1, 7) + "\2ab\5"s, true, "ab=5 "},
        {"length byte over the end", le(2, 12) + a + "\x64"s + "bcde?", true, "a=1 "},
        {"value cut", le(2, 10) + a + b, true, "a=1 "},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.what);
        dword_map map;
        EXPECT_EQ(load(map, each.bytes), each.loads);
        EXPECT_EQ(listed(map), each.tokens);
        EXPECT_EQ(map._get_value("x"), nullptr);
        EXPECT_NE(map.get_or_add("x"), nullptr);
        EXPECT_EQ(listed(map), each.tokens + "x=0 ");
        map.compact();
        EXPECT_EQ(listed(map), each.tokens);
    }
}

TEST_F(TokenMap, TellsAFullDisk) {
    dword_map map;
    ASSERT_NE(map.get_or_add("x"), nullptr);
    file_stream file;
    ASSERT_TRUE(file.create_to_write(root.engine_path("block")));
    platform::set_change_hook([](auto, auto) { return platform::error::disk_full; });
    EXPECT_FALSE(map.flush_ordered(file));
    platform::set_change_hook(nullptr);
}

TEST_F(TokenMap, SkipsAnEvenNumberOfBytes) {
    const std::pair<std::uint32_t, std::uint64_t> cases[] = {
        {0, 8}, {6, 14}, {7, 14}, {0xFFFFFFFF, 0x100000006}};
    for (const auto& [size, position] : cases) {
        write_file(root.path() / "block", le(9, size) + "payload");
        file_stream file;
        ASSERT_TRUE(file.open_to_read(root.engine_path("block")));
        EXPECT_TRUE(hashmap_impl::skip(file));
        EXPECT_EQ(file.position(), position);
    }
}

} // namespace
} // namespace tvr
