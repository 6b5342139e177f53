#include "bench/corpus.h"

#include <cmath>
#include <random>

namespace tvr::bench {

namespace {

constexpr std::uint32_t first_time = 213'000'000; // 2005, in minutes since 1601

std::string word(std::uint64_t rank) {
    std::mt19937_64 random(rank);
    std::string text = rank % 5 == 0 ? "H subject:" : "B ";
    const std::size_t length = 2 + random() % 10;
    for (std::size_t i = 0; i < length; ++i)
        text += static_cast<char>('a' + random() % 26);
    return text + std::to_string(rank % 1000);
}

// A rank from 0 to `words` - 1, the low ones most often.
std::size_t rank(std::mt19937_64& random, std::size_t words) {
    const double place = std::uniform_real_distribution<double>(0, 1)(random);
    return static_cast<std::size_t>(std::pow(static_cast<double>(words), place)) - 1;
}

const std::vector<std::string>& vocabulary() {
    static const auto all = [] {
        std::vector<std::string> made;
        for (std::uint64_t i = 0; i < 200'000; ++i)
            made.push_back(word(i));
        return made;
    }();
    return all;
}

} // namespace

std::vector<std::string> tokens(std::size_t count, std::size_t words, unsigned seed) {
    std::mt19937_64 random(seed);
    std::vector<std::string> made;
    made.reserve(count);
    for (std::size_t i = 0; i < count; ++i)
        made.push_back(vocabulary()[rank(random, words)]);
    return made;
}

std::vector<std::string> message_ids(std::size_t count) {
    std::mt19937_64 random(7);
    std::vector<std::string> made;
    for (std::size_t i = 0; i < count; ++i)
        made.push_back("<" + std::to_string(random()) + "." + std::to_string(i) + "@host.example>_0A1B2C3D");
    return made;
}

void add_messages(record_batch& batch, std::size_t first, std::size_t count) {
    token_table table;
    for (std::size_t number = first; number < first + count; ++number) {
        std::mt19937_64 random(number);
        const bool spam = number % 2 == 0;
        table.clear();
        for (int i = 0; i < 420; ++i) {
            // A quarter of the words belongs to one half.
            const std::size_t at = rank(random, 200'000);
            table.add(vocabulary()[at % 4 == 0 ? (at & ~std::size_t{7}) + (spam ? 0 : 4) : at]);
        }
        const std::string msid = "<" + std::to_string(number) + "@bench>";
        batch.add({.msid = msid,
                   .spam = spam,
                   .size = 4000,
                   .time = first_time + static_cast<std::uint32_t>(number)},
                  table);
    }
}

} // namespace tvr::bench
