// The figures of an evaluation, by hand.

#include <sstream>

#include "client/mail_date.h"
#include "support/test.h"
#include "tools/eval/evaluation_report.h"

namespace tvr {
namespace {

// Scores with s behind those of spam, h behind those of good mail; judged with the thresholds 85 and 75.
std::vector<judged_mail> judged(const std::string& scores) {
    std::vector<judged_mail> mails;
    std::istringstream in(scores);
    double score = 0;
    for (char kind = 0; in >> score >> kind;) {
        const verdict told = score >= 85 ? verdict::spam : score >= 75 ? verdict::unsure : verdict::ham;
        mails.push_back({score, kind == 's', told});
    }
    return mails;
}

TEST(evaluation, counts) {
    const auto mails = judged("85 s 84.9 s 74 s 85 h 75 h 10 h 0 h 100 s");
    const confusion found = confuse(mails);
    EXPECT_EQ(std::tie(found.spam_as_spam, found.spam_as_unsure, found.spam_as_ham),
              std::make_tuple(2U, 1U, 1U));
    EXPECT_EQ(std::tie(found.ham_as_spam, found.ham_as_unsure, found.ham_as_ham),
              std::make_tuple(1U, 1U, 2U));
    EXPECT_EQ(found.missed(), 2U);
    EXPECT_EQ(found.right(), 5U);

    const auto blocks = errors_by_block(mails, 3);
    ASSERT_EQ(blocks.size(), 3U);
    EXPECT_EQ(blocks[0].missed, 2U);
    EXPECT_EQ(blocks[1].false_positives, 1U);
    EXPECT_EQ(blocks[2].mails, 2U);

    const auto bins = reliability(mails);
    ASSERT_EQ(bins.size(), 5U); // 0 to 1, 10 to 25, 50 to 75, 75 to 90, 99 to 100
    EXPECT_EQ(bins[3].mails, 4U);
    EXPECT_DOUBLE_EQ(bins[3].said, (85 + 84.9 + 85 + 75) / 400);
    EXPECT_DOUBLE_EQ(bins[3].seen, 0.5);
    EXPECT_EQ(bins[4].mails, 1U);
}

TEST(evaluation, area_under_the_curve) {
    EXPECT_DOUBLE_EQ(roc_area(judged("90 s 10 h")), 1);
    EXPECT_DOUBLE_EQ(roc_area(judged("10 s 90 h")), 0);
    EXPECT_DOUBLE_EQ(roc_area(judged("50 s 50 h")), 0.5);
    // Of six pairs two are right and one is a tie.
    EXPECT_DOUBLE_EQ(roc_area(judged("9 s 8 h 7 s 7 h 6 s")), 2.5 / 6);
    EXPECT_DOUBLE_EQ(roc_area(judged("9 s")), 0.5);
}

TEST(evaluation, spam_missed_at_a_rate_of_false_positives) {
    auto mails = judged("90 s 80 s 70 s 60 s 95 h 80 h");
    mails.resize(mails.size() + 18, {10, false, verdict::ham});
    EXPECT_FALSE(missed_at(mails, 0.04));                   // of twenty good ones that is none
    EXPECT_DOUBLE_EQ(missed_at(mails, 0.05).value(), 0.75); // above 80, with one of them wrong
    EXPECT_DOUBLE_EQ(missed_at(mails, 0.1).value(), 0);
    EXPECT_FALSE(missed_at(judged("1 h 2 h"), 0.5));
}

TEST(evaluation, time_of_arrival) {
    const std::uint32_t latest = minutes_from_mail_date("1 Jan 2010 00:00 +0000");
    EXPECT_EQ(arrival_time("from a by b (x; y); Thu, 22 Aug 2002 13:17:21 +0100", latest),
              minutes_from_mail_date("22 Aug 2002 12:17 +0000"));
    EXPECT_EQ(arrival_time("x; 1 Jan 2010 00:00 +0000", latest), latest);
    for (const char* hop : {"", "from a by b", "x; 1 Jan 2010 00:01 +0000", "x; 31 Dec 1989 23:59 +0000"})
        EXPECT_EQ(arrival_time(hop, latest), 0U);
}

TEST(evaluation, confidence_intervals) {
    const interval some = confidence(5, 100); // published figures of this interval
    EXPECT_NEAR(some.low, 0.02154, 1e-4);
    EXPECT_NEAR(some.high, 0.11175, 1e-4);
    EXPECT_EQ(confidence(0, 100).low, 0);
    EXPECT_NEAR(confidence(0, 100).high, 0.03699, 1e-4);
    EXPECT_EQ(confidence(0, 0).high, 1);
}

TEST(evaluation, reports_tell_how_it_was_and_stand_alone) {
    evaluation_result result;
    result.title = "A <b> & c";
    result.circumstances = {{"Rule", "kinds"}};
    result.mails = judged("99 s 1 h 86 h 0 h 20 s 90 h");
    result.names = {"a", "b", "c", "d", "e<", "f"};
    result.curve = {{10, 0.6}, {20, 0.9}};
    result.block = 4;
    const std::string page = report_page(result);
    for (const char* part : {"A &lt;b> &amp; c", "<dt>Rule</dt><dd>kinds</dd>", "e&lt;"})
        EXPECT_TRUE(holds(page, part));
    for (const char* foreign : {"<script", "href=", "src=", "http:", "https:", "nan"})
        EXPECT_FALSE(holds(page, foreign));
    std::size_t plots = 0;
    for (std::size_t at = page.find("<svg"); at != std::string::npos; at = page.find("<svg", at + 1))
        ++plots;
    EXPECT_EQ(plots, 5U);

    const std::string text = report_text(result);
    EXPECT_TRUE(holds(text, "    spam            1            0            1\n"
                            "     ham            2            0            2\n"));
    EXPECT_TRUE(holds(text, "     2:     1+0     1+1\n"));
    EXPECT_TRUE(
        holds(text, "false positive   90.00  f\nfalse positive   86.00  c\nmissed spam      20.00  e<\n"));
}

} // namespace
} // namespace tvr
