#include "client/verdict/token_memory.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "client/token_table.h"
#include "client/verdict/exact_math.h"

namespace tvr {

namespace {

constexpr double rate = 0.12 * token_memory::unit; // of learning
constexpr double bias_share = 10;                  // the bias learns this much slower
// The more a weight's messages were misjudged, the slower it learns: its rate is divided by the root of the
// sum of their squared errors, as AdaGrad does. The root is kept beside the weight, in whole steps above its
// least: a small error doesn't move it, and after the last step it stays.
constexpr double least_root = 0.7071067811865476; // of 0.5
constexpr double root_steps = 6;
constexpr std::int32_t most_weight = 32000;
constexpr std::int64_t verdict_unit = 64;
constexpr std::int64_t most = 30000; // that is said
constexpr double usual_tokens = 300; // of a message in which each token counts in full
constexpr std::size_t fewest_tokens = 20;

std::int32_t rounded(double x) noexcept {
    return static_cast<std::int32_t>(x < 0 ? x - 0.5 : x + 0.5);
}

} // namespace

token_key key_of(std::string_view token) noexcept {
    std::uint64_t hash = mixed_token(token);
    hash = (hash ^ hash >> 29) * 0xBF58476D1CE4E5B9ULL;
    const auto kind = kind_of(token);
    return (static_cast<std::uint32_t>(hash >> 32) & ~7U) |
           (kind ? static_cast<std::uint32_t>(*kind) : std::uint32_t{kind_count});
}

std::int64_t token_memory::sum_of(std::span<const token_key> tokens) const noexcept {
    std::int64_t sum = 0;
    for (const token_key key : tokens)
        sum += weight(key);
    return sum;
}

double token_memory::scale(std::size_t tokens) noexcept {
    return std::sqrt(usual_tokens / static_cast<double>(std::max(tokens, fewest_tokens)));
}

std::int64_t token_memory::logit(std::int64_t sum, std::size_t tokens) const noexcept {
    return static_cast<std::int64_t>(static_cast<double>(sum) * scale(tokens)) + bias;
}

std::int16_t token_memory::verdict(std::int64_t sum, std::size_t tokens) const noexcept {
    constexpr std::int64_t step = unit / verdict_unit;
    const std::int64_t all = logit(sum, tokens) + step / 2;
    const std::int64_t down = all >= 0 ? all / step : -((-all + step - 1) / step);
    return static_cast<std::int16_t>(std::clamp(down, -most, most));
}

std::int16_t token_memory::say(std::span<const token_key> tokens) const noexcept {
    return verdict(sum_of(tokens), tokens.size());
}

void token_memory::learn(std::span<const token_key> tokens, bool spam) {
    const double share = scale(tokens.size());
    const double error =
        (spam ? 1.0 : 0.0) - exact_logistic(static_cast<double>(logit(sum_of(tokens), tokens.size())) / unit);
    struct lesson {
        std::int32_t change = 0; // of the weight
        std::int32_t root = 0;   // from now on
    };
    std::array<lesson, root_mask + 1> lessons; // by the root so far
    for (std::size_t i = 0; i < lessons.size(); ++i) {
        const double before = least_root + static_cast<double>(i) / root_steps;
        const double root = std::sqrt(before * before + error * error * share * share);
        lessons[i] = {weight_step * rounded(rate * error * share / root / weight_step),
                      std::min(rounded((root - least_root) * root_steps), root_mask)};
    }
    const std::span<std::int16_t> all = m_weights.make_all();
    for (const token_key key : tokens) {
        std::int16_t& place = all[place_of(key)];
        const lesson& learned = lessons[static_cast<std::size_t>(place & root_mask)];
        place = static_cast<std::int16_t>(
            std::clamp(weight_in(place) + learned.change, -most_weight, most_weight) | learned.root);
    }
    bias = std::clamp(bias + rounded(rate * error / bias_share), -most_bias, most_bias);
}

} // namespace tvr
