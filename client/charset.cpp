#include "client/charset.h"

#include <array>
#include <cstdint>

#include <gmime/gmime.h>

#include "client/html_text.h"
#include "common/text.h"

namespace tvr {

namespace {

constexpr std::string_view replacement = "\xEF\xBF\xBD";

constexpr std::array<char16_t, 32> windows_1252 = {
    0x20AC, 0xFFFD, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0xFFFD, 0x017D, 0xFFFD, 0xFFFD, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0xFFFD, 0x017E, 0x0178};

void from_windows_1252(std::string_view bytes, std::string& room) {
    room.clear();
    room.reserve(bytes.size() + bytes.size() / 8);
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x80)
            room.push_back(c);
        else
            append_utf8(room, byte < 0xA0 ? windows_1252[byte - 0x80U] : byte);
    }
}

// Charsets whose ASCII bytes don't stand for themselves.
bool is_stateful(std::string_view charset) {
    for (const std::string_view start :
         {"iso-2022", "utf-7", "utf7", "utf-16", "utf16", "utf-32", "ucs-", "hz"})
        if (starts_with_ignoring_case(charset, start))
            return true;
    return false;
}

bool is_latin(std::string_view charset) {
    for (const std::string_view name :
         {"iso-8859-1", "us-ascii", "ascii", "windows-1252", "cp1252", "latin1", "iso8859-1", "iso-8859-15"})
        if (equals_ignoring_case(charset, name))
            return true;
    return false;
}

// Only names that can be one: they are looked for among files.
bool is_plain_name(std::string_view charset) {
    if (charset.empty() || charset.size() > 40)
        return false;
    for (const char c : charset)
        if (!((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
              c == '_' || c == '.' || c == ':'))
            return false;
    return true;
}

class converter {
public:
    explicit converter(std::string_view charset)
        : m_handle((ready_gmime(), g_mime_iconv_open("UTF-8", std::string(charset).c_str()))) {}
    ~converter() {
        if (is_open())
            g_mime_iconv_close(m_handle);
    }
    converter(const converter&) = delete;
    converter& operator=(const converter&) = delete;

    [[nodiscard]] bool is_open() const { return reinterpret_cast<std::intptr_t>(m_handle) != -1; }

    void run(std::string_view bytes, std::string& room) {
        std::string input(bytes); // iconv asks for a writable pointer
        char* in = input.data();
        std::size_t in_left = input.size();
        room.clear();
        std::array<char, 4096> part;
        while (in_left > 0) {
            char* out = part.data();
            std::size_t out_left = part.size();
            const std::size_t before = in_left;
            const bool stopped =
                iconv(m_handle, &in, &in_left, &out, &out_left) == static_cast<std::size_t>(-1);
            room.append(part.data(), static_cast<std::size_t>(out - part.data()));
            const bool out_full = out_left < 16;
            if (stopped && in_left > 0 && !(out_full && in_left < before)) {
                ++in;
                --in_left;
                room += replacement;
            }
        }
    }

private:
    iconv_t m_handle;
};

} // namespace

void ready_gmime() {
    static const bool ready = (g_mime_init(), true);
    static_cast<void>(ready);
}

std::string_view to_utf8(std::string_view bytes, std::string_view charset, std::string& room) {
    const bool stateful = is_stateful(charset);
    if (!stateful && is_ascii(bytes))
        return bytes;
    const bool latin = is_latin(charset);
    if (!latin && !equals_ignoring_case(charset, "utf-8") && is_plain_name(charset)) {
        converter translator(charset);
        if (translator.is_open()) {
            translator.run(bytes, room);
            return room;
        }
    }
    // What is valid UTF-8 is hardly ever meant as anything else.
    if (is_utf8(bytes))
        return bytes;
    from_windows_1252(bytes, room);
    return room;
}

} // namespace tvr
