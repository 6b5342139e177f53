// What the two ways of the token base's text have in common.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "client/verdict/verdict_file.h"
#include "tools/state/stage_state.h"

namespace tvr {

constexpr std::string_view base_text_start = "tessivar-base\t1"; // the first line
constexpr std::array<const char*, 5> atom_value_names = {"messages", "tokens", "occurrences", "oldest",
                                                         "newest"};

// The verdict stands in the text in pieces: so many bytes of its head, weights and memory, then each message.
constexpr std::size_t verdict_piece = 512;
[[nodiscard]] constexpr std::size_t verdict_piece_at(std::size_t offset) {
    return offset < verdict_messages_at ? std::min(verdict_piece, verdict_messages_at - offset)
                                        : verdict_message_size;
}

// The name of an atom without ".bye", as the engine and the text may have it.
[[nodiscard]] bool is_atom_stem(std::string_view stem, std::string_view dictionary);
// Bytes that could end a line or disturb a terminal become \xNN, and the backslash is doubled. Bytes above
// 127 stay if all of the text is UTF-8.
[[nodiscard]] std::string escape_text(std::string_view text);
// False for what escape_text() never makes.
[[nodiscard]] bool unescape_text(std::string_view text, std::string& out);

} // namespace tvr
