// Rings and their column files.
#include "dict/ring.h"

#include "support/atom_bytes.h"
#include "support/test.h"

namespace tvr {
namespace {

struct Ring : testing::Test {
    Ring() {
        default_settings();
        for (const char* name : {"0002", "0003"})
            std::filesystem::create_directories(base / "transact" / name);
        bye_ring::atom_size = 6;
        bye_ring::base_limit = 1000;
    }
    void put(const std::string& name, const head_values& head) {
        write_file(stage / name, atom_bytes(head, 1, counted("t", 1)));
    }
    void open() { ring.open(root.engine_path("base\\"), "d", 2); }
    std::string engine(const std::string& name) const { return root.engine_path("base\\transact\\" + name); }
    std::string in_stage(const std::string& name) const { return read_file(base / "transact" / name); }
    // "name:messages,oldest,newest ..." in the ring's order.
    std::string listed() const {
        std::string all;
        for (const auto& atom : ring.atoms())
            all += atom->path().substr(atom->path().size() - 5, 1) + ":" + std::to_string(atom->messages) +
                   "," + std::to_string(atom->oldest) + "," + std::to_string(atom->newest) + " ";
        return all;
    }

    test_root root;
    const std::filesystem::path base = root.path() / "base", stage = base / "transact" / "0002";
    bye_ring ring;
};

TEST_F(Ring, OpensSortedAndFromTheBaseFirst) {
    // Files "d000<n>.bye"; the path's fifth character from the end is the number.
    write_file(base / "d0000.bye", atom_bytes({5, 1, 1, 300, 0}, 1, counted("t", 1)));
    write_file(base / "d0001.bye", atom_bytes({7, 1, 1, 100, 200}, 1, counted("t", 1)));
    write_file(base / "d0002.bye", atom_bytes({9, 1, 1, 100, 200}, 1, counted("t", 1)));
    write_file(base / "d0003.bye", atom_head_bytes({0, 0, 0, 0, 0}));
    write_file(base / "d0004.bye", "damaged");
    write_file(base / "e0000.bye", "another dictionary");
    open();
    EXPECT_EQ(listed(), "2:9,100,200 1:7,100,200 0:5,300,0 ");
    EXPECT_EQ(ring.messages_total(), 21U);
    EXPECT_FALSE(std::filesystem::exists(base / "d0003.bye")) << "an empty atom";
    EXPECT_FALSE(std::filesystem::exists(base / "d0004.bye"));
    EXPECT_EQ(in_stage("0002/d0001.bye"), read_file(base / "d0001.bye"));
    EXPECT_FALSE(std::filesystem::exists(stage / "e0000.bye"));

    // From now on the stage's folder counts, with its empty atoms.
    std::filesystem::remove(base / "d0001.bye");
    put("d0007.bye", {0, 0, 0, 0, 0});
    open();
    EXPECT_EQ(listed(), "7:0,0,0 2:9,100,200 1:7,100,200 0:5,300,0 ");
}

TEST_F(Ring, PlacesMessages) {
    put("d0000.bye", {5, 1, 1, 100000, 200000});
    put("d0001.bye", {4, 1, 1, 300000, 0});
    open();
    EXPECT_FALSE(ring.place_in_span(1, 200001, true));
    EXPECT_FALSE(ring.place_in_span(1, 299999, false));
    EXPECT_TRUE(ring.place_in_span(1, 300000, true));
    EXPECT_TRUE(ring.place_in_span(1, 50000, true)) << "up to the end of a span";
    EXPECT_EQ(listed(), "0:6,100000,200000 1:5,300000,0 ");
    EXPECT_FALSE(ring.place_in_span(1, 150000, true)) << "full";
    EXPECT_TRUE(ring.place_in_span(1, 150000, false));
    ring.place_by_time(1, 250000, false); // removals aren't placed by time
    ring.place_by_time(1, 250000, true);  // the atom in front takes it
    ring.place_by_time(1, 260000, true);  // it is full: the one after
    EXPECT_EQ(listed(), "0:6,100000,250000 1:6,300000,260000 ");
    ring.place_by_time(1, 270000, true); // both are full: a new one between them
    ring.place_by_time(1, 90000, true);  // before all: only the first is asked
    EXPECT_EQ(listed(), "3:1,90000,0 0:6,100000,250000 2:1,270000,0 1:6,300000,260000 ");
    ring.place_by_time(1, 80000, true);
    ring.place_by_time(1, 999999, true);
    EXPECT_EQ(listed(), "3:2,90000,80000 0:6,100000,250000 2:1,270000,0 1:6,300000,260000 4:1,999999,0 ");
    EXPECT_EQ(in_stage("0002/d0004.bye"), atom_head_bytes({0, 0, 0, 0, 0}));
    EXPECT_EQ(bye_ring::messages_seen, 7U);

    // From the ninth message on the calculated size is in force.
    ring.set_atom_size(8, 2);
    EXPECT_TRUE(ring.place_in_span(1, 999999, true));
    EXPECT_FALSE(ring.place_in_span(1, 999999, true));
    ring.set_atom_size(5, 0);
    EXPECT_TRUE(ring.place_in_span(1, 999999, true)) << "the quota counts only with a calculated size";
}

TEST_F(Ring, SavesAndLoadsColumns) {
    const std::string path = engine("0002\\d0000.bye");
    const std::string other = engine("0002\\d0001.bye");
    put("d0000.bye", {2, 1, 1, 100000, 0});
    put("d0001.bye", {1, 1, 1, 300000, 0});
    open();
    ring.place_in_span(0x1122334455, 100000, true);
    ring.place_in_span(7, 100000, false);
    const std::string column = "oTJE" + le(1, 2) + pascal(path) + atom_head_bytes({2, 1, 1, 100000, 0}) +
                               '\0' + le(2, 0x22334455, 0x11) + '\1' + le(7, 0) + '\0' + pascal(other) +
                               atom_head_bytes({1, 1, 1, 300000, 0}) + '\0' + le(0);
    write_file(stage / "d.col", std::string(column.size() + 3, '#'));
    ring.save_col(2);
    EXPECT_EQ(in_stage("0002/d.col"), column + "###") << "an older file isn't cut";

    // An atom to be merged, and nothing of what opening found.
    write_file(stage / "d.col", "oTJE" + le(1, 1) + pascal(path) + atom_head_bytes({9, 8, 7, 6, 5}) + '\1' +
                                    le(1, 7, 0) + '\1');
    const std::uint32_t seen = bye_ring::messages_seen;
    ring.load_col(2);
    ASSERT_EQ(ring.atoms().size(), 1U);
    EXPECT_EQ(ring.atoms()[0]->path(), path);
    EXPECT_TRUE(ring.atoms()[0]->to_merge());
    EXPECT_EQ(listed(), "0:9,6,5 ");
    EXPECT_EQ(ring.atoms()[0]->changes().size(), 1U);
    EXPECT_EQ(bye_ring::messages_seen, seen + 9);
    ring.load_col(3); // no file: the ring stays
    EXPECT_EQ(ring.atoms().size(), 1U);
    write_file(stage / "d.col", "oTJE" + le(1, 0));
    ring.load_col(2);
    EXPECT_TRUE(ring.atoms().empty());
}

// A dated atom takes its own differences and those of the atom that is folded into it; an untouched one is
// linked; the ordinal ones share what is taken out of them.
TEST_F(Ring, FinalizesByHand) {
    const std::string first = message_bytes(20001, "<1>", 2, counted("ab", 2) + counted("cd", 1));
    const std::string second = message_bytes(20002, "<2>", 2, counted("ab", 1) + counted("zz", 5));
    const std::string third = message_bytes(50000, "<3>", 2, counted("ef", 4) + counted("gh", 1));
    write_file(stage / "data.bys", le(3) + first + second + third);
    const auto change = [](std::size_t position, char positive) { return le(1, position, 0) + positive; };
    const std::size_t of_second = 4 + first.size(), of_third = of_second + second.size();
    const struct {
        head_values head;
        std::string entries;
        bool merge;
        std::string changes = le(0);
    } atoms[] = {
        {{3, 1, 1, 20000, 0}, counted("ab", 1), false, change(4, 1)},
        {{2, 2, 10, 20002, 20010}, counted("ab", 3) + counted("qq", 7), true, change(of_second, 0)},
        {{1, 1, 1, 30000, 0}, counted("kk", 1), false},
        {{4, 2, 8, 50000, 50000}, counted("ef", 3) + counted("gh", 5), false, change(of_third, 0)},
        {{4, 1, 2, 50000, 50000}, counted("ef", 2), false},
    };
    std::string column = "oTJE" + le(1, std::size(atoms));
    for (const auto& atom : atoms) {
        const std::string name = "d000" + std::to_string(&atom - atoms) + ".bye";
        write_file(stage / name, atom_bytes(atom.head, atom.head.tokens, atom.entries));
        column += pascal(engine("0002\\" + name)) + atom_head_bytes(atom.head) + (atom.merge ? '\1' : '\0') +
                  atom.changes;
    }
    write_file(stage / "d.col", column);
    open();
    ring.load_col(2);
    msid_access ids;
    write_file(root.path() / "main" / "d.lst", "nSID" + le(2, 1, 0) + counted("<2>", 1) + counted("<3>", 2));
    ids.open(root.engine_path("main\\"), engine("0003\\"), "d");
    ring.finalize(3, engine("0002\\missing"), ids);
    EXPECT_FALSE(std::filesystem::exists(base / "transact" / "0003" / "d0000.bye"));
    ring.finalize(3, engine("0002\\data.bys"), ids);
    EXPECT_EQ(in_stage("0003/d0000.bye"),
              atom_bytes({3, 4, 8, 20000, 20010}, 4,
                         counted("ab", 5) + counted("cd", 1) + counted("qq", 7) + counted("zz", minus(5))));
    EXPECT_FALSE(std::filesystem::exists(base / "transact" / "0003" / "d0001.bye"));
    EXPECT_EQ(in_stage("0003/d0002.bye"), atom_bytes({1, 1, 1, 30000, 0}, 1, counted("kk", 1)));
    EXPECT_EQ(in_stage("0003/d0003.bye"), atom_bytes({4, 1, 4, 50000, 50000}, 1, counted("gh", 4)));
    EXPECT_EQ(in_stage("0003/d0004.bye"), atom_bytes({4, 1, 1, 50000, 50000}, 1, counted("ef", 1)));
    EXPECT_EQ(ids.lookup("<1>"), 20001U);
    EXPECT_EQ(ids.lookup("<2>"), 0U);
    EXPECT_EQ(ids.lookup("<3>"), 0U);
}

} // namespace
} // namespace tvr
