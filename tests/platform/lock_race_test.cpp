// Eight processes race for the lock file while others of them are killed.
#include "dict/dictbase.h"

#include <random>

#include "platform/clock.h"
#include "platform/error.h"
#include "platform/process.h"
#include "support/child_process.h"
#include "support/platform_limits.h"
#include "support/shared_tally.h"
#include "support/test.h"

namespace tvr {
namespace {

constexpr std::size_t racers = 8;
const std::uint32_t acquisitions_wanted = race_length(100'000);
const std::uint32_t kills_wanted = race_length(60);

// What the holders of the lock have done.
struct counts {
    counter acquisitions;
    counter holder; // the process inside
    counter collisions;
    counter nested;
};
using tally = shared_tally<counts>;

std::string lock_path() {
    return platform::temp_folder_path() + "lock.bin";
}

// Of two owners at once at least one finds the other's steps between its own.
void work_inside(const tally& done, std::uint32_t own, bool slowly) {
    done->holder.store(own);
    const std::uint32_t number = done->acquisitions.load() + 1;
    done->acquisitions.store(number);
    if (slowly)
        platform::sleep_for(0);
    if (done->acquisitions.load() != number || done->holder.load() != own)
        ++done->collisions;
    done->holder.store(0);
}

const child_role racer("lock racer", [](std::string_view seed) {
    tally done;
    if (!done.open())
        return 1;
    std::minstd_rand random(static_cast<unsigned>(std::stoul(std::string(seed))));
    const std::uint32_t own = platform::current_process_id();
    file_lock lock(lock_path());
    while (done->acquisitions.load() < acquisitions_wanted) {
        if (!lock.try_acquire()) {
            platform::sleep_for(random() % 8);
            continue;
        }
        const bool nests = random() % 8 == 0 && lock.try_acquire();
        work_inside(done, own, random() % 4 == 0);
        if (nests) {
            lock.release();
            ++done->nested;
        }
        lock.release();
    }
    return 0;
});

TEST(file_lock_test, has_one_owner_whoever_dies) {
    const test_root root;
    tally done;
    ASSERT_TRUE(done.open());
    std::minstd_rand random(1);
    std::vector<child_process> all;
    const auto start = [&] { return child_process("lock racer", std::to_string(random())); };
    while (all.size() < racers)
        all.push_back(start());
    for (std::uint32_t kill = 1; kill <= kills_wanted; ++kill) {
        const std::uint32_t mark = acquisitions_wanted / (kills_wanted + 1) * kill;
        while (done->acquisitions.load() < mark)
            platform::sleep_for(1);
        child_process& victim = all[random() % racers];
        EXPECT_EQ(victim.kill(), child_process::killed);
        victim = start();
    }
    for (child_process& one : all)
        EXPECT_EQ(one.join(), 0);
    EXPECT_GE(done->acquisitions.load(), acquisitions_wanted);
    EXPECT_EQ(done->collisions.load(), 0U);
    EXPECT_GT(done->nested.load(), 0U);

    file_lock lock(lock_path());
    EXPECT_TRUE(lock.try_acquire());
    lock.release();
    EXPECT_FALSE(platform::get_attributes(lock_path()));
}

} // namespace
} // namespace tvr
