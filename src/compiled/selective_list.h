// The list of tokens that were only ever seen in spam, as patterns for clients to match headers against.
#pragma once

#include <cstdint>
#include <string_view>

namespace tvr {

// Lives for one run of base generation. One thread.
class selective_list {
public:
    void start();
    // `text` with its kind in front; `count` of its occurrences in spam.
    void add_token(std::string_view text, std::uint32_t count);
    void finish();
};

} // namespace tvr
