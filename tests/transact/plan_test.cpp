// The plan of one batch for one half, by the changes that it leaves with the ring's atoms.
#include "transact/training_plan.h"

#include "common/minutes.h"
#include "support/atom_bytes.h"
#include "support/test.h"

namespace tvr {
namespace {

constexpr std::uint32_t last_wrong_time = 183554940;

struct Plan : testing::Test {
    Plan() {
        default_settings();
        std::filesystem::create_directories(stage);
        bye_ring::atom_size = 1000;
        ring.open(base, "d", 2);
    }
    // The position of each record is its number, from 1.
    void add(std::uint32_t time, std::string_view id = "<id>") {
        record.time = time;
        record.msid = id;
        ++record.position;
        EXPECT_TRUE(plan.add(record));
    }
    // "oldest-newest: +position -position ..." of each atom.
    std::string filed() {
        plan.add_to(ring, 0, 0);
        std::string all;
        for (const auto& atom : ring.atoms()) {
            all += std::to_string(atom->oldest) + "-" + std::to_string(atom->newest) + ": ";
            for (const auto& change : atom->changes())
                all += (change.positive ? "+" : "-") + std::to_string(change.offset) + " ";
        }
        return all;
    }

    test_root root;
    const std::filesystem::path stage = root.path() / "base" / "transact" / "0002";
    const std::string base = root.engine_path("base\\");
    bye_ring ring;
    trainingplan plan{2, base, "d"};
    message_head record;
};

TEST_F(Plan, WrongTimesComeRightBeforeTheFirstGoodOne) {
    EXPECT_FALSE(plan.changed());
    EXPECT_EQ(filed(), "") << "an empty plan files nothing";
    for (const std::uint32_t time : {last_wrong_time, 200000005U, 0U, 200000000U, 9999U, 200000005U})
        add(time);
    EXPECT_TRUE(plan.changed());
    EXPECT_EQ(plan.delta(), 6U);
    EXPECT_EQ(filed(), "199999997-200000005: +3 +5 +1 +4 +2 +6 ");
}

TEST_F(Plan, TheFirstGoodTimeIsOneMinuteLater) {
    add(last_wrong_time + 1);
    EXPECT_EQ(filed(), std::to_string(last_wrong_time + 1) + "-0: +1 ");
}

// If all are wrong, the times depend on the plan's room: 100 elements, or 199 from the hundredth on.
TEST_F(Plan, AllWrongTimesComeBeforeNow) {
    for (const std::uint32_t number : {5U, 98U, 99U, 100U, 150U}) {
        std::filesystem::remove_all(stage);
        std::filesystem::create_directories(stage);
        trainingplan other(2, base, "d");
        bye_ring fresh;
        fresh.open(base, "d", 2);
        for (std::uint32_t i = 0; i < number; ++i) {
            record.time = i;
            other.add(record);
        }
        const std::uint32_t before = now_minutes();
        other.add_to(fresh, 0, 0);
        const std::uint32_t after = now_minutes();
        ASSERT_EQ(fresh.atoms().size(), 1U);
        const auto& atom = *fresh.atoms()[0];
        const std::uint32_t room = number < 100 ? 100 : 199;
        EXPECT_GE(atom.oldest, before - 10 - room) << number;
        EXPECT_LE(atom.oldest, after - 10 - room) << number;
        EXPECT_EQ(atom.newest, atom.oldest + number - 1);
        EXPECT_EQ(atom.changes().size(), number);
    }
}

TEST_F(Plan, KnowsItsMessagesByAnOpenMap) {
    EXPECT_FALSE(plan.remove(record)) << "closed, the map knows nothing";
    EXPECT_FALSE(plan.found_in(record));
    write_file(root.path() / "main" / "d.lst",
               "nSID" + le(2, 3, 0) + counted("<old>", 200000000) + counted("<gone>", 210000000));
    std::filesystem::create_directory(root.path() / "work");
    write_file(stage / "d0000.bye", atom_bytes({2, 1, 1, 199999999, 200000001}, 1, counted("t", 1)));
    ring.open(base, "d", 2);
    plan.msids().open(root.engine_path("main\\"), root.engine_path("work\\"), "d");
    for (const char* id : {"<old>", "<gone>"}) {
        record.msid = id;
        ++record.position;
        EXPECT_FALSE(plan.add(record)) << "known already";
        ASSERT_TRUE(plan.found_in(record));
        EXPECT_TRUE(plan.remove(record));
        EXPECT_FALSE(plan.remove(record));
    }
    EXPECT_EQ(record.time, 210000000U);
    EXPECT_EQ(plan.delta(), 0U - 2);
    add(0xFFFFFFF0, "<future>");
    EXPECT_LE(plan.msids().lookup("<future>"), now_minutes());
    add(9999, "<small>");
    EXPECT_EQ(plan.msids().lookup("<small>"), 9999U) << "kept as it is in the map";
    EXPECT_FALSE(plan.add(record));
    // The removal of <gone> is dropped, as no atom reaches to its time. <small> comes before <old>, and
    // the future is not believed.
    const std::string text = filed();
    EXPECT_TRUE(text.starts_with("199999999-")) << text;
    EXPECT_TRUE(text.ends_with(": +4 -1 +3 ")) << text;
    ASSERT_EQ(ring.atoms().size(), 1U);
    EXPECT_LE(ring.atoms()[0]->newest, now_minutes());
    EXPECT_EQ(ring.messages_total(), 3U);
}

} // namespace
} // namespace tvr
