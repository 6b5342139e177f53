#include "dict/optimiser.h"

#include <cstdlib>

#include "dict/dict_folder.h"
#include "dict/ring.h"
#include "support/atom_bytes.h"
#include "support/test.h"

namespace tvr {
namespace {

struct Optimiser : testing::Test {
    Optimiser() {
        default_settings().optimal_one_dict_size = 200;
        std::filesystem::create_directories(folder);
    }
    std::string engine() const { return root.engine_path("base\\"); }

    test_root root;
    const std::filesystem::path folder = root.path() / "base";
};

TEST_F(Optimiser, PrunesTowardsTheTarget) {
    // Atoms from the oldest to the newest as their messages; below zero: an ordinal one.
    const struct {
        std::uint32_t target;
        std::vector<int> atoms, left;
    } cases[] = {
        {1600, {1000, 1000, 1000}, {1000, 1000}}, // 1400 before and 400 after; then 600 would be farther
        {1500, {1000, 1000, 1000}, {1000}},       // as far after as before: it goes
        {3000, {1000, 1000, 1000}, {1000, 1000, 1000}},
        {1500, {200, 200, 400, -300, 600, -200}, {200, 200, 400, 600}},
        {100, {500}, {500}}, // a half is never emptied
        {0, {500, 0, 500}, {500}},
        {900, {50, -2000, 900}, {900}},
        {400, {-1000, -100, 300}, {-100, 300}},
        {5, {}, {}},
    };
    for (const auto& each : cases) {
        atom_info_list list;
        std::uint32_t total = 0, time = 100;
        for (const int messages : each.atoms) {
            atom_info& info = *list.emplace_back(std::make_unique<atom_info>());
            info.messages = static_cast<std::uint32_t>(std::abs(messages));
            info.oldest = ++time;
            info.newest = messages < 0 ? time : 0;
            total += info.messages;
        }
        prune_atoms(each.target, total, list);
        std::vector<int> left;
        for (const auto& info : list)
            left.push_back(each.atoms.at(info->oldest - 101));
        EXPECT_EQ(left, each.left) << each.target;
    }
}

TEST_F(Optimiser, DividesOldAtoms) {
    const std::string entries =
        counted("ze", 1) + counted("yd", 2) + counted("xc", 3) + counted("wb", 4) + counted("va", 0x01000000);
    const std::string old = atom_bytes({450, 5, 0, 0, 0}, 5, entries);
    // The older form: three values, and no counts before the entries.
    const std::string older = le(0x19780702, 3, 450, 5, 0) + entries;
    for (const std::string& bytes : {old, older}) {
        for (const bool alone : {true, false}) {
            std::filesystem::remove_all(folder);
            write_file(folder / "d0000.bye", bytes);
            const std::string ids = "nSID" + le(2, 2, 0);
            write_file(folder / "d.lst", ids + counted("<1>", 7) + counted("<2>", 0));
            files expected = {{"_d0000.bye", bytes}};
            if (!alone) {
                expected["d0009.bye"] = atom_bytes({1, 1, 1, 20000, 0}, 1, counted("t", 1));
                write_file(folder / "d0009.bye", expected["d0009.bye"]);
            }
            dict_folder half(engine(), "d");
            EXPECT_EQ(half.reload_atoms(false), alone ? 3U : 4U);
            const std::uint32_t now = word_at(read_file(folder / "d0001.bye"), 20);
            EXPECT_GT(now, 213000000U);
            // Dealt in turn, and in the order of their hashes again.
            const std::string wb_ze = counted("wb", 4) + counted("ze", 1);
            const std::string va_yd = counted("va", 0x01000000) + counted("yd", 2);
            expected["d0001.bye"] = atom_bytes({150, 2, 5, now, now}, 2, wb_ze);
            expected["d0002.bye"] = atom_bytes({150, 2, 0x01000002, now, now}, 2, va_yd);
            expected["d0003.bye"] = atom_bytes({150, 1, 3, now, now}, 1, counted("xc", 3));
            expected["d.lst"] = ids + counted("<1>", alone ? now : 7) + counted("<2>", 0);
            EXPECT_TRUE(same_files(folder_content(folder), expected));
        }
    }
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root.path()))
        EXPECT_TRUE(!entry.is_regular_file() || entry.path().parent_path() == folder) << entry.path();
}

TEST_F(Optimiser, DividesOnlyWhatIsOldAndSound) {
    const auto old = [](std::uint32_t messages, std::uint32_t tokens, const std::string& entries) {
        return atom_bytes({messages, tokens, 3, 0, 0}, tokens, entries);
    };
    const std::string entries = counted("ab", 1) + counted("cd", 2);
    const struct {
        const char* what;
        std::string bytes;
        bool flag;
        std::string left; // names of atoms and pieces' entries
    } cases[] = {
        {"dated", atom_bytes({450, 2, 3, 20000, 0}, 2, entries), true, "d0000 "},
        {"one piece", old(200, 2, entries), true, "_d0000 d0001=2 "},
        {"empty", old(0, 2, entries), true, ""},
        {"empty but kept", old(0, 2, entries), false, "d0000 "},
        {"damaged", "what is this", true, ""},
        {"damaged but kept", "what is this", false, "d0000 "},
        {"more tokens than there are", atom_bytes({200, 0xFFFFFFFF, 3, 0, 0}, 2, entries), true,
         "_d0000 d0001=2 "},
        {"token over the end", old(200, 2, counted("ab", 1) + "\xFF" + "ab"), true, "_d0000 d0001=1 "},
        {"length 0", old(200, 9, counted("ab", 1) + std::string(50, '\0')), true, "_d0000 d0001=1 "},
        {"no entries", atom_head_bytes({200, 2, 3, 0, 0}), true, "_d0000 d0001=0 "},
        {"4 billion messages", old(0xFFFFFFFF, 2, entries), true, "d0000 "},
    };
    for (const auto& each : cases) {
        std::filesystem::remove_all(folder);
        write_file(folder / "d0000.bye", each.bytes);
        dict_folder half(engine(), "d");
        half.reload(engine(), each.flag);
        std::filesystem::remove(folder / "d.lst"); // the division has relabelled it
        std::string left;
        for (const auto& [name, bytes] : folder_content(folder))
            left += name.substr(0, name.find('.')) +
                    (name == "d0001.bye" ? "=" + std::to_string(word_at(bytes, 12)) : "") + " ";
        EXPECT_EQ(left, each.left) << each.what;
    }
}

TEST_F(Optimiser, ForgetsTheOldest) {
    const auto stage = folder / "transact" / "0002";
    struct span {
        std::uint32_t messages, oldest, newest;
    };
    const auto forget = [&](const std::vector<span>& atoms, std::uint32_t limit) {
        std::filesystem::remove_all(stage);
        std::filesystem::create_directories(stage);
        for (std::size_t i = 0; i < atoms.size(); ++i)
            write_file(stage / ("d000" + std::to_string(i) + ".bye"),
                       atom_head_bytes({atoms[i].messages, 1, 1, atoms[i].oldest, atoms[i].newest}));
        bye_ring ring;
        ring.open(engine(), "d", 2);
        bye_ring::base_limit = limit;
        aged_out_list ranges = {{900, 5, true}};
        ring.forget_oldest(ranges);
        std::string all;
        for (const auto& range : ranges)
            all +=
                std::to_string(range.first) + (range.single ? "x" : "-") + std::to_string(range.last) + " ";
        all += "|";
        for (const auto& [name, bytes] : folder_content(stage))
            all += " " + name.substr(4, 1);
        EXPECT_LE(ring.atoms().size(), atoms.size());
        return all;
    };
    EXPECT_EQ(forget({{1000, 100, 200}, {1000, 300, 0}}, 1500), "900x5 | 0 1") << "one less is too few";
    EXPECT_EQ(forget({{1000, 100, 200}, {1000, 300, 0}}, 1000), "900x5 100-200 | 1");
    EXPECT_EQ(forget({{9, 300, 0}, {9, 100, 0}, {9, 200, 250}}, 9), "900x5 100-100 200-250 | 0");
    EXPECT_EQ(forget({{9, 100, 200}, {4, 900, 900}, {3, 901, 901}, {9, 300, 0}}, 18), "900x9 901x3 | 0 3")
        << "ordinal ones go first, and count together with their like";
    EXPECT_EQ(forget({}, 0), "900x5 |");
}

} // namespace
} // namespace tvr
