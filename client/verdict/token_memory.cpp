#include "client/verdict/token_memory.h"

#include <algorithm>
#include <cmath>

#include "client/token_table.h"
#include "client/verdict/exact_math.h"

namespace tvr {

namespace {

constexpr double rate = 0.03 * token_memory::unit; // of learning
constexpr double bias_share = 10;                  // the bias learns this much slower
constexpr std::int64_t verdict_unit = 64;
constexpr std::int64_t most = 30000;
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
    const std::span<std::int16_t> all = m_weights.make_all();
    const double said = exact_logistic(static_cast<double>(logit(sum_of(tokens), tokens.size())) / unit);
    const double change = rate * ((spam ? 1.0 : 0.0) - said);
    const std::int32_t step = rounded(change * scale(tokens.size()));
    for (const token_key key : tokens) {
        std::int16_t& place = all[place_of(key)];
        place = static_cast<std::int16_t>(std::clamp(place + step, -32000, 32000));
    }
    bias = std::clamp(bias + rounded(change / bias_share), -most_bias, most_bias);
}

} // namespace tvr
