// The index against a reference map, and against files that can't be true.
#include <algorithm>
#include <array>
#include <bit>
#include <random>

#include "msid/page_manager.h"
#include "support/test.h"

namespace tvr {
namespace {

using namespace std::literals;

using reference = std::map<key11, std::uint32_t>;

// A tree that can be walked by its bytes.
class walked_tree : public msidtree {
public:
    using msidtree::msidtree;

    // The leaves hold just these entries in this order, every page is reached once, all keys lie within the
    // bounds that lead to them, leaves stand at one depth, pages are at least half full, and zeros follow the
    // used slots.
    void check(const reference& expected) {
        m_next = expected.begin();
        m_end = expected.end();
        m_reached.assign(m_filesize / 512, false);
        m_pages = m_leaf_depth = 0;
        walk(m_root, nullptr, nullptr, 1);
        EXPECT_TRUE(m_next == m_end) << "entries are missing";
        EXPECT_EQ(m_pages + 1, m_filesize / 512) << "a page is lost";
        EXPECT_LE(m_leaf_depth, 2 + std::bit_width(expected.size()) / 4) << "half full pages give 16 ways";
    }
    using pmanager::m_filesize;

private:
    void walk(std::uint32_t at, const key11* low, const key11* high, unsigned depth) {
        ASSERT_TRUE(at >= 512 && at % 512 == 0 && at < m_filesize) << at;
        ASSERT_FALSE(m_reached[at / 512]) << "two ways lead to page " << at;
        m_reached[at / 512] = true;
        ++m_pages;
        const std::uint8_t* bytes = m_map.at(at);
        unsigned n = 0;
        while (n < 32 && bytes[n * 16 + 4] != 0)
            ++n;
        const bool leaf = n == 0 || bytes[4] == 2;
        bool sound = (at == m_root || n >= 16) && std::count(bytes + n * 16, bytes + 512, 0) == 512 - n * 16;
        std::array<key11, 33> keys;
        for (unsigned i = 0; i < n; ++i) {
            keys[i] = key11::load(bytes + i * 16 + 5);
            sound = sound && bytes[i * 16 + 4] == (leaf ? 2 : 3) && (i == 0 || keys[i - 1] < keys[i]);
        }
        sound = sound &&
                (n == 0 || ((low == nullptr || *low <= keys[0]) && (high == nullptr || keys[n - 1] < *high)));
        ASSERT_TRUE(sound) << "page " << at << " with " << n << " slots";
        if (leaf && m_leaf_depth == 0)
            m_leaf_depth = depth;
        ASSERT_TRUE(!leaf || m_leaf_depth == depth);
        for (unsigned i = 0; i < n; ++i) {
            const std::uint32_t value = load_u32(bytes + i * 16);
            if (leaf) {
                ASSERT_TRUE(m_next != m_end && m_next->first == keys[i] && m_next->second == value);
                ++m_next;
            } else {
                walk(value, &keys[i], i + 1 < n ? &keys[i + 1] : high, depth + 1);
            }
        }
    }

    reference::const_iterator m_next, m_end;
    std::vector<bool> m_reached;
    unsigned m_pages = 0;
    unsigned m_leaf_depth = 0;
};

std::string numbered(unsigned number) {
    const std::string digits = std::to_string(number);
    return std::string(10 - digits.size(), '0') + digits;
}

struct Index : testing::Test {
    test_root root;
    const std::filesystem::path file = root.path() / "a.idx";
    const std::string path = root.engine_path("a.idx");
};

struct key_order {
    const char* name;
    std::string (*id)(std::mt19937&, unsigned);
};

struct IndexOrder : Index, testing::WithParamInterface<key_order> {};

TEST_P(IndexOrder, AgreesWithAReferenceMap) {
    std::mt19937 random(7);
    reference expected;
    std::vector<std::string> known;
    constexpr unsigned number = 60000;
    {
        walked_tree tree(path);
        for (unsigned i = 0; i < number; ++i) {
            const std::string id = GetParam().id(random, i);
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
            if (i % 1000 != 999)
                continue;
            tree.check(expected);
            ASSERT_FALSE(HasFailure()) << i;
            for (unsigned probe = 0; probe < 1000; ++probe) {
                const std::string& one = known[random() % known.size()];
                ASSERT_EQ(tree.find(one), expected.at(key11::of(one)));
            }
            for (const std::string& one : {"never there " + numbered(i), ""s, std::string(255, 'z')})
                ASSERT_EQ(tree.find(one), 0U);
        }
        EXPECT_FALSE(tree.damaged());
    }
    walked_tree again(path);
    again.check(expected);
    EXPECT_EQ(std::filesystem::file_size(file), again.m_filesize);
}

INSTANTIATE_TEST_SUITE_P(
    Of, IndexOrder,
    testing::Values(key_order{"Random",
                              [](std::mt19937& r, unsigned) { return numbered(static_cast<unsigned>(r())); }},
                    key_order{"Ascending", [](std::mt19937&, unsigned i) { return numbered(i); }},
                    key_order{"Descending", [](std::mt19937&, unsigned i) { return numbered(99999 - i); }},
                    // The two tens fold to one, so that there are far fewer keys than IDs.
                    key_order{"Colliding",
                              [](std::mt19937& r, unsigned) {
                                  const unsigned part = static_cast<unsigned>(r()) % 80000;
                                  return numbered(part) + numbered(part / 10 * 10);
                              }}),
    [](const auto& each) { return each.param.name; });

TEST(MessageKey, FoldsByHand) {
    const struct {
        std::string id, key;
    } cases[] = {
        {"", "           "},
        {"abc", "\3abc       "},
        {"0123456789A", "\x0Bq123456789"}, // '0' ^ 'A' is 'q'
        {"aaaaaaaaaaaaaaaaaaaaB", "\x15"
                                  "B         "}, // two equal tens cancel each other out
        {std::string(256, 'x'), "       xxxx"},  // the low byte of 256 is 0; 25 tens and six more
        {std::string("\0\xFF", 2), "\2 \xFF        "},
    };
    for (const auto& c : cases) {
        std::string bytes(key11::size, '?');
        key11::of(c.id).store(reinterpret_cast<std::uint8_t*>(bytes.data()));
        EXPECT_EQ(bytes, c.key) << c.id;
    }
    // The order is that of unsigned bytes, with the length in front.
    EXPECT_LT(key11::of("zz"), key11::of("aaa"));
    EXPECT_LT(key11::of("a\x7F"), key11::of("a\x80"));
    EXPECT_LT(key11::of("aaaaaaaaa\x7F"), key11::of("aaaaaaaaa\x80"));
}

// One leaf takes 32 keys; the next one splits it in half and puts a root over the two.
TEST_F(Index, WritesThePagesByHand) {
    {
        msidtree tree(path);
        for (unsigned i = 33; i > 0; --i)
            tree.insert(std::string(1, static_cast<char>(i)), i, false);
    }
    const auto slot = [](std::uint32_t value, char flags, unsigned key) {
        return le(value) + flags + '\1' + static_cast<char>(key) + "         ";
    };
    // The 32 keys are 33 to 2: 16 stay at 512, those from 18 on move to 1024, and then comes key 1.
    std::string expected = le(0x12351237, 3, 1536, 2048, 33);
    expected.resize(512);
    for (unsigned i = 1; i <= 17; ++i)
        expected += slot(i, 2, i);
    expected.resize(1024);
    for (unsigned i = 18; i <= 33; ++i)
        expected += slot(i, 2, i);
    expected.resize(1536);
    expected += slot(512, 3, 1) + slot(1024, 3, 18);
    expected.resize(2048);
    EXPECT_EQ(read_file(file), expected);
}

TEST_F(Index, SurvivesDamage) {
    const auto pages = [](std::string head, const std::string& slot = "") {
        head.resize(512);
        head += slot;
        head.resize(1024);
        return head;
    };
    const std::string sound = le(0x12351237, 3, 512, 1024, 1);
    const std::string key = "\1m         "s;
    const struct {
        const char* what;
        std::string bytes;
        bool counts_as_new;
    } cases[] = {
        {"empty", "", true},
        {"three bytes", "abc", true},
        {"foreign", pages("foreign"), true},
        {"31 values", pages(le(0x12351237, 31)), true},
        {"root outside", pages(le(0x12351237, 3, 4096, 1024, 1)), true},
        {"root askew", pages(le(0x12351237, 3, 513, 1024, 1)), true},
        {"no pages", pages(le(0x12351237, 3, 512, 512, 1)), true},
        {"larger than the file", pages(le(0x12351237, 3, 512, 0x40000000, 1)), true},
        {"filesize of 4 GB", pages(le(0x12351237, 3, 512, 0xFFFFFE00, 1)), true},
        {"its own child", pages(sound, le(512) + "\3" + key), false},
        {"child 0", pages(sound, le(0) + "\3" + key), false},
        {"child outside", pages(sound, le(8192) + "\3" + key), false},
        {"not in use", pages(sound, le(512) + "\1" + key), false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        write_file(file, c.bytes);
        msidtree tree(path);
        EXPECT_EQ(tree.find("x"), 0U);
        tree.insert("x", 5, true);
        EXPECT_EQ(tree.find("x"), c.counts_as_new ? 5U : 0U);
        EXPECT_EQ(tree.count(), c.counts_as_new ? 1U : 2U);
        EXPECT_TRUE(c.counts_as_new || tree.damaged());
        EXPECT_LE(std::filesystem::file_size(file), 128 * 1024U);
    }
}

} // namespace
} // namespace tvr
