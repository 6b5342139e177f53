#include "platform/sync.h"

#include <array>
#include <atomic>
#include <fstream>
#include <random>

#include "support/child_process.h"
#include "support/platform_limits.h"
#include "support/platform_objects.h"
#include "support/test.h"

namespace tvr {
namespace {

using platform::event;
using platform::infinite;
using platform::last_error;
using platform::wait_any;
using platform::wait_failed;
using platform::wait_timeout;

// --- one process ---

class auto_reset_events : public testing::TestWithParam<bool> { // whether they have names
protected:
    void SetUp() override {
        for (std::size_t i = 0; i < events.size(); ++i) {
            ASSERT_TRUE(GetParam() ? events[i].create_named("event " + std::to_string(i))
                                   : events[i].create(false));
            all[i] = &events[i];
        }
    }

    test_root root;
    std::array<event, 4> events;
    std::array<event*, 4> all{};
};

TEST_P(auto_reset_events, come_lowest_first_and_once) {
    const std::pair<std::vector<std::uint32_t>, std::vector<std::uint32_t>> table[] = {
        {{}, {}},         {{3}, {3}},          {{1, 0}, {0, 1}}, {{3, 1, 2, 0}, {0, 1, 2, 3}},
        {{2, 2, 2}, {2}}, {{0, 3, 0}, {0, 3}},
    };
    for (const auto& [raised, taken] : table) {
        for (const std::uint32_t number : raised)
            events[number].set();
        for (const std::uint32_t number : taken)
            EXPECT_EQ(wait_any(all, infinite), number);
        EXPECT_EQ(wait_any(all, 0), wait_timeout);
    }
    events[0].set();
    events[1].set();
    events[0].reset();
    EXPECT_EQ(wait_any(all, 1), 1U);
    EXPECT_EQ(wait_any(all, 1), wait_timeout);
}

TEST_P(auto_reset_events, wake_one_sleeper_for_one_raise) {
    std::array<platform::thread, 2> sleepers;
    std::atomic<int> woken = 0;
    for (auto& sleeper : sleepers)
        ASSERT_TRUE(sleeper.start([&] {
            const std::array<event*, 2> both = {&events[2], &events[3]};
            if (wait_any(both, patience) == 1)
                ++woken;
            events[0].set();
            return 0U;
        }));
    events[3].set();
    EXPECT_TRUE(events[0].wait(patience));
    EXPECT_EQ(woken, 1);
    EXPECT_FALSE(events[3].wait(0));
    events[3].set();
    for (auto& sleeper : sleepers)
        sleeper.join();
    EXPECT_EQ(woken, 2);
}

// A raise may fall between the sleeper's last look and its sleep.
TEST_P(auto_reset_events, wake_a_thread_that_is_about_to_sleep) {
    const int rounds = static_cast<int>(race_length(20'000));
    std::atomic<bool> lost = false;
    platform::thread sleeper;
    ASSERT_TRUE(sleeper.start([&] {
        for (int i = 0; i < rounds && !lost; ++i) {
            lost = !events[0].wait(patience);
            events[1].set();
        }
        return 0U;
    }));
    std::minstd_rand random(1);
    for (int i = 0; i < rounds && !lost; ++i) {
        for (auto pause = random() % 300; pause > 0; --pause)
            std::atomic_signal_fence(std::memory_order_seq_cst);
        events[0].set();
        while (!events[1].wait(0))
            continue;
    }
    sleeper.join();
    EXPECT_FALSE(lost);
}

TEST_P(auto_reset_events, may_be_closed_under_a_waiting_thread) {
    platform::thread sleeper;
    std::atomic<std::uint32_t> answer = 0;
    ASSERT_TRUE(sleeper.start([&] {
        const std::array<event*, 3> own = {&events[0], &events[1], &events[2]};
        events[3].set();
        do
            answer = wait_any(own, patience);
        while (answer == 0);
        return 0U;
    }));
    ASSERT_TRUE(events[3].wait(patience));
    events[0].set();
    events[2].close();
    events[1].set();
    sleeper.join();
    // The sleeper may have come back for the second wait after the close.
    EXPECT_TRUE(answer == 1 || answer == wait_failed) << answer;
}

INSTANTIATE_TEST_SUITE_P(both, auto_reset_events, testing::Bool(),
                         [](const auto& row) { return row.param ? "named" : "unnamed"; });

TEST(event_test, manual_reset_stays_until_reset) {
    event manual, automatic;
    ASSERT_TRUE(manual.create(true) && automatic.create(false));
    const std::array<event*, 2> both = {&manual, &automatic};
    automatic.set();
    manual.set();
    EXPECT_EQ(wait_any(both, 0), 0U);
    EXPECT_EQ(wait_any(both, 0), 0U);
    manual.reset();
    EXPECT_EQ(wait_any(both, 0), 1U);
    EXPECT_EQ(wait_any(both, 0), wait_timeout);
}

TEST(event_test, refuses_what_it_cannot_wait_for) {
    const test_root root;
    event closed, unnamed;
    named_event named("name");
    ASSERT_TRUE(unnamed.create(true));
    unnamed.set();
    const std::pair<std::vector<event*>, std::uint32_t> table[] = {
        {{}, platform::error::invalid_parameter},
        {{&unnamed, &named}, platform::error::invalid_parameter},
        {{&named, &unnamed}, platform::error::invalid_parameter},
        {{&unnamed, &closed}, platform::error::invalid_handle},
        {std::vector<event*>(65, &unnamed), platform::error::invalid_parameter},
    };
    for (const auto& [events, error] : table) {
        EXPECT_EQ(wait_any(events, 0), wait_failed);
        EXPECT_EQ(last_error(), error);
    }
    closed.set();
    closed.reset();
    EXPECT_FALSE(closed.wait(0));
}

// --- named events ---

class named_event_test : public testing::Test {
protected:
    [[nodiscard]] std::vector<std::filesystem::path> files() const {
        std::vector<std::filesystem::path> found;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(root.path()))
            if (entry.is_regular_file())
                found.push_back(entry.path());
        return found;
    }
    static void put(const std::filesystem::path& path, std::streamoff from, std::size_t size, char byte) {
        std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
        file.seekp(from) << std::string(size, byte);
    }

    test_root root;
    event probe;
};

TEST_F(named_event_test, are_reset_when_the_last_holder_is_gone) {
    ASSERT_TRUE(probe.create_named("shared"));
    probe.set();
    named_event second("shared");
    probe.close();
    EXPECT_TRUE(second.wait(0));
    second.set();
    second.close();
    ASSERT_TRUE(probe.create_named("shared"));
    EXPECT_FALSE(probe.wait(0));
}

TEST_F(named_event_test, are_apart_in_different_roots) {
    ASSERT_TRUE(probe.create_named("shared"));
    probe.set();
    const test_root other;
    EXPECT_FALSE(named_event("shared").wait(0));
    EXPECT_TRUE(probe.wait(0));
}

TEST_F(named_event_test, names_have_limits) {
    const std::string longest(100, 'n');
    EXPECT_FALSE(probe.create_named(""));
    EXPECT_FALSE(probe.create_named(longest + "n"));
    EXPECT_FALSE(probe.is_open());
    EXPECT_TRUE(probe.create_named(longest));
}

TEST_F(named_event_test, survive_a_damaged_file) {
    ASSERT_TRUE(probe.create_named("name"));
    probe.close();
    for (const unsigned size : {0U, 1U, 15U, 4095U, 100'000U})
        for (const int from : {0, 4, 16})
            for (const char byte : {'\0', '\1', '\xff'}) {
                for (const auto& file : files()) {
                    put(file, from, 20'000, byte);
                    std::filesystem::resize_file(file, size);
                }
                ASSERT_TRUE(probe.create_named("name")) << size << ' ' << from;
                EXPECT_FALSE(probe.wait(0));
                named_event twin("name");
                probe.set();
                EXPECT_TRUE(twin.wait(patience));
                probe.close();
            }
    // Damage under a holder ends with it.
    ASSERT_TRUE(probe.create_named("name"));
    for (const auto& file : files())
        put(file, 0, 4, '\xff');
    event other;
    EXPECT_EQ(other.create_named("name"), files().empty());
    probe.set();
    EXPECT_TRUE(probe.wait(patience));
    probe.close();
    EXPECT_TRUE(other.create_named("name"));
}

TEST_F(named_event_test, do_not_follow_a_link) {
    ASSERT_TRUE(probe.create_named("name"));
    probe.close();
    const auto target = root.path() / "target";
    for (const auto& file : files()) {
        std::filesystem::rename(file, target);
        std::filesystem::create_symlink(target, file);
        EXPECT_FALSE(probe.create_named("name"));
    }
}

// --- named events between processes ---

const child_role raiser("raiser", raise_and_wait);

TEST_F(named_event_test, a_killed_holder_holds_nothing) {
    ASSERT_TRUE(probe.create_named("shared"));
    child_process child("raiser", "shared");
    EXPECT_TRUE(probe.wait(patience));
    probe.set();
    probe.close();
    ASSERT_TRUE(probe.create_named("shared"));
    EXPECT_TRUE(probe.wait(0)) << "the child has kept it";
    probe.set();
    probe.close();
    EXPECT_EQ(child.kill(), child_process::killed);
    ASSERT_TRUE(probe.create_named("shared"));
    EXPECT_FALSE(probe.wait(0)) << "nobody has kept it";
}

} // namespace
} // namespace tvr
