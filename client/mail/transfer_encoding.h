// Decoding of what a mail was encoded with on its way.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace tvr {

enum class transfer_encoding { seven_bit, eight_bit, binary, base64, quoted_printable, uuencode };

// By the value of a Content-Transfer-Encoding field; nothing for one that nobody knows.
[[nodiscard]] std::optional<transfer_encoding> find_encoding(std::string_view name) noexcept;
[[nodiscard]] std::string_view name_of(transfer_encoding encoding) noexcept;

// The first `most` bytes of the decoded text: `text` itself if it isn't encoded, otherwise in `room`. Bytes
// that don't belong there are passed over, or stand for themselves where there is no other meaning.
[[nodiscard]] std::string_view decode_transfer(std::string_view text,
                                               std::optional<transfer_encoding> encoding, std::size_t most,
                                               std::string& room);

// Each appends at most `most` bytes.
// Base-64 begins again after an "=".
void append_base64(std::string& target, std::string_view text, std::size_t most);
// With `in_word`, by the rules of encoded words: "_" is a blank.
void append_quoted_printable(std::string& target, std::string_view text, std::size_t most, bool in_word);
// Without a line "begin" all of the text is taken for lines of data.
void append_uuencoded(std::string& target, std::string_view text, std::size_t most);

// What a digit of Base-64 stands for, 0 to 63; -1 if it is none.
[[nodiscard]] int base64_digit(char c) noexcept;
// The byte that two hexadecimal digits stand for; -1 if the text doesn't begin with two.
[[nodiscard]] int hex_byte(std::string_view text) noexcept;

} // namespace tvr
