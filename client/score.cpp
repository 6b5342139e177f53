#include "client/score.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

#include "client/verdict/exact_math.h"
#include "platform/ascii.h"

namespace tvr {

namespace {

double logit(double grade) {
    return std::log(grade / (1 - grade));
}

double logistic(double x) {
    return 1 / (1 + std::exp(-x));
}

constexpr double least_deviation = 0.4;   // from 0.5: the closer grades have no say in Fisher's rule
constexpr double deviation_of_mean = 0.1; // the same for the geometric mean

// The upper tail of the chi-squared distribution with an even number of degrees of freedom. By logarithms,
// since the terms of long messages are beyond every double.
double chi_squared_tail(double x, std::size_t degrees) {
    const double half = x / 2;
    if (half <= 0)
        return 1;
    double logarithm = -half;
    double sum = 0;
    for (std::size_t i = 0; i < degrees / 2; ++i) {
        if (i != 0)
            logarithm += std::log(half / static_cast<double>(i));
        sum += std::exp(logarithm);
    }
    return std::min(sum, 1.0);
}

// The grade of the most telling form of an unknown word; 0 if none is known. Words of the body and of headers
// have forms: without "!", with one capital, with none.
double grade_of_forms(const mail_scorer::grade_source& grades, std::string_view token) {
    if (!token.starts_with("B ") && !token.starts_with("H "))
        return 0;
    const std::size_t start = token[0] == 'H' ? token.find(':') + 1 : 2; // of the word
    if (start == 0)
        return 0;
    std::string form(token);
    while (form.size() > start && form.back() == '!')
        form.pop_back();
    double best = 0;
    const auto consider = [&] {
        const double grade = form == token ? 0 : grades(form);
        if (grade > 0 && grade < 1 && (best == 0 || std::abs(grade - 0.5) > std::abs(best - 0.5)))
            best = grade;
    };
    consider();
    for (std::size_t i = start; i < form.size(); ++i)
        form[i] = lower(form[i]);
    consider();
    if (form.size() > start && form[start] >= 'a' && form[start] <= 'z') {
        form[start] = static_cast<char>(form[start] - 32);
        consider();
    }
    return best;
}

// As a token_share, but for the text, which lies in the message's table.
struct known_token {
    std::string_view token;
    double grade = 0;
    double share = 0;
};

struct graded_token {
    std::string_view token;
    token_key key = 0;
    double grade = 0;                     // by the base
    std::array<std::size_t, 2> classes{}; // of the grades by the base, and by all mail
};

class combination {
public:
    combination(const score_settings& settings, std::vector<known_token>& tokens)
        : m_settings(settings), m_tokens(tokens) {}

    double run() { // 0 to 1
        switch (m_settings.rule) {
        case score_rule::graham:
            keep_most_significant();
            return product();
        case score_rule::robinson:
            keep_deviating(deviation_of_mean);
            return geometric_mean();
        default:
            keep_deviating(least_deviation);
            return inverse_chi_squared();
        }
    }

private:
    void keep_deviating(double least) {
        std::erase_if(m_tokens, [=](const known_token& t) { return std::abs(t.grade - 0.5) < least; });
        for (known_token& t : m_tokens)
            t.share = logit(t.grade);
    }

    void keep_most_significant() {
        std::stable_sort(m_tokens.begin(), m_tokens.end(), [](const known_token& a, const known_token& b) {
            return std::abs(a.grade - 0.5) > std::abs(b.grade - 0.5);
        });
        if (m_tokens.size() > m_settings.significant_tokens)
            m_tokens.resize(m_settings.significant_tokens);
        for (known_token& t : m_tokens)
            t.share = logit(t.grade);
    }

    double product() const {
        double sum = 0;
        for (const known_token& t : m_tokens)
            sum += t.share;
        return logistic(sum);
    }

    // The sums of the logarithms of the grades, and of what they lack to 1.
    std::pair<double, double> logarithms() const {
        std::pair<double, double> sums;
        for (const known_token& t : m_tokens) {
            sums.first += std::log(t.grade);
            sums.second += std::log(1 - t.grade);
        }
        return sums;
    }

    double geometric_mean() const {
        if (m_tokens.empty())
            return 0.5;
        const auto [spam, ham] = logarithms();
        const auto n = static_cast<double>(m_tokens.size());
        const double p = 1 - std::exp(ham / n);
        const double q = 1 - std::exp(spam / n);
        return p / (p + q);
    }

    double inverse_chi_squared() const {
        if (m_tokens.empty())
            return 0.5;
        const auto [spam, ham] = logarithms();
        return (1 + chi_squared_tail(-2 * spam, 2 * m_tokens.size()) -
                chi_squared_tail(-2 * ham, 2 * m_tokens.size())) /
               2;
    }

    const score_settings& m_settings;
    std::vector<known_token>& m_tokens;
};

// The user's state, or that of somebody who has judged nothing yet.
std::shared_ptr<const verdict_state> or_nothing(std::shared_ptr<const verdict_state> learned) {
    static const auto nothing = std::make_shared<const verdict_state>();
    return learned ? std::move(learned) : nothing;
}

// How the logit of a message is shared out among its tokens: each grading has half of it.
class token_shares {
public:
    token_shares(const evidence& of, const feature_weights& weights, const token_memory& memory)
        : m_memory(memory) {
        const double sum = sum_of_weights(of, weights);
        const double part = certainty(of, sum);
        m_middle = (sum - feature_vector(of).times(weights)) * part;
        for (const bool all : {false, true}) {
            evidence one = of;
            (all ? one.by_base : one.by_all) = all ? of.by_all : of.by_base;
            feature_vector(one).for_each([&](std::size_t place, double value) {
                const double share = value * weights[place] * part / 2;
                if (const auto cell = feature::cell_of(place))
                    m_cells[all ? 1 : 0][*cell].share += share;
                else if (feature::is_of_memory(place))
                    m_of_memory += share;
                else
                    m_middle += share;
            });
        }
    }

    // To be called for every token first.
    void count(const graded_token& token) {
        if (kind_of_key(token.key) < kind_count)
            for (std::size_t grading = 0; grading < 2; ++grading)
                ++cell_of(token, grading).tokens;
        m_sum += m_memory.weight(token.key);
        ++m_tokens;
    }
    [[nodiscard]] double share(const graded_token& token) {
        double sum = said() == 0
                         ? 0
                         : m_of_memory * m_memory.weight(token.key) * token_memory::scale(m_tokens) / said();
        if (kind_of_key(token.key) < kind_count)
            for (std::size_t grading = 0; grading < 2; ++grading)
                sum += cell_of(token, grading).share / cell_of(token, grading).tokens;
        return sum;
    }
    [[nodiscard]] double middle() const {
        return m_middle + (said() == 0 ? m_of_memory : m_of_memory * m_memory.bias / said());
    }

private:
    struct held_by_cell {
        double share = 0;
        std::uint32_t tokens = 0;
    };
    held_by_cell& cell_of(const graded_token& token, std::size_t grading) {
        return m_cells[grading][kind_of_key(token.key) * class_count + token.classes[grading]];
    }
    [[nodiscard]] double said() const {
        return static_cast<double>(m_sum) * token_memory::scale(m_tokens) + m_memory.bias;
    }

    const token_memory& m_memory;
    std::array<std::array<held_by_cell, feature::cells>, 2> m_cells{}; // by the base, by all mail
    double m_of_memory = 0;
    double m_middle = 0;
    std::int64_t m_sum = 0; // of the memory's weights
    std::size_t m_tokens = 0;
};

} // namespace

mail_scorer::mail_scorer(grade_source grades, const score_settings& settings)
    : m_grades(std::move(grades)), m_settings(settings), m_learned(or_nothing(settings.learned)),
      m_weights(weights_of(*m_learned)) {}

message_score mail_scorer::score(const token_table& tokens, bool explain) const {
    message_score result = m_settings.rule == score_rule::kinds ? score_by_kinds(tokens, explain)
                                                                : score_by_grades(tokens, explain);
    std::stable_sort(
        result.tokens.begin(), result.tokens.end(),
        [](const token_share& x, const token_share& y) { return std::abs(x.share) > std::abs(y.share); });
    return result;
}

verdict mail_scorer::decide(double score, double spam_from) const noexcept {
    return score >= spam_from                     ? verdict::spam
           : score >= m_settings.unsure_threshold ? verdict::unsure
                                                  : verdict::ham;
}

message_score mail_scorer::score_by_kinds(const token_table& tokens, bool explain) const {
    message_score result;
    evidence_sum sum(m_learned->memory, m_learned->seen,
                     {.spam = m_settings.spam_messages, .ham = m_settings.ham_messages});
    std::vector<graded_token> graded; // for the explanation
    tokens.for_each([&](std::string_view token, std::uint32_t) {
        const double grade = m_grades(token);
        const token_key key = key_of(token);
        const std::size_t by_base = class_of(grade);
        const std::size_t by_all = sum.add(key, by_base);
        result.known += grade > 0 ? 1 : 0;
        if (explain)
            graded.push_back({token, key, grade, {by_base, by_all}});
    });
    const evidence what = sum.finish();
    result.spam_from = 100 * exact_logistic(spam_logit(*m_learned, m_settings.limits));
    if (result.known == 0)
        return result;
    result.score = 100 * exact_logistic(logit_of(what, m_weights));
    result.decision = decide(result.score, result.spam_from);
    if (explain) {
        token_shares shares(what, m_weights, m_learned->memory);
        for (const graded_token& each : graded)
            shares.count(each);
        for (const graded_token& each : graded)
            result.tokens.push_back({std::string(each.token), each.grade, shares.share(each)});
        result.middle = shares.middle();
    }
    return result;
}

message_score mail_scorer::score_by_grades(const token_table& tokens, bool explain) const {
    message_score result;
    result.spam_from = m_settings.limits.spam_threshold;
    std::vector<known_token> known;
    tokens.for_each([&](std::string_view token, std::uint32_t) {
        double grade = m_grades(token);
        if (grade == 0 && m_settings.degenerate)
            grade = grade_of_forms(m_grades, token);
        if (grade > 0 && grade < 1)
            known.push_back({token, grade});
    });
    result.known = known.size();
    if (known.empty())
        return result;
    result.score = 100 * combination(m_settings, known).run();
    result.decision = decide(result.score, result.spam_from);
    if (explain)
        for (const known_token& t : known)
            result.tokens.push_back({std::string(t.token), t.grade, t.share});
    return result;
}

} // namespace tvr
