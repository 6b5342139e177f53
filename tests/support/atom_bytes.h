// Atom files and messages by hand.
#pragma once

#include <string>
#include <string_view>

#include "settings/settings.h"
#include "support/file_bytes.h"

namespace tvr {

struct head_values {
    std::uint32_t messages, tokens, occurrences, oldest, newest;
};

// A count that takes away.
constexpr std::uint32_t minus(std::uint32_t number) {
    return 0U - number;
}

inline std::string atom_head_bytes(const head_values& head) {
    return le(0x19780702, 5, head.messages, head.tokens, head.occurrences, head.oldest, head.newest);
}

// `count` entries of a token block, as counted() makes them.
inline std::string block_bytes(std::uint32_t count, std::string_view entries) {
    return le(count, entries.size()).append(entries);
}

inline std::string atom_bytes(const head_values& head, std::uint32_t count, std::string_view entries) {
    return atom_head_bytes(head) + block_bytes(count, entries);
}

// A record of the cache with its block of tokens.
inline std::string record_bytes(std::uint32_t flags, std::uint32_t size, std::uint32_t time,
                                std::string_view id, std::string_view block) {
    return le(0x25062004, 6, 33 + id.size() + block.size(), flags, size, time, 0, 0) +
           pascal(id).append(block);
}

inline std::string message_bytes(std::uint32_t time, std::string_view id, std::uint32_t count,
                                 std::string_view entries) {
    return record_bytes(0, 0, time, id, block_bytes(count, entries));
}

inline settings& default_settings() {
    settings& all = make_current_settings();
    all.schema(schema_mode::basic_defaults);
    all.schema(schema_mode::advanced_defaults);
    return all;
}

} // namespace tvr
