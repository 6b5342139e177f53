// Encoded words of header fields: "=?utf-8?q?caf=C3=A9?=".
#pragma once

#include <string>
#include <string_view>

namespace tvr {

// Keeps its buffers from one text to the next.
class word_decoder {
public:
    // Decodes the words of a value, wherever they stand in it, to UTF-8. Blanks between two of them vanish,
    // and a character may go from one into the next. The result is valid until the next call.
    std::string_view decode(std::string_view value);

private:
    struct encoded_word {
        std::string_view charset, text;
        bool base64 = false;
        std::size_t end = 0; // after it in the value
    };
    static bool find_word(std::string_view value, std::size_t at, encoded_word& word);
    void append_bytes();

    std::string m_result;
    std::string m_bytes; // of the words at hand, still in their charset
    std::string m_room;
    std::string_view m_charset;
};

} // namespace tvr
