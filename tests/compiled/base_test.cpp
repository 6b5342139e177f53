// From atoms by hand to the compiled base by hand.
#include <bit>

#include "compiled/dict_pair.h"
#include "compiled/grading.h"
#include "support/atom_bytes.h"
#include "support/test.h"

namespace tvr {
namespace {

// Single-precision numbers by their bits.
constexpr std::uint32_t highest = 0x3F7D70A4; // 0.99
constexpr std::uint32_t lowest = 0x3C23D70A;  // 0.01
constexpr std::uint32_t undefined = 0xFFFFFFFF;

TEST(Grading, ByHand) {
    const struct {
        std::int32_t spam, good;
        double k;
        std::uint32_t bits; // 0: not significant
    } cases[] = {
        {5, 0, 1.8, highest},
        {4, 0, 1.8, 0},
        {0, 3, 1.8, lowest},
        {0, 2, 1.8, 0},
        {2, 2, 1.8, 0x3EB6DB6E},   // 0.02 / 0.056
        {10, 10, 1.8, 0x3EB6DB6E}, // 0.1 / 0.28 = 5/14
        {300, 0, 1.8, highest},
        {300, 300, 1.8, 0x3F000000}, // both clamped to 1
        {50, 300, 1.8, 0x3EAAAAAB},  // 0.5 / 1.5
        {99, 1, 1.0, highest},       // 0.99 / 1 exactly
        {3, 2, 1.0, 0x3F19999A},     // the significance test asks for five at least; 0.6
        {3, 1, 1.0, 0},
        {0, 300, 1.8, lowest},
        {1, 300, 1.8, lowest}, // 0.01 / 1.01
    };
    for (const auto& each : cases) {
        grading_run run;
        run.k = each.k;
        run.header.spam_messages = run.header.nonspam_messages = 100;
        token_record record{"token", each.good, each.spam};
        const bool significant = is_significant(record, run);
        EXPECT_EQ(significant ? std::bit_cast<std::uint32_t>(probability(record, run)) : 0, each.bits)
            << each.spam << ' ' << each.good;
    }
}

struct Base : testing::Test {
    Base() {
        values.working_directory.expanded = root.engine_path() + "\\";
        std::filesystem::create_directories(folder);
    }
    void put(const std::string& name, std::string_view bytes) { write_file(folder / name, bytes); }
    std::string generate() {
        EXPECT_TRUE(dict_pair(root.engine_path("base\\")).generate_base(root.engine_path("base.rgd")));
        return read_file(root.path() / "base.rgd");
    }

    test_root root;
    settings& values = default_settings();
    const std::filesystem::path folder = root.path() / "base";
};

TEST_F(Base, ByHand) {
    put("spamdict0000.bye",
        atom_bytes({60, 3, 18, 20000, 20009}, 3, counted("q", 3) + counted("ax", 5) + counted("bz", 10)));
    put("spamdict0001.bye",
        atom_bytes({40, 3, 306, 30000, 0}, 3, counted("q", 2) + counted("ay", 4) + counted("cc", 300)));
    put("nspamdict0000.bye",
        atom_bytes({100, 4, 315, 25000, 0}, 4,
                   counted("aw", 3) + counted("az", 2) + counted("bz", 10) + counted("cc", 300)));
    put("spamdict0002.bye", atom_head_bytes({0, 0, 0, 0, 0}));
    // Of one hash (all of "a?") the tokens stand in the order in which the merge met them; "ay" and "az" are
    // too rare.
    EXPECT_EQ(generate(), "DASJ" + le(8, 100, 100, 6, 4, 20000, 20009, 25000, 0) + le(5, 34) +
                              counted("q", highest) + counted("ax", highest) + counted("aw", lowest) +
                              counted("bz", 0x3EB6DB6E) + counted("cc", 0x3F000000));
    EXPECT_FALSE(std::filesystem::exists(folder / "spamdict0002.bye"));
    values.regarding_threshold = 2.5; // the weight of the good count: "az" counts now, and "bz" less
    EXPECT_EQ(generate().substr(40), le(6, 41) + counted("q", highest) + counted("ax", highest) +
                                         counted("aw", lowest) + counted("az", lowest) +
                                         counted("bz", 0x3E924925) +
                                         counted("cc", 0x3F000000)); // 0.1 / 0.35 = 2/7
}

TEST_F(Base, CountsManyTokensOfOneHash) {
    // They differ in the last byte alone; the second atom has them the other way round. Both atoms are larger
    // than the buffer they are read through.
    std::string up, down, graded;
    for (int c = 1; c < 256; ++c) {
        const std::string token = std::string(100, 'a') + static_cast<char>(c);
        up += counted(token, 3);
        down.insert(0, counted(token, 2));
        graded += counted(token, highest);
    }
    put("spamdict0000.bye", atom_bytes({60, 255, 765, 20000, 20009}, 255, up));
    put("spamdict0001.bye", atom_bytes({40, 255, 510, 30000, 0}, 255, down));
    put("nspamdict0000.bye", atom_bytes({100, 1, 1, 25000, 0}, 1, counted("z", 1)));
    EXPECT_EQ(generate().substr(40), le(255, graded.size()) + graded);
}

TEST_F(Base, EmptyOnesHaveFortyEightBytes) {
    EXPECT_EQ(generate(), "DASJ" + le(8, 0, 0, 0, 0, undefined, 0, undefined, 0) + le(0, 0));
    put("spamdict0000.bye", atom_bytes({60, 1, 50, 20000, 20009}, 1, counted("q", 50)));
    EXPECT_EQ(generate(), "DASJ" + le(8, 0, 60, 1, 0, 20000, 20009, undefined, 0) + le(0, 0))
        << "one empty half";
    put("nspamdict0000.bye", atom_bytes({60, 1, 1, 25000, 0}, 1, counted("z", 1)));
    put("spamdict0000.bye", atom_bytes({60, 1, 4, 20000, 20009}, 1, counted("q", 4)));
    EXPECT_EQ(generate().substr(40), le(0, 0)) << "nothing significant";
}

// Nothing but spam-only header tokens that are frequent and plain.
TEST_F(Base, WritesTheSelectiveList) {
    const std::string opening = R"x((?x-i)[\r\t\s\,\;\:\/\=\\\"\(\)\{\}\[\]\']()x";
    const std::string closing = R"x()[\r\t\s\,\;\:\/\=\\\"\(\)\{\}\[\]\'])x" + text_form("\n");
    const std::string entries = counted("H a.b", 10) + counted("H few", 9) + counted("H good", 30) +
                                counted("F x", 30) + counted("H h 0123ABCD", 30) + counted("H (<|>)", 11) +
                                counted("H \xE4", 30) + counted("H \xBB\x96", 30) + counted("H ", 30);
    const std::string whole = opening + "a\\.b|(\\<\\|\\>)|\\\xBB\\\x96" + closing;
    put("spamdict0000.bye", atom_bytes({100, 9, 1, 20000, 0}, 9, entries));
    put("nspamdict0000.bye", atom_bytes({100, 1, 1, 20000, 0}, 1, counted("H good", 1)));
    put("selective.txt", "an older one");
    values.export_selective_download = 0;
    generate();
    EXPECT_EQ(read_file(folder / "selective.txt"), "an older one");
    values.export_selective_download = 1;
    values.selective_download_spam_threshold = 10;
    generate();
    EXPECT_EQ(read_file(folder / "selective.txt"), whole);
    EXPECT_FALSE(std::filesystem::exists(folder / "~selective.txt"));
    std::filesystem::remove(root.path() / "base.rgd");
    std::filesystem::create_directory(root.path() / "base.rgd");
    put("selective.txt", "an older one");
    EXPECT_TRUE(dict_pair(root.engine_path("base\\")).generate_base(root.engine_path("base.rgd")));
    EXPECT_EQ(read_file(folder / "selective.txt"), whole) << "whether the base can be written plays no part";

    // A line ends before the text that would take it beyond 40000 bytes.
    selective_list list;
    list.start();
    std::string line;
    for (int i = 0; i < 400; ++i) {
        list.add_token("H " + std::string(99, 'b'), 10);
        line += (i == 0 ? "" : "|") + std::string(99, 'b');
    }
    ASSERT_EQ(line.size(), 39999U);
    list.add_token("H c", 10);
    list.add_token("H d", 10);
    list.finish();
    EXPECT_EQ(read_file(folder / "selective.txt"), opening + line + "|c" + closing + opening + "d" + closing);
    list.start();
    list.finish();
    EXPECT_EQ(read_file(folder / "selective.txt"), "") << "an empty list replaces the old one";
}

} // namespace
} // namespace tvr
