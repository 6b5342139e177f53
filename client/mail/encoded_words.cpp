#include "client/mail/encoded_words.h"

#include <algorithm>

#include "client/mail/charset.h"
#include "client/mail/transfer_encoding.h"
#include "common/text.h"

namespace tvr {

namespace {

bool is_blank(std::string_view text) {
    return text.find_first_not_of(" \t\r\n") == std::string_view::npos;
}

} // namespace

// `at` is the place of a "=?".
bool word_decoder::find_word(std::string_view value, std::size_t at, encoded_word& word) {
    const std::size_t charset = at + 2;
    const std::size_t encoding = value.find_first_of("? \t\r\n=", charset);
    if (encoding == std::string_view::npos || value[encoding] != '?' || value.size() - encoding < 3 ||
        value[encoding + 2] != '?')
        return false;
    const char letter = value[encoding + 1];
    word.base64 = letter == 'B' || letter == 'b';
    if (!word.base64 && letter != 'Q' && letter != 'q')
        return false;
    const std::size_t text = encoding + 3;
    const std::size_t end = value.find("?=", text);
    if (end == std::string_view::npos)
        return false;
    word.charset = value.substr(charset, encoding - charset);
    word.charset = word.charset.substr(0, word.charset.find('*')); // a language
    word.text = value.substr(text, end - text);
    word.end = end + 2;
    return true;
}

void word_decoder::append_bytes() {
    if (!m_bytes.empty())
        m_result.append(to_utf8(m_bytes, m_charset, m_room));
    m_bytes.clear();
}

std::string_view word_decoder::decode(std::string_view value) {
    m_result.clear();
    m_bytes.clear();
    bool behind_word = false;
    std::size_t plain = 0; // what isn't taken yet begins here
    // Without an end none is looked for: a value may be nothing but beginnings.
    const std::size_t last_end = value.rfind("?=");
    const std::size_t most = last_end == std::string_view::npos ? 0 : last_end;
    for (std::size_t at = value.find("=?"); at < most; at = value.find("=?", at)) {
        encoded_word word;
        if (!find_word(value, at, word)) {
            at += 2;
            continue;
        }
        const std::string_view between = value.substr(plain, at - plain);
        if (!behind_word || !is_blank(between)) {
            append_bytes();
            m_result.append(to_utf8(between, "", m_room));
        } else if (!equals_ignoring_case(word.charset, m_charset)) {
            append_bytes();
        }
        m_charset = word.charset;
        if (word.base64)
            append_base64(m_bytes, word.text, word.text.size());
        else
            append_quoted_printable(m_bytes, word.text, word.text.size(), true);
        behind_word = true;
        plain = at = word.end;
    }
    append_bytes();
    m_result.append(to_utf8(value.substr(plain), "", m_room));
    return m_result;
}

} // namespace tvr
