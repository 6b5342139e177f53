#include "client/verdict/judge.h"

#include <algorithm>
#include <array>
#include <functional>
#include <utility>
#include <vector>

#include "client/verdict/exact_math.h"

namespace tvr {

namespace {

double logit_of_percent(double percent) noexcept {
    if (!(percent > 0 && percent < 100))
        return percent > 0 ? 700 : -700; // all, or nothing
    const double p = percent / 100;
    return p < 0.5 ? -exact_log((1 - p) / p) : exact_log(p / (1 - p));
}

// A few good messages that look like spam don't move the threshold without end: with the usual limit up to 90
// %, with a tighter one further, and further the more good mail is known: then spam stands out.
constexpr double usual_limit = 0.1; // percent
constexpr double highest_logit = 2.2;
constexpr double much_ham = 3000; // messages that double the odds of the highest

// So many messages of spam and of good mail all stay; on the good ones the threshold is found.
constexpr std::size_t recent = 1000;
static_assert(2 * recent < verdict_state::most_messages);

// Of a logit: to mail that they weren't fitted to, the built-in weights give too low scores. Chosen with a
// stream of other people's counts in view.
constexpr double built_in_lift = 1.25;

// Trust: the weights that would have judged the kept messages better have the say. The cost is in units of
// the logarithm of the likelihood; a head start goes to the learned ones.
constexpr double trust_start = 20;
constexpr double trust_unit = 10;

// How strongly the built-in weights draw: more while few messages are kept, which are all of the same days.
double draw_of(std::size_t messages) noexcept {
    constexpr double least = 2, more = 25, gone_by = 1000;
    return least + more * exact_exp(-static_cast<double>(messages) / gone_by);
}

void find_trust(verdict_state& state) {
    double gain = trust_start;
    const double shift = exact_log(ham_weight);
    for (const judged_message& message : state.messages) {
        const double weight = learning_weight(message.what, message.spam);
        gain += weight * (cost_of(logit_of(message.what, built_in_weights()) - shift, message.spam) -
                          cost_of(message.learned_score / score_unit - shift, message.spam));
    }
    state.trust = exact_logistic(std::clamp(gain / trust_unit, -30.0, 30.0));
}

void find_ham_scores(verdict_state& state) {
    std::vector<std::int16_t>& scores = state.ham_scores;
    scores.clear();
    for (std::size_t i = state.messages.size(); i-- > 0 && scores.size() < recent;)
        if (!state.messages[i].spam)
            scores.push_back(state.messages[i].score);
    state.recent_ham = static_cast<std::uint32_t>(scores.size());
    std::sort(scores.begin(), scores.end(), std::greater<>());
    scores.resize(std::min(scores.size(), verdict_state::top_scores));
}

} // namespace

feature_weights weights_of(const verdict_state& state) noexcept {
    feature_weights mixed = built_in_weights();
    mixed[feature::middle] += built_in_lift;
    for (std::size_t i = 0; i < feature::learned; ++i)
        mixed[i] += state.trust * (state.weights[i] - mixed[i]);
    return mixed;
}

double spam_logit(const verdict_state& state, const spam_limits& limits) noexcept {
    const double least = logit_of_percent(limits.spam_threshold);
    if (state.ham_scores.empty() || limits.false_positives >= 100)
        return least;
    const double limit = std::max(limits.false_positives, 0.001);
    const double tighter = std::max(usual_limit / limit, 1.0);
    const double highest =
        highest_logit + exact_log(tighter) + exact_log(1 + state.seen.messages(false) / much_ham);
    // Of n good messages and the next one, each is as likely the highest: so many of the n may lie above.
    // Below 0, n is too few to tell.
    const double allowed = limit / 100 * (state.recent_ham + 1.0) - 1;
    if (allowed < 0)
        return std::max(least, highest);
    // Above the first good message that may not go wrong, by the least step of a score.
    const std::size_t place = std::min(static_cast<std::size_t>(allowed), state.ham_scores.size() - 1);
    return std::max(least, std::min((state.ham_scores[place] + 1) / score_unit, highest));
}

// What the weights were sure of changes them little, on whichever side it lay; and what is old is worth less.
// Of the oldest something is left: else who hands over single messages would keep none but the newest.
void forget_messages(verdict_state& state) {
    constexpr double worth_of_the_oldest = 0.02;
    std::vector<judged_message>& all = state.messages;
    if (all.size() <= verdict_state::most_messages)
        return;
    std::vector<std::pair<double, std::size_t>> worth; // of the others, the newest first
    std::array<std::size_t, 2> newer{};
    for (std::size_t i = all.size(); i-- > 0;) {
        if (newer[all[i].spam ? 1 : 0]++ < recent)
            continue;
        const std::size_t newest = worth.empty() ? i : worth.front().second;
        const double p = exact_logistic(all[i].learned_score / score_unit);
        const double age = static_cast<double>(newest - i) / static_cast<double>(newest + 1);
        worth.emplace_back(p * (1 - p) * (1 + worth_of_the_oldest - age), i);
    }
    const auto gone = worth.begin() + static_cast<std::ptrdiff_t>(all.size() - verdict_state::most_messages);
    std::nth_element(worth.begin(), gone, worth.end());
    std::vector<bool> goes(all.size());
    std::for_each(worth.begin(), gone, [&](const auto& each) { goes[each.second] = true; });
    std::vector<judged_message> kept;
    for (std::size_t i = 0; i < all.size(); ++i)
        if (!goes[i])
            kept.push_back(all[i]);
    all = std::move(kept);
}

void learn(verdict_state& state) {
    find_trust(state);
    find_ham_scores(state);
    state.weights = learn_weights(state.messages.size(),
                                  [&](std::size_t i) {
                                      return judged_evidence{state.messages[i].what, state.messages[i].spam};
                                  },
                                  state.weights, {.draw = draw_of(state.messages.size())});
    state.unlearned = 0;
}

} // namespace tvr
