// The tokens of a made-up message: words that both halves share, one of its half, and rare ones.
#pragma once

#include <string>

#include "client/token_table.h"

namespace tvr {

// Of message `i` of a series: `words` rare ones out of a `vocabulary`.
inline void add_sample_tokens(token_table& tokens, unsigned series, unsigned i, bool spam, unsigned words,
                              unsigned vocabulary) {
    tokens.add("B common", 1 + i % 3);
    tokens.add(spam ? "B offer" : "B meeting", 2);
    tokens.add("H subject:" + std::to_string(series) + "-" + std::to_string(i % 5));
    for (unsigned word = 0; word < words; ++word)
        tokens.add("B w" + std::to_string((i * 7 + word * series) % vocabulary));
}

} // namespace tvr
