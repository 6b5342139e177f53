// The head of the compiled base (.rgd).
#pragma once

#include <cstdint>

#include "common/fileheader.h"

namespace tvr {

// Message counts, token counts (a token in three atoms counts three times), and times in minutes since 1601.
struct base_header {
    static constexpr std::uint32_t signature = 0x4A534144;            // "DASJ"
    static constexpr std::uint32_t deprecated_signature = 0x49534144; // "DASI"

    base_header();
    base_header(const base_header&) = delete;
    base_header& operator=(const base_header&) = delete;

    std::uint32_t nonspam_messages = 0;
    std::uint32_t spam_messages = 0;
    std::uint32_t spam_tokens = 0;
    std::uint32_t nonspam_tokens = 0;
    std::uint32_t spam_oldest = 0;
    std::uint32_t spam_newest = 0;
    std::uint32_t nonspam_oldest = 0;
    std::uint32_t nonspam_newest = 0;
    fileheader header;
};

} // namespace tvr
