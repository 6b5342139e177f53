// The engine is killed at a change of the file system and started again: what comes out is told for each
// point, the gaps included.

#include <gtest/gtest.h>

#include <ostream>

#include "platform/change_hook.h"
#include "support/child_process.h"
#include "system/engine_root.h"
#include "system/mortal_engine.h"

namespace tvr {
namespace {

namespace fs = std::filesystem;
using platform::change;

struct death {
    const char* name;
    change what;
    const char* path; // end of the path that is about to be changed

    friend std::ostream& operator<<(std::ostream& out, const death& point) { return out << point.name; }
};

using files = std::map<std::string, std::string>;

// Equal names and contents; tells only the names.
testing::AssertionResult same_files(const files& found, const files& expected) {
    auto result = testing::AssertionSuccess();
    for (const auto& [name, content] : expected)
        if (!found.contains(name))
            result = testing::AssertionFailure() << name << " is missing\n";
        else if (found.at(name) != content)
            result = testing::AssertionFailure() << name << " differs\n";
    for (const auto& [name, content] : found)
        if (!expected.contains(name))
            result = testing::AssertionFailure() << name << " is too much\n";
    return result;
}

// Two transactions undisturbed.
const files& expected_files() {
    static const auto all = [] {
        engine_root root;
        root.start();
        root.train(1, 30);
        root.train(2, 20);
        return root.base_files();
    }();
    return all;
}

class engine_death : public testing::TestWithParam<death> {
protected:
    void SetUp() override {
        expected_files();
        m_root.emplace();
        m_root->start();
        m_root->train(1, 30);
        m_root->kill(); // idle, and so nothing is lost
    }

    // Kills an engine in the second transaction.
    void die() {
        child_process engine("mortal_engine", mortal_engine_argument(GetParam().what, GetParam().path));
        engine_root::wait_for("the mortal engine", [] { return engine_root::process() != 0; });
        m_root->append(2, 20);
        m_root->force();
        ASSERT_EQ(engine.join(), child_process::killed);
    }

    // What the engine logs from now on, over and over.
    void expect_endless(const char* line) {
        engine_root::wait_for(line, [&] {
            const std::string log = m_root->log("transact.log");
            int count = 0;
            for (std::size_t at = log.find(line); at != std::string::npos; at = log.find(line, at + 1))
                ++count;
            return count >= 5;
        });
    }

    std::optional<engine_root> m_root;
};

class completes : public engine_death {};

TEST_P(completes, to_the_bytes_of_an_undisturbed_run) {
    die();
    m_root->start();
    m_root->wait_until_trained();
    EXPECT_TRUE(same_files(m_root->base_files(), expected_files()));
}

INSTANTIATE_TEST_SUITE_P(
    at, completes,
    testing::Values(death{"sorting", change::create_file, "\\0002\\nspamdict.col"},
                    death{"sorting_before_the_move", change::rename_file, "\\0002\\data.bys"},
                    death{"before_the_statistic", change::remove_folder, "\\0001\\"},
                    death{"finalizing_spam", change::create_file, "\\0003\\spamdict0001.bye"},
                    death{"finalizing_spam_at_the_marker", change::create_file, "\\0003\\prepared.txt"},
                    death{"finalizing_good", change::create_file, "\\0004\\prepared.txt"},
                    death{"publishing_before_a_move", change::remove_folder, "\\0002\\"},
                    death{"generating", change::create_file, "\\0006\\base.rgd"},
                    death{"generating_between_delete_and_rename", change::rename_file, "\\cashe.rgd"}),
    [](const auto& point) { return point.param.name; });

class waits : public engine_death {};

// The snapshot is taken up, whole, by the next training.
TEST_P(waits, for_the_next_training) {
    die();
    EXPECT_TRUE(fs::exists(m_root->transact() / "~autotrain.bys"));
    EXPECT_FALSE(m_root->marker(1));
    m_root->start();
    m_root->train(3, 10);
    EXPECT_EQ(m_root->messages(), 60U);
    EXPECT_FALSE(fs::exists(m_root->transact() / "~autotrain.bys"));
}

INSTANTIATE_TEST_SUITE_P(at, waits,
                         testing::Values(death{"making_folder_1", change::create_folder, "\\0001\\"},
                                         death{"leaving_the_snapshot", change::delete_file,
                                               "\\~autotrain.bys"}),
                         [](const auto& point) { return point.param.name; });

class loses : public engine_death {};

// deliberate: between two steps the messages are known to nobody.
TEST_P(loses, the_batch) {
    die();
    EXPECT_FALSE(fs::exists(m_root->transact() / "~autotrain.bys"));
    EXPECT_FALSE(m_root->marker(1));
    m_root->start();
    m_root->train(3, 10);
    EXPECT_EQ(m_root->messages(), 40U);
}

INSTANTIATE_TEST_SUITE_P(at, loses,
                         testing::Values(death{"entering", change::create_file, "\\0001\\prepared.txt"}),
                         [](const auto& point) { return point.param.name; });

class sticks : public engine_death {};

// deliberate: nothing leads out of these but a hand.
TEST_P(sticks, after_the_move_of_the_batch) {
    die();
    EXPECT_TRUE(m_root->marker(1));
    const std::string stamp = m_root->stamp();
    const bool sorted = m_root->marker(2);
    m_root->start();
    expect_endless("[-] something wrong with file");
    EXPECT_TRUE(m_root->marker(1));
    // With the second marker the batch still came through first.
    EXPECT_EQ(m_root->messages(), sorted ? 50U : 30U);
    EXPECT_EQ(m_root->stamp() != stamp, sorted);
}

INSTANTIATE_TEST_SUITE_P(at, sticks,
                         testing::Values(death{"the_marker", change::create_file, "\\0002\\prepared.txt"},
                                         death{"leaving_folder_1", change::delete_file,
                                               "\\0001\\prepared.txt"}),
                         [](const auto& point) { return point.param.name; });

class publishing : public engine_death {};

TEST_P(publishing, loses_what_had_left_the_stage_or_sticks) {
    die();
    EXPECT_TRUE(m_root->marker(3));
    const bool good_half_is_published = !m_root->marker(4);
    m_root->start();
    if (good_half_is_published) {
        expect_endless("Stage doesn't prepared. Exiting");
        return;
    }
    m_root->wait_until_trained();
    files expected = expected_files();
    EXPECT_EQ(expected.erase("nspamdict.lst"), 1U);
    EXPECT_EQ(expected.erase("nspamdict0000.bye"), 1U);
    files found = m_root->base_files();
    expected.erase("cashe.rgd"); // made of what is left
    EXPECT_EQ(found.erase("cashe.rgd"), 1U);
    EXPECT_TRUE(same_files(found, expected));
}

INSTANTIATE_TEST_SUITE_P(at, publishing,
                         testing::Values(death{"a_move", change::rename_file, "base\\nspamdict0001.bye"},
                                         death{"the_second_half", change::delete_file, "base\\spamdict.lst"}),
                         [](const auto& point) { return point.param.name; });

class stamping : public engine_death {};

TEST_P(stamping, keeps_the_old_stamp) {
    const std::string stamp = m_root->stamp();
    die();
    EXPECT_TRUE(same_files(m_root->base_files(), expected_files()));
    m_root->start();
    m_root->append(3, 1);
    m_root->client().raise(engine_event::add, false);
    engine_root::wait_for("the idle engine", [&] {
        return m_root->log("transact.log").find("[i] added message") != std::string::npos;
    });
    EXPECT_EQ(m_root->stamp(), stamp);
    EXPECT_TRUE(same_files(m_root->base_files(), expected_files()));
}

INSTANTIATE_TEST_SUITE_P(at, stamping,
                         testing::Values(death{"the_mark", change::truncate_file, "\\cashe.mrk"}),
                         [](const auto& point) { return point.param.name; });

} // namespace
} // namespace tvr
