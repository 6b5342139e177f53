// A short form of the benchmark tvr_long_life.
#include <gtest/gtest.h>

#include "bench/long_life.h"

TEST(long_life, nothing_grows_but_the_lists_of_ids) {
    const auto [samples, defects] =
        tvr::long_life::run({.transactions = 48, .messages = 20, .words = 40, .small_limits = true});
    EXPECT_EQ(samples.size(), 48U);
    EXPECT_EQ(defects, std::vector<std::string>());
}
