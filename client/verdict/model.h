// How evidence becomes a score: a weighted sum, whose weights are learned from the messages that the user has
// judged.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>

#include "client/verdict/evidence.h"

namespace tvr {

// Each kind of token and class of grades has a weight for the logarithm of its count, one for its being there
// at all, and two that count the more, the less spam or good mail the base was made of: the grades of a young
// base say less, and something else. The memory of tokens votes beside them.
namespace feature {
constexpr std::size_t cells = kind_count * class_count;
constexpr std::size_t amount = 0;
constexpr std::size_t presence = amount + cells;
constexpr std::size_t memory = presence + cells; // two: within narrow bounds, and within wide ones
constexpr std::size_t middle = memory + 2;
constexpr std::size_t learned =
    middle + 1; // those in front are learned, the others stay as they are built in
constexpr std::size_t amount_of_little_spam = learned;
constexpr std::size_t amount_of_little_ham = amount_of_little_spam + cells;
constexpr std::size_t youth = amount_of_little_ham + cells; // four: little and less spam, little and less ham
constexpr std::size_t young_memory = youth + 4;             // two: little spam, little ham
constexpr std::size_t count = young_memory + 2;

constexpr std::array<std::size_t, 4> cell_starts = {amount, presence, amount_of_little_spam,
                                                    amount_of_little_ham};
// The kind and class that a feature counts, as a number below `cells`; nothing for the others.
constexpr std::optional<std::size_t> cell_of(std::size_t feature) noexcept {
    for (const std::size_t start : cell_starts)
        if (feature >= start && feature < start + cells)
            return feature - start;
    return std::nullopt;
}
constexpr bool is_of_memory(std::size_t feature) noexcept {
    return (feature >= memory && feature < middle) || (feature >= young_memory && feature < count);
}
} // namespace feature

using feature_weights = std::array<double, feature::count>;
[[nodiscard]] const feature_weights& built_in_weights() noexcept;

// The weights are learned so that good mail that goes wrong costs as much as this many missed spam messages.
constexpr double ham_weight = 10;

// The features of a message that aren't 0.
class feature_vector {
public:
    explicit feature_vector(const evidence& from) noexcept;

    [[nodiscard]] double times(const feature_weights& weights) const noexcept;
    // Calls visit(std::size_t feature, double value).
    template <class visitor_T>
    void for_each(visitor_T&& visit) const {
        for (std::size_t i = 0; i < m_used; ++i)
            visit(m_places[i], m_values[i]);
    }

private:
    void put(std::size_t place, double value) noexcept;

    std::array<std::uint16_t, feature::count> m_places;
    std::array<double, feature::count> m_values;
    std::size_t m_used = 0;
};

// What the weights make of the evidence, a logit; and how far that holds, 0 to 1: what speaks for good mail
// counts the less, the less good mail is known.
[[nodiscard]] double sum_of_weights(const evidence& of, const feature_weights& weights) noexcept;
[[nodiscard]] double certainty(const evidence& of, double sum) noexcept;
// The logit of the probability of spam: the product of both.
[[nodiscard]] double logit_of(const evidence& of, const feature_weights& weights) noexcept;

// How much a message counts in learning: what a young base says is no rule for what a grown one will say.
[[nodiscard]] double learning_weight(const evidence& of, bool spam) noexcept;

// What a message costs whose logit is `logit`: the negative logarithm of the likelihood.
[[nodiscard]] double cost_of(double logit, bool spam) noexcept;

struct judged_evidence {
    evidence what;
    bool spam = false;
};
// How weights are learned: a logistic regression that is drawn towards weights that are known, so that few
// messages change little.
struct learning_plan {
    const feature_weights& towards = built_in_weights();
    double draw = 2; // how strongly
    double tie = 0;  // how strongly a class's weights, one for each kind of token, are drawn to their mean
    std::size_t learned = feature::learned; // the first so many weights; the others stay
    unsigned most_steps = 12;
};
// Learns the weights anew from the `count` messages that `get` gives, beginning with `start`, the weights at
// hand. The same messages in the same order give the same bits in every build. Time: some microseconds a
// message.
[[nodiscard]] feature_weights learn_weights(std::size_t count,
                                            const std::function<judged_evidence(std::size_t)>& get,
                                            const feature_weights& start, const learning_plan& plan = {});

} // namespace tvr
