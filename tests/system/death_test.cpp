// The engine is killed at a change of the file system and started again: what comes out is told for each
// point, the gaps included.

#include "platform/change_hook.h"
#include "support/test.h"
#include "system/engine_root.h"
#include "system/mortal_engine.h"

namespace tvr {
namespace {

namespace fs = std::filesystem;
using platform::change;

// What the engine logs from now on, over and over.
void expect_endless(const engine_root& root, const char* line) {
    engine_root::wait_for(line, [&] {
        const std::string log = root.log("transact.log");
        int count = 0;
        for (std::size_t at = log.find(line); at != std::string::npos; at = log.find(line, at + 1))
            ++count;
        return count >= 5;
    });
}

// To the bytes of an undisturbed run.
void completes(engine_root& root) {
    root.start();
    root.wait_until_trained();
    EXPECT_TRUE(same_files(root.base_files(), undisturbed_files()));
}

// The snapshot is taken up, whole, by the next training.
void waits(engine_root& root) {
    EXPECT_TRUE(fs::exists(root.transact() / "~autotrain.bys"));
    EXPECT_FALSE(root.marker(1));
    root.start();
    root.train(3, 10);
    EXPECT_EQ(root.messages(), 60U);
    EXPECT_FALSE(fs::exists(root.transact() / "~autotrain.bys"));
}

// deliberate: between two steps the messages are known to nobody.
void loses_the_batch(engine_root& root) {
    EXPECT_FALSE(fs::exists(root.transact() / "~autotrain.bys"));
    EXPECT_FALSE(root.marker(1));
    root.start();
    root.train(3, 10);
    EXPECT_EQ(root.messages(), 40U);
}

// deliberate: nothing leads out of this but a hand.
void sticks(engine_root& root) {
    EXPECT_TRUE(root.marker(1));
    const std::string stamp = root.stamp();
    const bool sorted = root.marker(2);
    root.start();
    expect_endless(root, "[-] something wrong with file");
    EXPECT_TRUE(root.marker(1));
    // With the second marker the batch still came through first.
    EXPECT_EQ(root.messages(), sorted ? 50U : 30U);
    EXPECT_EQ(root.stamp() != stamp, sorted);
}

// deliberate: what had left its stage is lost.
void loses_what_was_moved(engine_root& root) {
    EXPECT_TRUE(root.marker(3) && root.marker(4));
    root.start();
    root.wait_until_trained();
    files expected = undisturbed_files();
    EXPECT_EQ(expected.erase("nspamdict.lst"), 1U);
    EXPECT_EQ(expected.erase("nspamdict0000.bye"), 1U);
    files found = root.base_files();
    expected.erase("cashe.rgd"); // made of what is left
    EXPECT_EQ(found.erase("cashe.rgd"), 1U);
    EXPECT_TRUE(same_files(found, expected));
}

// deliberate: a half without the other one isn't published.
void sticks_with_one_half(engine_root& root) {
    EXPECT_TRUE(root.marker(3) && !root.marker(4));
    root.start();
    expect_endless(root, "Stage doesn't prepared. Exiting");
}

void keeps_the_old_stamp(engine_root& root) {
    const std::string stamp = root.stamp();
    EXPECT_EQ(stamp.size(), 8U);
    EXPECT_TRUE(same_files(root.base_files(), undisturbed_files()));
    root.start();
    root.append(3, 1);
    root.make_hear();
    EXPECT_EQ(root.stamp(), stamp);
    EXPECT_TRUE(same_files(root.base_files(), undisturbed_files()));
}

struct ending {
    death at;
    void (*then)(engine_root& root);

    friend std::ostream& operator<<(std::ostream& out, const ending& point) { return out << point.at; }
};

class engine_death : public testing::TestWithParam<ending> {};

TEST_P(engine_death, comes_to_what_is_told) {
    engine_root root;
    die_in_second_training(root, GetParam().at);
    GetParam().then(root);
}

INSTANTIATE_TEST_SUITE_P(
    at, engine_death,
    testing::Values(
        ending{{"making_folder_1", change::create_folder, "\\0001\\"}, waits},
        ending{{"leaving_the_snapshot", change::delete_file, "\\~autotrain.bys"}, waits},
        ending{{"entering", change::create_file, "\\0001\\prepared.txt"}, loses_the_batch},
        ending{{"sorting", change::create_file, "\\0002\\nspamdict.col"}, completes},
        ending{{"sorting_before_the_move", change::rename_file, "\\0002\\data.bys"}, completes},
        ending{{"the_sorted_marker", change::create_file, "\\0002\\prepared.txt"}, sticks},
        ending{{"leaving_folder_1", change::delete_file, "\\0001\\prepared.txt"}, sticks},
        ending{{"before_the_statistic", change::remove_folder, "\\0001\\"}, completes},
        ending{{"finalizing_spam", change::create_file, "\\0003\\spamdict0001.bye"}, completes},
        ending{{"finalizing_spam_at_the_marker", change::create_file, "\\0003\\prepared.txt"}, completes},
        ending{{"finalizing_good", change::create_file, "\\0004\\prepared.txt"}, completes},
        ending{{"publishing_a_file", change::rename_file, "base\\nspamdict0001.bye"}, loses_what_was_moved},
        ending{{"publishing_the_second_half", change::delete_file, "base\\spamdict.lst"},
               sticks_with_one_half},
        ending{{"publishing_before_a_move", change::remove_folder, "\\0002\\"}, completes},
        ending{{"generating", change::create_file, "\\0006\\base.rgd"}, completes},
        ending{{"generating_between_delete_and_rename", change::rename_file, "\\cashe.rgd"}, completes},
        ending{{"the_mark", change::truncate_file, "\\cashe.mrk"}, keeps_the_old_stamp}),
    [](const auto& point) { return point.param.at.name; });

} // namespace
} // namespace tvr
