#include "client/score.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

namespace tvr {

namespace {

double logit(double grade) {
    return std::log(grade / (1 - grade));
}

double logistic(double x) {
    return 1 / (1 + std::exp(-x));
}

// The weight of a vote, by the kind of its tokens. Measured, as are the other figures of this rule: with all
// tokens in one pot, the many words of the body drown the few of sender and links.
struct kind_vote {
    char kind;
    double weight;
};
constexpr std::array<kind_vote, 6> votes = {
    {{'B', 2.0}, {'W', 0.5}, {'H', 1.2}, {'F', 1.7}, {'M', 0.5}, {'U', 0.4}}};
constexpr double least_deviation = 0.4; // from 0.5: closer grades have no say
constexpr double crowd = 0.65;          // the n tokens of a kind count as n to the power of 1 - this
// From the sum of the votes to the scale on which 85 is spam and 75 unsure, with the usual thresholds: a sum
// of 20.5 is spam, 12 unsure.
constexpr double scale = 0.0748;
constexpr double middle = 20.5 - 1.7346 / scale;

constexpr double deviation_of_mean = 0.1; // the same for the rules that go by means

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
        if (form[i] >= 'A' && form[i] <= 'Z')
            form[i] = static_cast<char>(form[i] + 32);
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
        case score_rule::fisher:
            keep_deviating(least_deviation);
            return inverse_chi_squared();
        default:
            keep_deviating(least_deviation);
            return kinds();
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

    double kinds() {
        double sum = 0;
        for (const kind_vote& vote : votes) {
            const auto is_meant = [&vote](const known_token& t) { return t.token[0] == vote.kind; };
            const auto n = static_cast<double>(std::count_if(m_tokens.begin(), m_tokens.end(), is_meant));
            const double factor = vote.weight / std::pow(n + 1, crowd);
            for (known_token& t : m_tokens) {
                if (!is_meant(t))
                    continue;
                t.share *= factor;
                sum += t.share;
            }
        }
        return m_tokens.empty() ? 0.5 : logistic(scale * (sum - middle));
    }

    const score_settings& m_settings;
    std::vector<known_token>& m_tokens;
};

} // namespace

mail_scorer::mail_scorer(grade_source grades, const score_settings& settings)
    : m_grades(std::move(grades)), m_settings(settings) {}

message_score mail_scorer::score(const token_table& tokens, bool explain) const {
    message_score result;
    std::vector<known_token> known;
    tokens.for_each([&](std::string_view token, std::uint32_t) {
        double grade = m_grades(token);
        if (grade == 0 && m_settings.degenerate)
            grade = grade_of_forms(m_grades, token);
        if (grade > 0 && grade < 1)
            known.push_back({token, grade});
    });
    result.known = known.size();
    result.score = 100 * combination(m_settings, known).run();
    result.decision = result.score >= m_settings.spam_threshold     ? verdict::spam
                      : result.score >= m_settings.unsure_threshold ? verdict::unsure
                                                                    : verdict::ham;
    if (explain) {
        std::stable_sort(known.begin(), known.end(), [](const known_token& x, const known_token& y) {
            return std::abs(x.share) > std::abs(y.share);
        });
        for (const known_token& t : known)
            result.tokens.push_back({std::string(t.token), t.grade, t.share});
    }
    return result;
}

} // namespace tvr
