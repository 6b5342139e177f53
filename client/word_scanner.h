// Cuts text into words.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

namespace tvr {

// Takes what the scanner finds.
class word_sink {
public:
    virtual ~word_sink() = default;
    // A word of 1 to word_scanner::longest bytes, letters as they are.
    virtual void word(std::string_view text) = 0;
    // A run of word characters longer than any word; its first byte and its size in bytes.
    virtual void long_run(char first, std::size_t size) = 0;
    // A link ("http://...", "www...."), or an address ("name@host").
    virtual void link(std::string_view address) = 0;
    virtual void mail_address(std::string_view address) = 0;
};

// Words are runs of letters and digits of any script, with "'", "-" and "_" within, "." and "," between
// digits, "$" in front and "!" after. Upper and lower case stay apart: they tell much about a mail.
// Invisible characters within a word vanish, full-width forms become plain ones, and scripts without blanks
// give pairs of neighbouring characters. Linear in the text.
class word_scanner {
public:
    static constexpr std::size_t longest = 40; // bytes of a word

    void scan(std::string_view text, word_sink& sink); // `text` is UTF-8; bad bytes separate

private:
    void put(char c) noexcept;
    void put(std::string_view run) noexcept;
    void put_code(char32_t code) noexcept;
    void end_word(word_sink& sink);
    void wide_character(char32_t code, word_sink& sink);
    bool high_character(std::string_view text, std::size_t& at, word_sink& sink); // false: it separates

    std::array<char, longest + 8> m_word{};
    std::size_t m_length = 0; // of the word at hand; may go beyond the room
    char32_t m_last_wide = 0;
};

// The end of the link that begins at `at`.
std::size_t link_end(std::string_view text, std::size_t at) noexcept;

} // namespace tvr
