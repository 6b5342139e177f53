#include "client/verdict/model.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "client/verdict/exact_math.h"

namespace tvr {

namespace {

constexpr std::array<double, 256> make_amounts() {
    std::array<double, 256> amounts{};
    for (std::size_t packed = 0; packed < amounts.size(); ++packed)
        amounts[packed] = exact_log(1 + static_cast<double>(unpack_count(static_cast<std::uint8_t>(packed))));
    return amounts;
}
constexpr std::array<double, 256> amounts = make_amounts(); // log(1 + count) of a packed count

// 1 for no message, one half for `half`, near 0 for many.
double little(std::uint32_t messages, double half) noexcept {
    return half / (half + static_cast<double>(messages));
}

constexpr double few = 30, some = 300; // messages
constexpr double memory_unit = 64;

// Good mail of a kind that wasn't met looks like spam: the less good mail is known, the more is doubted.
constexpr double doubt = 3.15;       // of a logit, without any good mail
constexpr double little_known = 250; // messages that leave half of the doubt
// Spam of a new kind has words of the only good mail that is known: so many messages of it halve its vote.
constexpr double halved_by = 300;

// Mail that came together is more alike than what comes next: it flatters the grades it gives itself.
constexpr double crossed_weight = 0.7;

constexpr double least_spread = 1e-4; // of p * (1 - p): what is surer doesn't bend the curve
constexpr double enough = 0.02;       // a step that gains less is the last

// The regression over the messages, which stay as sparse lists for the few rounds it takes.
class regression {
public:
    regression(std::size_t count, const std::function<judged_evidence(std::size_t)>& get,
               const learning_plan& plan)
        : m_plan(plan) {
        m_messages.reserve(count);
        for (std::size_t i = 0; i < count; ++i)
            add(get(i));
    }

    feature_weights run(feature_weights weights) {
        double loss = loss_of(weights);
        for (unsigned step = 0; step < m_plan.most_steps; ++step) {
            make_step(weights);
            double part = 1;
            feature_weights next;
            double next_loss = 0;
            do {
                next = weights;
                for (std::size_t i = 0; i < m_plan.learned; ++i)
                    next[i] -= part * m_step[i];
                next_loss = loss_of(next);
                part /= 2;
            } while (!(next_loss <= loss) && part > 1e-6);
            if (!(next_loss <= loss))
                break;
            const bool is_last = loss - next_loss < enough;
            weights = next;
            loss = next_loss;
            if (is_last)
                break;
        }
        return weights;
    }

private:
    struct message {
        std::size_t first = 0, end = 0; // of its features
        double fixed = 0;               // what the features add that aren't learned
        double weight = 1;
        bool spam = false;
    };

    void add(const judged_evidence& judged) {
        message made{.first = m_values.size(),
                     .weight = learning_weight(judged.what, judged.spam),
                     .spam = judged.spam};
        feature_vector(judged.what).for_each([&](std::size_t place, double value) {
            if (place < m_plan.learned) {
                m_places.push_back(static_cast<std::uint16_t>(place));
                m_values.push_back(value);
            } else {
                made.fixed += value * m_plan.towards[place];
            }
        });
        made.end = m_values.size();
        m_messages.push_back(made);
    }

    double logit(const message& of, const feature_weights& weights) const {
        double sum = of.fixed;
        for (std::size_t i = of.first; i < of.end; ++i)
            sum += weights[m_places[i]] * m_values[i];
        return sum;
    }

    // The negative logarithm of the likelihood, with what draws.
    double loss_of(const feature_weights& weights) const {
        double loss = 0;
        for (const message& one : m_messages) {
            loss += one.weight * cost_of(logit(one, weights), one.spam);
        }
        for (std::size_t i = 0; i < m_plan.learned; ++i) {
            const double away = weights[i] - m_plan.towards[i];
            loss += m_plan.draw / 2 * away * away;
        }
        for_each_tied(weights,
                      [&](std::size_t, std::size_t, double away) { loss += m_plan.tie / 2 * away * away; });
        return loss;
    }

    // Calls visit(std::size_t first, std::size_t kind, double away) for the weights that are tied, class by
    // class: the place of the first kind's, which kind it is, and how far it is from their mean.
    template <class visitor_T>
    void for_each_tied(const feature_weights& weights, visitor_T&& visit) const {
        if (m_plan.tie == 0)
            return;
        for (const std::size_t start : feature::cell_starts) {
            if (start + feature::cells > m_plan.learned)
                continue;
            for (std::size_t first = start; first < start + class_count; ++first) {
                double sum = 0;
                for (std::size_t kind = 0; kind < kind_count; ++kind)
                    sum += weights[first + kind * class_count];
                for (std::size_t kind = 0; kind < kind_count; ++kind)
                    visit(first, kind, weights[first + kind * class_count] - sum / kind_count);
            }
        }
    }

    void make_step(const feature_weights& weights) {
        m_curve.assign(m_plan.learned, std::vector<double>(m_plan.learned));
        m_step.resize(m_plan.learned);
        for (std::size_t i = 0; i < m_plan.learned; ++i) {
            m_step[i] = m_plan.draw * (weights[i] - m_plan.towards[i]);
            m_curve[i][i] = m_plan.draw;
        }
        for_each_tied(weights, [&](std::size_t first, std::size_t kind, double away) {
            const std::size_t place = first + kind * class_count;
            m_step[place] += m_plan.tie * away;
            m_curve[place][place] += m_plan.tie;
            for (std::size_t other = 0; other <= kind; ++other)
                m_curve[place][first + other * class_count] -= m_plan.tie / kind_count;
        });
        for (const message& one : m_messages) {
            const double p = exact_logistic(logit(one, weights));
            const double slope = one.weight * (one.spam ? p - 1 : p);
            const double spread = one.weight * p * (1 - p);
            for (std::size_t i = one.first; i < one.end; ++i)
                m_step[m_places[i]] += slope * m_values[i];
            if (spread < least_spread)
                continue;
            for (std::size_t i = one.first; i < one.end; ++i) {
                const double part = spread * m_values[i];
                std::vector<double>& row = m_curve[m_places[i]];
                for (std::size_t j = one.first; j <= i; ++j)
                    row[m_places[j]] += part * m_values[j];
            }
        }
        solve();
    }

    // By Cholesky's decomposition of the curve, in place; the places of a message ascend, so that the lower
    // triangle is whole.
    void solve() {
        for (std::size_t i = 0; i < m_plan.learned; ++i) {
            for (std::size_t j = 0; j <= i; ++j) {
                double sum = m_curve[i][j];
                for (std::size_t k = 0; k < j; ++k)
                    sum -= m_curve[i][k] * m_curve[j][k];
                m_curve[i][j] = i == j ? std::sqrt(std::max(sum, 1e-9)) : sum / m_curve[j][j];
            }
        }
        for (std::size_t i = 0; i < m_plan.learned; ++i) {
            for (std::size_t k = 0; k < i; ++k)
                m_step[i] -= m_curve[i][k] * m_step[k];
            m_step[i] /= m_curve[i][i];
        }
        for (std::size_t i = m_plan.learned; i-- > 0;) {
            for (std::size_t k = i + 1; k < m_plan.learned; ++k)
                m_step[i] -= m_curve[k][i] * m_step[k];
            m_step[i] /= m_curve[i][i];
        }
    }

    std::vector<message> m_messages;
    std::vector<std::uint16_t> m_places;
    std::vector<double> m_values;
    std::vector<std::vector<double>> m_curve; // the second derivatives; their lower triangle
    std::vector<double> m_step;
    const learning_plan m_plan;
};

} // namespace

double cost_of(double logit, bool spam) noexcept {
    const double wrong = spam ? -logit : logit;
    return wrong > 30 ? wrong : exact_log(1 + exact_exp(std::max(wrong, -700.0)));
}

double learning_weight(const evidence& of, bool spam) noexcept {
    return (spam ? 1 : ham_weight) * (of.crossed ? crossed_weight : 1) *
           (1 - little(of.by_base.spam_messages, few)) * (1 - little(of.by_base.ham_messages, few));
}

void feature_vector::put(std::size_t place, double value) noexcept {
    m_places[m_used] = static_cast<std::uint16_t>(place);
    m_values[m_used] = value;
    ++m_used;
}

// The mean of what both gradings give.
feature_vector::feature_vector(const evidence& from) noexcept {
    struct view {
        const graded_tokens& graded;
        double little_spam, little_ham;
    };
    const auto view_of = [](const graded_tokens& graded) {
        return view{graded, little(graded.spam_messages, few), little(graded.ham_messages, few)};
    };
    const view base = view_of(from.by_base), all = view_of(from.by_all);
    std::array<double, feature::cells> of_base, of_all;
    for (std::size_t cell = 0; cell < feature::cells; ++cell) {
        of_base[cell] = amounts[base.graded.counts[cell / class_count][cell % class_count]];
        of_all[cell] = amounts[all.graded.counts[cell / class_count][cell % class_count]];
    }
    const auto put_amounts = [&](std::size_t start, double base_factor, double all_factor) {
        for (std::size_t cell = 0; cell < feature::cells; ++cell)
            if (of_base[cell] != 0 || of_all[cell] != 0)
                put(start + cell, (of_base[cell] * base_factor + of_all[cell] * all_factor) / 2);
    };
    put_amounts(feature::amount, 1, 1);
    for (std::size_t cell = 0; cell < feature::cells; ++cell)
        if (of_base[cell] != 0 || of_all[cell] != 0)
            put(feature::presence + cell, of_base[cell] != 0 && of_all[cell] != 0 ? 1 : 0.5);
    const double memory = from.memory / memory_unit;
    const double narrow = std::clamp(memory, -10.0, 10.0) / 2;
    const double little_spam = (base.little_spam + all.little_spam) / 2;
    const double little_ham = (base.little_ham + all.little_ham) / 2;
    put(feature::memory, narrow);
    put(feature::memory + 1, std::clamp(memory, -30.0, 30.0) / 10);
    put(feature::middle, 1);
    put_amounts(feature::amount_of_little_spam, base.little_spam, all.little_spam);
    put_amounts(feature::amount_of_little_ham, base.little_ham, all.little_ham);
    put(feature::youth, little_spam);
    put(feature::youth + 1,
        (little(base.graded.spam_messages, some) + little(all.graded.spam_messages, some)) / 2);
    put(feature::youth + 2, little_ham);
    put(feature::youth + 3,
        (little(base.graded.ham_messages, some) + little(all.graded.ham_messages, some)) / 2);
    put(feature::young_memory, narrow * little_spam);
    put(feature::young_memory + 1, narrow * little_ham);
}

double feature_vector::times(const feature_weights& weights) const noexcept {
    double sum = 0;
    for (std::size_t i = 0; i < m_used; ++i)
        sum += weights[m_places[i]] * m_values[i];
    return sum;
}

double sum_of_weights(const evidence& of, const feature_weights& weights) noexcept {
    // The costs of the errors moved the weights; the probability is without them.
    static const double shift = exact_log(ham_weight);
    const double known = of.by_all.ham_messages / little_known;
    return feature_vector(of).times(weights) + shift - doubt / (1 + known * known);
}

double certainty(const evidence& of, double sum) noexcept {
    const double known = of.by_all.ham_messages;
    return sum < 0 ? known / (known + halved_by) : 1;
}

double logit_of(const evidence& of, const feature_weights& weights) noexcept {
    const double sum = sum_of_weights(of, weights);
    return sum * certainty(of, sum);
}

feature_weights learn_weights(std::size_t count, const std::function<judged_evidence(std::size_t)>& get,
                              const feature_weights& start, const learning_plan& plan) {
    return regression(count, get, plan).run(start);
}

} // namespace tvr
