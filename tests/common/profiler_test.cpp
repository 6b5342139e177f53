#include "common/profiler.h"

#include <gtest/gtest.h>

#include "support/log_lines.h"
#include "support/test_root.h"

namespace tvr {

namespace {

using lines = std::vector<std::string>;

// A clock that goes on by the next step each time it is read.
std::uint32_t now;
std::vector<std::uint32_t> steps;
std::uint32_t read_clock() noexcept {
    if (!steps.empty()) {
        now += steps.front();
        steps.erase(steps.begin());
    }
    return now;
}

class profiler_test : public testing::Test {
protected:
    test_root root;
    log_lines log;
};

TEST_F(profiler_test, numbers_its_marks_and_flags_the_slow_ones) {
    now = 0xFFFFFFF0; // wraps
    // The construction, and then twice for each mark: what passes while a line is written doesn't count.
    steps = {0, 0, 5000, 99, 0, 100, 200, 101, 0};
    profiler watch("flush_ordered", false, read_clock);
    for (int i = 0; i < 4; ++i)
        watch.mark();
    EXPECT_EQ(log.take(),
              (lines{"profiler.log: [flush_ordered:0] 0", "profiler.log: [flush_ordered:1] 99",
                     "profiler.log: !!![flush_ordered:2] 100", "profiler.log: !!![flush_ordered:3] 101"}));
}

TEST_F(profiler_test, marks_at_its_end_only_if_asked) {
    for (const bool mark : {false, true}) {
        steps = {0, 150, 0};
        { const profiler watch("", mark, read_clock); }
        EXPECT_EQ(log.take(), mark ? lines{"profiler.log: !!![unknown:0] 150"} : lines());
    }
    steps = {0, 7, 0, 8, 0};
    {
        profiler watch("", true, read_clock);
        watch.mark();
    }
    EXPECT_EQ(log.take(), (lines{"profiler.log: [unknown:0] 7", "profiler.log: [unknown:1] 8"}));
}

} // namespace

} // namespace tvr
