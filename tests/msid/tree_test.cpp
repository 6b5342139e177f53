// The index against a reference map, and against files that can't be true.
#include <bit>
#include <cstdio>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <set>

#include "msid/page_manager.h"
#include "support/file_bytes.h"
#include "support/test_root.h"

namespace {

using namespace std::literals;
using tvr::key11;
using tvr::le;

// A tree that can be walked by its bytes.
class walked_tree : public tvr::msidtree {
public:
    using msidtree::msidtree;

    // Every page is reached once, keys ascend within their bounds, leaves stand at one depth, pages are at
    // least half full, and the used slots stand in front of zeros. Answers the leaf entries.
    std::map<key11, std::uint32_t> check() const {
        std::map<key11, std::uint32_t> entries;
        std::set<std::uint32_t> pages;
        unsigned leaf_depth = 0;
        walk(m_root, nullptr, nullptr, 1, leaf_depth, pages, entries);
        EXPECT_EQ(pages.size() + 1, m_filesize / 512) << "a page is lost";
        // Half full pages give at least 16 ways.
        EXPECT_LE(leaf_depth, 1 + std::bit_width(entries.size()) / 4 + 1);
        return entries;
    }
    using pmanager::m_filesize;
    using pmanager::m_root;

private:
    void walk(std::uint32_t at, const key11* low, const key11* high, unsigned depth, unsigned& leaf_depth,
              std::set<std::uint32_t>& pages, std::map<key11, std::uint32_t>& entries) const {
        ASSERT_TRUE(at >= 512 && at % 512 == 0 && at < m_filesize) << at;
        ASSERT_TRUE(pages.insert(at).second) << "two ways lead to page " << at;
        const std::uint8_t* bytes = m_map.at(at);
        unsigned n = 0;
        while (n < 32 && bytes[n * 16 + 4] != 0)
            ++n;
        for (unsigned i = n * 16; i < 512; ++i)
            ASSERT_EQ(bytes[i], 0) << "behind the used slots of page " << at;
        ASSERT_TRUE(at == m_root || n >= 16) << "page " << at << " has " << n;
        const bool leaf = n == 0 || bytes[4] == 2;
        std::vector<key11> keys;
        for (unsigned i = 0; i < n; ++i) {
            ASSERT_EQ(bytes[i * 16 + 4], leaf ? 2 : 3);
            keys.push_back(key11::load(bytes + i * 16 + 5));
            ASSERT_TRUE(i == 0 || keys[i - 1] < keys[i]) << "order in page " << at;
        }
        ASSERT_TRUE(n == 0 || low == nullptr || *low <= keys.front());
        ASSERT_TRUE(n == 0 || high == nullptr || keys.back() < *high);
        if (leaf) {
            ASSERT_TRUE(leaf_depth == 0 || leaf_depth == depth);
            leaf_depth = depth;
        }
        for (unsigned i = 0; i < n; ++i) {
            const std::uint32_t value = tvr::load_u32(bytes + i * 16);
            if (leaf)
                entries.emplace(keys[i], value);
            else
                walk(value, &keys[i], i + 1 < n ? &keys[i + 1] : high, depth + 1, leaf_depth, pages, entries);
        }
    }
};

std::string numbered(unsigned number) {
    char text[16];
    std::snprintf(text, sizeof text, "%010u", number);
    return text;
}

TEST(Index, AgreesWithAMapOver240000Keys) {
    tvr::test_root root;
    std::mt19937 random(7);
    const struct {
        const char* order;
        std::string (*id)(std::mt19937&, unsigned);
    } cases[] = {
        {"random", [](std::mt19937& r, unsigned) { return numbered(static_cast<unsigned>(r())); }},
        {"ascending", [](std::mt19937&, unsigned i) { return numbered(i); }},
        {"descending", [](std::mt19937&, unsigned i) { return numbered(99999 - i); }},
        // The two tens fold to one, so that there are some 8000 keys.
        {"colliding", [](std::mt19937& r, unsigned) {
             const unsigned part = static_cast<unsigned>(r()) % 8000;
             return numbered(part) + numbered(part ^ static_cast<unsigned>(r()) % 2);
         }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.order);
        const std::string path = root.engine_path(c.order + ".idx"s);
        std::map<key11, std::uint32_t> expected;
        std::vector<std::string> known;
        constexpr unsigned number = 60000;
        {
            walked_tree tree(path);
            for (unsigned i = 0; i < number; ++i) {
                const std::string id = c.id(random, i);
                const auto value = static_cast<std::uint32_t>(random() | 1);
                const bool replace = random() % 4 == 0;
                tree.insert(id, value, replace);
                const auto [entry, is_new] = expected.emplace(key11::of(id), value);
                if (!is_new && (replace || value < entry->second))
                    entry->second = value;
                known.push_back(id);
                if (random() % 4 == 0) { // taken out again, itself or an earlier one
                    const std::string& gone = known[random() % known.size()];
                    tree.insert(gone, 0, false);
                    expected[key11::of(gone)] = 0;
                }
                if (i % 1000 == 999) {
                    ASSERT_EQ(tree.check(), expected) << i;
                    for (unsigned probe = 0; probe < 1000; ++probe) {
                        const std::string& one = known[random() % known.size()];
                        ASSERT_EQ(tree.find(one), expected.at(key11::of(one)));
                    }
                    ASSERT_EQ(tree.find("never there " + numbered(i)), 0U);
                    ASSERT_EQ(tree.find(""), 0U);
                    ASSERT_EQ(tree.find(std::string(255, 'z')), 0U);
                }
                if (HasFailure())
                    return;
            }
            EXPECT_FALSE(tree.damaged());
        }
        walked_tree again(path);
        ASSERT_EQ(again.check(), expected);
        EXPECT_EQ(std::filesystem::file_size(root.path() / (c.order + ".idx"s)), again.m_filesize);
    }
}

TEST(Index, KeepsTheLowerValueUnlessItIsToReplace) {
    tvr::test_root root;
    walked_tree tree(root.engine_path("a.idx"));
    const struct {
        const char* id;
        std::uint32_t value;
        bool replace;
        std::uint32_t found;
    } steps[] = {
        {"one", 50, false, 50}, {"one", 60, false, 50}, {"one", 40, false, 40}, {"one", 41, false, 40},
        {"one", 70, true, 70},  {"two", 5, false, 5},   {"one", 71, false, 70}, {"one", 0, false, 0},
        {"one", 9, false, 0},   {"one", 9, true, 9},    {"", 3, false, 3},
    };
    for (const auto& step : steps) {
        tree.insert(step.id, step.value, step.replace);
        EXPECT_EQ(tree.find(step.id), step.found) << step.id << ' ' << step.value;
    }
    EXPECT_EQ(tree.count(), std::size(steps)) << "repeated insertions count";
}

// One leaf takes 32 keys; the next one splits it in half and puts a root over the two.
TEST(Index, WritesThePagesByHand) {
    tvr::test_root root;
    const auto file = root.path() / "a.idx";
    const std::string path = root.engine_path("a.idx");
    {
        tvr::msidtree tree(path);
        tree.insert("b", 0x01020304, false);
        tree.insert("a", 7, false);
    }
    const std::string leaf = le(7) + "\2\1a         " + le(0x01020304) + "\2\1b         ";
    std::string expected = le(0x12351237, 3, 512, 1024, 2);
    expected.resize(512);
    expected += leaf;
    expected.resize(1024);
    EXPECT_EQ(tvr::read_file(file), expected);

    std::filesystem::remove(file);
    {
        tvr::msidtree tree(path);
        for (unsigned i = 33; i > 0; --i)
            tree.insert(std::string(1, static_cast<char>(i)), i, false);
    }
    const auto slot = [](std::uint32_t value, char flags, unsigned key) {
        return le(value) + flags + '\1' + static_cast<char>(key) + "         ";
    };
    // The 32 keys are 33 to 2: 16 stay at 512, those from 18 on move to 1024, and then comes key 1.
    expected = le(0x12351237, 3, 1536, 2048, 33);
    expected.resize(512);
    for (unsigned i = 1; i <= 17; ++i)
        expected += slot(i, 2, i);
    expected.resize(1024);
    for (unsigned i = 18; i <= 33; ++i)
        expected += slot(i, 2, i);
    expected.resize(1536);
    expected += slot(512, 3, 1) + slot(1024, 3, 18);
    expected.resize(2048);
    EXPECT_EQ(tvr::read_file(file), expected);
}

TEST(Index, SurvivesDamage) {
    tvr::test_root root;
    const auto file = root.path() / "a.idx";
    const std::string path = root.engine_path("a.idx");
    const auto page = [](std::string bytes) {
        bytes.resize(512);
        return bytes;
    };
    const std::string key = "\1m         "s;
    const std::string inner = le(512) + "\3" + key;
    const struct {
        const char* what;
        std::string bytes;
        bool counts_as_new;
    } cases[] = {
        {"empty", "", true},
        {"three bytes", "abc", true},
        {"foreign", page("foreign") + page(""), true},
        {"31 values", page(le(0x12351237, 31)) + page(""), true},
        {"root outside", page(le(0x12351237, 3, 4096, 1024, 1)) + page(""), true},
        {"root askew", page(le(0x12351237, 3, 513, 1024, 1)) + page(""), true},
        {"no pages", page(le(0x12351237, 3, 512, 512, 1)) + page(""), true},
        {"larger than the file", page(le(0x12351237, 3, 512, 0x40000000, 1)) + page(""), true},
        {"filesize of 4 GB", page(le(0x12351237, 3, 512, 0xFFFFFE00, 1)) + page(""), true},
        {"its own child", page(le(0x12351237, 3, 512, 1024, 1)) + page(inner), false},
        {"child 0", page(le(0x12351237, 3, 512, 1024, 1)) + page(le(0) + "\3" + key), false},
        {"child outside", page(le(0x12351237, 3, 512, 1024, 1)) + page(le(8192) + "\3" + key), false},
        {"not in use", page(le(0x12351237, 3, 512, 1024, 1)) + page(le(512) + "\1" + key), false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        tvr::write_file(file, c.bytes);
        tvr::msidtree tree(path);
        EXPECT_EQ(tree.find("x"), 0U);
        tree.insert("x", 5, true);
        EXPECT_EQ(tree.find("x"), c.counts_as_new ? 5U : 0U);
        EXPECT_EQ(tree.count(), c.counts_as_new ? 1U : 2U);
        if (!c.counts_as_new) {
            EXPECT_TRUE(tree.damaged());
        }
        EXPECT_LE(std::filesystem::file_size(file), 128 * 1024U);
    }

    // Whatever its bytes are, a file is worked on without a fault.
    std::mt19937 random(3);
    for (unsigned round = 0; round < 200; ++round) {
        {
            std::filesystem::remove(file);
            tvr::msidtree tree(path);
            for (unsigned i = 0; i < 1500; ++i)
                tree.insert(numbered(i * 7919 % 1500), i + 1, false);
        }
        std::string bytes = tvr::read_file(file);
        for (unsigned i = 0; i < 60; ++i)
            bytes[512 + random() % (bytes.size() - 512)] = static_cast<char>(random());
        tvr::write_file(file, bytes);
        tvr::msidtree tree(path);
        for (unsigned i = 0; i < 500; ++i) {
            tree.find(numbered(i * 3));
            tree.insert(numbered(static_cast<unsigned>(random() % 4000)), i, i % 2 == 0);
        }
    }
}

} // namespace
