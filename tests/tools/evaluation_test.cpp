// The figures of an evaluation, by hand.

#include "support/test.h"
#include "tools/evaluation.h"

namespace tvr {
namespace {

TEST(evaluation, counts) {
    const std::vector<scored_mail> mails = {{85, true},  {84.9, true}, {74, true}, {85, false},
                                            {75, false}, {10, false},  {0, false}, {100, true}};
    const confusion found = confuse(mails, 85, 75);
    EXPECT_EQ(found.spam_as_spam, 2U);
    EXPECT_EQ(found.spam_as_unsure, 1U);
    EXPECT_EQ(found.spam_as_ham, 1U);
    EXPECT_EQ(found.ham_as_spam, 1U);
    EXPECT_EQ(found.ham_as_unsure, 1U);
    EXPECT_EQ(found.ham_as_ham, 2U);
    EXPECT_EQ(found.missed(), 2U);
    EXPECT_EQ(found.right(), 5U);
}

TEST(evaluation, area_under_the_curve) {
    EXPECT_DOUBLE_EQ(roc_area({{90, true}, {10, false}}), 1);
    EXPECT_DOUBLE_EQ(roc_area({{10, true}, {90, false}}), 0);
    EXPECT_DOUBLE_EQ(roc_area({{50, true}, {50, false}}), 0.5);
    // Of six pairs two are right and one is a tie.
    EXPECT_DOUBLE_EQ(roc_area({{9, true}, {8, false}, {7, true}, {7, false}, {6, true}}), 2.5 / 6);
    EXPECT_DOUBLE_EQ(roc_area({{9, true}}), 0.5);
}

TEST(evaluation, confidence_intervals) {
    const interval some = confidence(5, 100); // published figures of this interval
    EXPECT_NEAR(some.low, 0.02154, 1e-4);
    EXPECT_NEAR(some.high, 0.11175, 1e-4);
    EXPECT_EQ(confidence(0, 100).low, 0);
    EXPECT_NEAR(confidence(0, 100).high, 0.03699, 1e-4);
    EXPECT_EQ(confidence(0, 0).high, 1);
}

TEST(evaluation, report_stands_alone) {
    const std::vector<scored_mail> mails = {{99, true}, {1, false}, {100, true}, {0, false}};
    const std::string page =
        report_page(mails, confuse(mails, 85, 75), {{10, 0.6}, {20, 0.9}}, "A <b> & c", 85, 75);
    EXPECT_TRUE(holds(page, "A &lt;b> &amp; c"));
    for (const char* foreign : {"<script", "href=", "src=", "http:", "https:", "nan"})
        EXPECT_FALSE(holds(page, foreign));
    std::size_t plots = 0;
    for (std::size_t at = page.find("<svg"); at != std::string::npos; at = page.find("<svg", at + 1))
        ++plots;
    EXPECT_EQ(plots, 3U);
}

} // namespace
} // namespace tvr
