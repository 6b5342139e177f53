#include "common/profiler.h"

#include "support/log_lines.h"
#include "support/test.h"

namespace tvr {
namespace {

// A clock that goes on by the next step each time it is read.
std::uint32_t now = 0xFFFFFFF0; // wraps
std::vector<std::uint32_t> steps;
std::uint32_t read_clock() noexcept {
    now += steps.front();
    steps.erase(steps.begin());
    return now;
}

TEST(profiler_test, numbers_its_marks_and_flags_the_slow_ones) {
    const test_root root;
    log_lines log;
    // The construction, and then twice for each mark: what passes while a line is written doesn't count.
    steps = {0, 0, 5000, 99, 0, 100, 200, 150, 0, 0, 101, 0, 7, 0};
    {
        profiler watch("flush_ordered", true, read_clock);
        for (int i = 0; i < 3; ++i)
            watch.mark();
    }
    {
        profiler watch("", false, read_clock);
        watch.mark();
        watch.mark();
    }
    EXPECT_TRUE(steps.empty());
    const std::vector<std::string> expected = {
        "profiler.log: [flush_ordered:0] 0",      "profiler.log: [flush_ordered:1] 99",
        "profiler.log: !!![flush_ordered:2] 100", "profiler.log: !!![flush_ordered:3] 150",
        "profiler.log: !!![unknown:0] 101",       "profiler.log: [unknown:1] 7"};
    EXPECT_EQ(log.take(), expected);
}

} // namespace
} // namespace tvr
