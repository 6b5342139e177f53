// Eight processes race for named events and the lock file, while others of them are killed.
#include <array>
#include <iostream>
#include <random>
#include <span>

#include "dict/dictbase.h"
#include "platform/clock.h"
#include "platform/process.h"
#include "support/child_process.h"
#include "support/platform_limits.h"
#include "support/platform_objects.h"
#include "support/shared_tally.h"
#include "support/test.h"

namespace tvr {
namespace {

using platform::event;
using platform::wait_any;
using platform::wait_timeout;

constexpr std::size_t event_count = 8; // the lower half is held throughout, the upper half comes and goes
constexpr std::size_t held_count = 4;
constexpr int racer_count = 8;
const std::uint32_t raises_wanted = race_length(100'000);
const std::uint32_t phases = race_length(50);
constexpr int kills_in_a_phase = 4;

// What the participants have done. A raise is counted before it happens and a
// take after it, so that a death between the two can only hide a take.
struct counts {
    std::array<counter, event_count> raises;
    std::array<counter, event_count> takes;
    counter all_raises;
    // Of an event that the racers pass around: who takes it is alone until he raises it again. And of the
    // lock file.
    struct {
        counter entries, holder, collisions;
    } token, lock;
    counter nested;
};

class tally : public shared_tally<counts> {
public:
    void raise(event& target, std::size_t number) const {
        ++(*this)->raises[number];
        target.set();
        ++(*this)->all_raises;
    }

    void pass(event& token) const {
        if (!token.wait(0))
            return;
        work_inside((*this)->token, true);
        token.set();
    }

    void use(file_lock& lock, unsigned random) const {
        if (!lock.try_acquire())
            return;
        const bool nests = random % 8 == 0 && lock.try_acquire();
        work_inside((*this)->lock, random % 4 == 0);
        if (nests) {
            lock.release();
            ++(*this)->nested;
        }
        lock.release();
    }

private:
    // Of two owners at once at least one finds the other's steps between its own.
    template <class Owned>
    static void work_inside(Owned& what, bool slowly) {
        const std::uint32_t own = platform::current_process_id();
        what.holder = own;
        const std::uint32_t number = what.entries + 1;
        what.entries = number;
        if (slowly)
            platform::sleep_for(0);
        if (what.entries != number || what.holder != own)
            ++what.collisions;
        what.holder = 0;
    }
};

std::string lock_path() {
    return platform::temp_folder_path() + "lock.bin";
}

std::string race_name(std::size_t number) {
    return "race " + std::to_string(number);
}

struct held_events {
    bool open() {
        bool opened = true;
        for (std::size_t i = 0; i < held_count; ++i) {
            opened = opened && events[i].create_named(race_name(i));
            all[i] = &events[i];
        }
        return opened;
    }

    std::array<event, held_count> events;
    std::array<event*, held_count> all{};
};

const child_role racer("racer", [](std::string_view seed) {
    tally done;
    held_events held;
    event token;
    bool ready = done.open() && held.open() && token.create_named("token");
    std::minstd_rand random(static_cast<unsigned>(std::stoul(std::string(seed))));
    file_lock lock(lock_path());
    while (ready) {
        done.pass(token);
        for (int turns = 0; turns < 2; ++turns)
            done.use(lock, static_cast<unsigned>(random()));
        const std::size_t number = random() % event_count;
        if (number >= held_count) {
            event passing;
            ready = passing.create_named(race_name(number));
            done.raise(passing, number);
            if (random() % 2 != 0 && passing.wait(0))
                ++done->takes[number];
            continue;
        }
        for (auto turns = random() % 16; turns > 0; --turns)
            done.raise(held.events[(number + turns) % held_count], (number + turns) % held_count);
        const std::size_t from = random() % held_count;
        const std::uint32_t taken =
            wait_any(std::span(held.all).subspan(from, 1 + random() % (held_count - from)),
                     static_cast<std::uint32_t>(random() % 3));
        if (taken < held_count)
            ++done->takes[from + taken];
    }
    std::cerr << "a racer can't open: " << platform::last_error() << std::endl;
    return 1;
});

// Answers each "ping" with a "pong" while every racer is dead.
const child_role answerer("answerer", [](std::string_view) {
    named_event pong("pong"), ping("ping");
    while (ping.wait(platform::infinite)) // a phase takes as long as it takes
        pong.set();
    return 2;
});

TEST(race, with_deaths_loses_nothing_and_lets_two_in_at_no_time) {
    const test_root root;
    tally done;
    ASSERT_TRUE(done.open());
    held_events held;
    ASSERT_TRUE(held.open());
    named_event token("token"), ping("ping"), pong("pong");
    child_process living("answerer");

    std::minstd_rand random(1);
    const auto start = [&] { return child_process("racer", std::to_string(random())); };
    for (std::uint32_t phase = 1; phase <= phases; ++phase) {
        // The one who had it may have been killed.
        token.reset();
        token.set();
        std::vector<child_process> racers;
        for (int i = 0; i < racer_count; ++i)
            racers.push_back(start());
        const std::uint32_t from = done->all_raises;
        const std::uint32_t goal = phase * (raises_wanted / phases);
        for (int kill = 1; kill <= kills_in_a_phase; ++kill) {
            const std::uint32_t mark =
                from + (goal - std::min(from, goal)) / kills_in_a_phase * static_cast<unsigned>(kill);
            while (done->all_raises < mark)
                platform::sleep_for(0);
            child_process& victim = racers[random() % racers.size()];
            EXPECT_EQ(victim.kill(), child_process::killed);
            victim = start();
        }
        while (done->all_raises < goal)
            platform::sleep_for(0);
        for (auto& one : racers)
            EXPECT_EQ(one.kill(), child_process::killed);

        for (int round = 0; round < 20; ++round) {
            ping.set();
            ASSERT_TRUE(pong.wait(patience)) << "lost after phase " << phase;
        }
    }
    for (std::uint32_t taken = 0; (taken = wait_any(held.all, 0)) != wait_timeout;) {
        ASSERT_LT(taken, held_count);
        ++done->takes[taken];
    }
    for (std::size_t i = 0; i < event_count; ++i) {
        EXPECT_LE(done->takes[i], done->raises[i]) << i;
        EXPECT_GT(done->takes[i], 0U) << i;
    }
    for (const auto* owned : {&done->token, &done->lock}) {
        EXPECT_EQ(owned->collisions, 0U);
        EXPECT_GT(owned->entries, phases);
    }
    EXPECT_GT(done->nested, 0U);
    file_lock lock(lock_path());
    EXPECT_TRUE(lock.try_acquire());
    lock.release();
    EXPECT_FALSE(platform::get_attributes(lock_path()));
    EXPECT_GE(done->all_raises, raises_wanted);
}

} // namespace
} // namespace tvr
