// The verdict on a message, from the grades that the published base gives its tokens.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "client/token_table.h"
#include "client/tvr_ipc_export.h"
#include "client/verdict/judge.h"

namespace tvr {

enum class verdict { ham, unsure, spam };

// How the grades are combined.
enum class score_rule {
    kinds,    // each kind of token has its vote, by weights learned from the user's own mail; the default
    graham,   // the product of the most significant grades
    robinson, // the geometric mean
    fisher,   // the inverse chi-squared of their product
};

struct score_settings {
    score_rule rule = score_rule::kinds;
    std::uint32_t significant_tokens = 15; // for `graham`
    // Of all rules but `kinds`: an unknown word counts as its nearest known form, "FREE!" as "FREE", "Free",
    // "free".
    bool degenerate = true;
    spam_limits limits{}; // a score of at least these is spam; the other rules know the threshold alone
    double unsure_threshold = 75; // of the others, one of at least this is unsure
    // For `kinds`: what was learned from the user's mail, if any, and how many messages the base was made of.
    std::shared_ptr<const verdict_state> learned{};
    std::uint32_t spam_messages = 0xFFFF;
    std::uint32_t ham_messages = 0xFFFF;
};

struct token_share {
    std::string token;
    double grade = 0; // 0.01 to 0.99; 0 if it has none
    double share = 0; // what it adds to the verdict: above 0 speaks for spam
};

struct message_score {
    double score = 50;                  // the probability of spam in percent; 50 if no token is known
    verdict decision = verdict::unsure; // so it is if no token is known
    std::size_t known = 0;              // tokens that the base grades
    double spam_from = 85;              // the score that would have been spam
    // Only if asked for: the tokens that decided, the weightiest first. By the rule `kinds` their shares and
    // `middle` add up to the logit of the score.
    std::vector<token_share> tokens;
    double middle = 0;
};

// Any thread, as far as the source of the grades allows it.
class TVR_IPC_EXPORT mail_scorer {
public:
    // Returns a token's grade, or 0.0 if it has none.
    using grade_source = std::function<double(std::string_view token)>;

    explicit mail_scorer(grade_source grades, const score_settings& settings = {});

    [[nodiscard]] message_score score(const token_table& tokens, bool explain = false) const;
    [[nodiscard]] const score_settings& settings() const noexcept { return m_settings; }

private:
    [[nodiscard]] message_score score_by_kinds(const token_table& tokens, bool explain) const;
    [[nodiscard]] message_score score_by_grades(const token_table& tokens, bool explain) const;
    [[nodiscard]] verdict decide(double score, double spam_from) const noexcept;

    grade_source m_grades;
    score_settings m_settings;
    std::shared_ptr<const verdict_state> m_learned;
    feature_weights m_weights;
};

} // namespace tvr
