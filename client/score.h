// The verdict on a message, from the grades that the published base gives its tokens.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "client/token_table.h"
#include "client/tvr_ipc_export.h"

namespace tvr {

enum class verdict { ham, unsure, spam };

// How the grades are combined.
enum class score_rule {
    kinds,    // each kind of token has its vote, by the number of its tokens and their grades; the default
    graham,   // the product of the most significant grades
    robinson, // the geometric mean
    fisher,   // the inverse chi-squared of their product
};

struct score_settings {
    score_rule rule = score_rule::kinds;
    std::uint32_t significant_tokens = 15; // for `graham`
    bool degenerate =
        true; // an unknown word counts as its nearest known form: "FREE!" as "FREE", "Free", "free"
    double spam_threshold = 85;   // a score of at least this is spam
    double unsure_threshold = 75; // of the others, one of at least this is unsure
};

struct token_share {
    std::string token;
    double grade = 0; // 0.01 to 0.99
    double share = 0; // what it adds to the verdict: above 0 speaks for spam
};

struct message_score {
    double score = 50; // 0 (ham) to 100 (spam); 50 if no token is known
    verdict decision = verdict::ham;
    std::size_t known = 0;           // tokens that the base grades
    std::vector<token_share> tokens; // those that decided, the weightiest first; only if asked for
};

// Any thread, as far as the source of the grades allows it.
class TVR_IPC_EXPORT mail_scorer {
public:
    // Answers a token's grade, or 0.0 if it has none.
    using grade_source = std::function<double(std::string_view token)>;

    explicit mail_scorer(grade_source grades, const score_settings& settings = {});

    [[nodiscard]] message_score score(const token_table& tokens, bool explain = false) const;
    [[nodiscard]] const score_settings& settings() const noexcept { return m_settings; }

private:
    grade_source m_grades;
    score_settings m_settings;
};

} // namespace tvr
