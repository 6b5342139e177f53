// The engine's files read by hand, for tests that look at what it leaves.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "support/file_bytes.h"

namespace tvr {

using counts_by_name = std::map<std::string, std::uint64_t>;

// Calls visit(text, number) for each entry (length byte, text, 32-bit number) from `place` to `end`. False if
// they don't end there.
template <class Visit>
bool for_each_entry(std::string_view bytes, std::size_t place, std::size_t end, Visit&& visit) {
    while (place < end && end <= bytes.size()) {
        const std::size_t behind = place + 5 + static_cast<unsigned char>(bytes[place]);
        if (behind > end)
            return false;
        visit(std::string(bytes.substr(place + 1, behind - place - 5)), word_at(bytes, behind - 4));
        place = behind;
    }
    return place == end;
}

struct atom_content {
    std::uint32_t messages = 0;
    counts_by_name tokens;
};

// Nothing unless its head tells the truth about its tokens.
inline std::optional<atom_content> read_atom(std::string_view bytes) {
    if (bytes.size() < 36 || word_at(bytes, 0) != 0x19780702 || word_at(bytes, 4) != 5)
        return std::nullopt;
    atom_content atom{.messages = word_at(bytes, 8), .tokens = {}};
    std::uint32_t tokens = 0, occurrences = 0;
    const bool fits = for_each_entry(bytes, 36, 36 + std::size_t{word_at(bytes, 32)},
                                     [&](const std::string& token, std::uint32_t count) {
                                         atom.tokens[token] += count;
                                         occurrences += count;
                                         ++tokens;
                                     });
    const bool told =
        tokens == word_at(bytes, 28) && tokens == word_at(bytes, 12) && occurrences == word_at(bytes, 16);
    return fits && told ? std::optional(std::move(atom)) : std::nullopt;
}

// The records of a cache that a reader finds, each in its bytes.
inline std::vector<std::string> records_of(const std::string& cache) {
    std::vector<std::string> records;
    for (std::size_t place = 4; cache.size() >= place + 33;) {
        const std::uint32_t length = word_at(cache, place + 8);
        if (word_at(cache, place) != 0x25062004 || word_at(cache, place + 4) != 6 || length < 41 ||
            length > cache.size() - place)
            break;
        records.push_back(cache.substr(place, length));
        place += length;
    }
    return records;
}

} // namespace tvr
