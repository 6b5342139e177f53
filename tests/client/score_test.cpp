// The verdict, from grades by hand.

#include <cmath>

#include "client/score.h"
#include "support/test.h"

namespace tvr {
namespace {

using grades = std::map<std::string, double, std::less<>>;

message_score score_of(const grades& base, const std::vector<std::string>& tokens,
                       const score_settings& settings) {
    const mail_scorer scorer(
        [&](std::string_view token) {
            const auto found = base.find(token);
            return found == base.end() ? 0.0 : found->second;
        },
        settings);
    token_table table;
    for (const std::string& token : tokens)
        table.add(token);
    return scorer.score(table, true);
}

const grades base = {{"B spam", 0.99}, {"B spam2", 0.99}, {"B ham", 0.01},  {"B so", 0.8},
                     {"B mid", 0.5},   {"F ham", 0.01},   {"F spam", 0.99}, {"B nan", std::nan("")},
                     {"B high", 1.5},  {"B neg", -1},     {"X spam", 0.99}};

TEST(score, is_that_of_the_rules) {
    const struct {
        score_rule rule;
        std::vector<std::string> tokens;
        double expected; // 0 to 100
    } cases[] = {
        {score_rule::graham, {"B spam"}, 99},
        {score_rule::graham, {"B spam", "B ham"}, 50},
        {score_rule::graham, {"B spam", "B so", "B unknown"}, 100 * 0.792 / (0.792 + 0.002)},
        // p = 1 - (0.01 * 0.2)^(1/2), q = 1 - (0.99 * 0.8)^(1/2)
        {score_rule::robinson, {"B spam", "B so"}, 100 * 0.9552786 / (0.9552786 + 0.1100562)},
        {score_rule::robinson, {"B spam", "B so", "B mid"}, 100 * 0.9552786 / (0.9552786 + 0.1100562)},
        // Two degrees of freedom: the tail of -2 ln x is x itself.
        {score_rule::fisher, {"B spam"}, 100 * (1 + 0.99 - 0.01) / 2},
        // Four: x (1 - ln x), with x = 0.9801 and 0.0001.
        {score_rule::fisher, {"B spam", "B spam2"}, 100 * (1 + 0.9998007 - 0.0010210) / 2},
        {score_rule::graham, {"B unknown"}, 50},
        {score_rule::robinson, {}, 50},
        {score_rule::fisher, {"B mid"}, 50},
        {score_rule::kinds, {"B unknown"}, 50},
        // What no base holds counts as unknown.
        {score_rule::graham, {"B spam", "B nan", "B high", "B neg"}, 99},
    };
    for (const auto& test : cases)
        EXPECT_NEAR(score_of(base, test.tokens, {.rule = test.rule}).score, test.expected, 1e-4);
}

TEST(score, takes_the_most_significant_tokens) {
    const auto result =
        score_of(base, {"B so", "B ham", "B spam"}, {.rule = score_rule::graham, .significant_tokens = 2});
    EXPECT_NEAR(result.score, 50, 1e-9);
    EXPECT_EQ(result.known, 3U);
    EXPECT_EQ(result.tokens.size(), 2U);
}

TEST(score, is_the_sum_of_its_shares) {
    auto learned = std::make_shared<verdict_state>();
    learned->memory.bias = 300;
    for (const char* token : {"B spam", "B spam2", "B unknown", "X spam"})
        for (int i = 0; i < 40; ++i) {
            learned->memory.learn(std::vector{key_of(token)}, token[2] == 's');
            learned->seen.add(std::vector{key_of(token)}, i % 4 != 0);
        }
    for (const auto& state : {std::shared_ptr<verdict_state>(), learned})
        for (const std::uint32_t messages : {3U, 500U}) {
            const auto result =
                score_of(base, {"B spam", "B spam2", "B unknown", "B ham", "F ham", "H new", "X spam"},
                         {.learned = state, .spam_messages = messages, .ham_messages = 2 * messages});
            double sum = result.middle;
            for (const token_share& token : result.tokens)
                sum += token.share;
            EXPECT_NEAR(sum, std::log(result.score / (100 - result.score)), 1e-9);
            EXPECT_EQ(result.tokens.size(), 7U);
        }
}

TEST(score, decides_by_the_thresholds) {
    const auto verdict_at = [](double grade, double spam, double unsure) {
        return score_of({{"B x", grade}}, {"B x"},
                        {.rule = score_rule::graham,
                         .limits = {.spam_threshold = spam},
                         .unsure_threshold = unsure})
            .decision;
    };
    EXPECT_EQ(verdict_at(0.9, 85, 75), verdict::spam);
    EXPECT_EQ(verdict_at(0.8, 85, 75), verdict::unsure);
    EXPECT_EQ(verdict_at(0.7, 85, 75), verdict::ham);
    EXPECT_EQ(verdict_at(0.7, 85, 90), verdict::ham);  // no room for unsure
    EXPECT_EQ(verdict_at(0, 85, 75), verdict::unsure); // nothing is known
}

TEST(score, knows_words_by_their_other_forms) {
    const grades forms = {
        {"B free", 0.9}, {"B Free", 0.95}, {"B FREE!", 0.2}, {"H subject:win", 0.9}, {"F a", 0.9}};
    const auto known = [&](const char* token) {
        const auto result = score_of(forms, {token}, {.rule = score_rule::graham});
        return result.known == 0 ? 0 : result.score;
    };
    EXPECT_NEAR(known("B FREE!"), 20, 1e-9); // itself comes first
    EXPECT_NEAR(known("B FREE!!"), 95, 1e-9);
    EXPECT_NEAR(known("B fREE"), 95, 1e-9); // of two forms the more telling one
    EXPECT_NEAR(known("H subject:WIN!"), 90, 1e-9);
    EXPECT_EQ(known("F A"), 0);
    EXPECT_EQ(known("B gratis"), 0);
    EXPECT_EQ(known("B !!!"), 0);
    EXPECT_EQ(known("H nothing"), 0);
}

// Terms far below every double.
TEST(score, survives_long_messages) {
    token_table table;
    for (int i = 0; i < 6000; ++i)
        table.add("B " + std::to_string(i));
    for (const score_rule rule : {score_rule::graham, score_rule::robinson, score_rule::fisher})
        for (const double grade : {0.99, 0.01}) {
            const mail_scorer scorer([=](std::string_view) { return grade; }, {.rule = rule});
            const double score = scorer.score(table).score;
            EXPECT_TRUE(grade > 0.5 ? score > 85 : score < 15) << score;
        }
}

} // namespace
} // namespace tvr
