// One atom of the merge that generates the compiled base: a cursor over its tokens.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "compiled/base_header.h"
#include "platform/file.h"

namespace tvr {

// Reads through a small buffer of its own, since all atoms of a base are open at once. One thread.
class atom_reader {
public:
    // Opens an atom, counts its head in `base`, and moves to the first token. A file that can't be opened or
    // has no head reads as an atom with no tokens and a head of zeros.
    void open(const std::string& path, bool is_spam, base_header& base);

    // Moves to the next token. False, for good, after the last one, or at damage.
    bool next();
    [[nodiscard]] bool has_token() const noexcept { return !m_text.empty(); }

    [[nodiscard]] bool is_spam() const noexcept { return m_is_spam; }
    [[nodiscard]] std::uint32_t hash() const noexcept { return m_hash; }    // order_hash of text()
    [[nodiscard]] std::string_view text() const noexcept { return m_text; } // until next()
    [[nodiscard]] std::uint32_t occurrences() const noexcept { return m_occurrences; }

private:
    static constexpr std::size_t buffer_size = 8192; // bytes

    bool need(std::size_t size);
    bool end();

    platform::file m_file;
    std::unique_ptr<std::uint8_t[]> m_buffer;
    std::size_t m_begin = 0;
    std::size_t m_end = 0;
    std::uint32_t m_remaining = 0;
    std::uint32_t m_hash = 0;
    std::uint32_t m_occurrences = 0;
    std::string_view m_text;
    bool m_is_spam = false;
};

} // namespace tvr
