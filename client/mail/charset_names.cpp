#include "client/mail/charset_names.h"

#include <algorithm>
#include <array>
#include <cstddef>

#include "platform/ascii.h"

namespace tvr {

namespace {

using namespace std::string_view_literals;
using enum charset_kind;

struct nickname {
    std::string_view name; // without signs, in lower case
    charset meaning;
};

constexpr charset of_table(single_byte which) {
    return {one_byte, &single_byte_tables[static_cast<std::size_t>(which)]};
}
constexpr charset of_pairs(unsigned code_page, charset_kind kind = two_bytes) {
    return {kind, nullptr, code_page};
}

// In ascending order.
constexpr nickname nicknames[] = {
    {"866", of_table(single_byte::ibm866)},
    {"arabic", of_table(single_byte::iso_6)},
    {"big5", of_pairs(950)},
    {"big5hkscs", of_pairs(950)},
    {"chinese", of_pairs(936)},
    {"cnbig5", of_pairs(950)},
    {"cngb", of_pairs(936)},
    {"cp866", of_table(single_byte::ibm866)},
    {"cp874", of_table(single_byte::windows_874)},
    {"cp932", of_pairs(932)},
    {"cp936", of_pairs(936)},
    {"cp949", of_pairs(949)},
    {"cp950", of_pairs(950)},
    {"csbig5", of_pairs(950)},
    {"cseuckr", of_pairs(949)},
    {"csgb2312", of_pairs(936)},
    {"csiso2022jp", of_pairs(932, iso_2022_jp)},
    {"csiso2022kr", of_pairs(949, iso_2022_kr)},
    {"cskoi8r", of_table(single_byte::koi8_r)},
    {"csksc56011987", of_pairs(949)},
    {"csshiftjis", of_pairs(932)},
    {"cyrillic", of_table(single_byte::iso_5)},
    {"euccn", of_pairs(936)},
    {"eucjp", of_pairs(932, euc_jp)},
    {"euckr", of_pairs(949)},
    {"gb18030", of_pairs(936)},
    {"gb2312", of_pairs(936)},
    {"gb23121980", of_pairs(936)},
    {"gb231280", of_pairs(936)},
    {"gbk", of_pairs(936)},
    {"greek", of_table(single_byte::iso_7)},
    {"hebrew", of_table(single_byte::iso_8)},
    {"hz", of_pairs(936, hz)},
    {"hzgb2312", of_pairs(936, hz)},
    {"ibm866", of_table(single_byte::ibm866)},
    {"iso2022jp", of_pairs(932, iso_2022_jp)},
    {"iso2022jp1", of_pairs(932, iso_2022_jp)},
    {"iso2022jp2", of_pairs(932, iso_2022_jp)},
    {"iso2022jp3", of_pairs(932, iso_2022_jp)},
    {"iso2022jpms", of_pairs(932, iso_2022_jp)},
    {"iso2022kr", of_pairs(949, iso_2022_kr)},
    {"koi", of_table(single_byte::koi8_r)},
    {"koi8", of_table(single_byte::koi8_r)},
    {"koi8r", of_table(single_byte::koi8_r)},
    {"koi8ru", of_table(single_byte::koi8_u)},
    {"koi8u", of_table(single_byte::koi8_u)},
    {"korean", of_pairs(949)},
    {"ksc5601", of_pairs(949)},
    {"ksc56011987", of_pairs(949)},
    {"ksc56011989", of_pairs(949)},
    {"l2", of_table(single_byte::iso_2)},
    {"l5", of_table(single_byte::windows_1254)},
    {"latin2", of_table(single_byte::iso_2)},
    {"latin3", of_table(single_byte::iso_3)},
    {"latin4", of_table(single_byte::iso_4)},
    {"latin5", of_table(single_byte::windows_1254)},
    {"latin6", of_table(single_byte::iso_10)},
    {"latin9", of_table(single_byte::iso_15)},
    {"mac", of_table(single_byte::macintosh)},
    {"macintosh", of_table(single_byte::macintosh)},
    {"macroman", of_table(single_byte::macintosh)},
    {"ms932", of_pairs(932)},
    {"ms936", of_pairs(936)},
    {"ms949", of_pairs(949)},
    {"ms950", of_pairs(950)},
    {"mskanji", of_pairs(932)},
    {"shiftjis", of_pairs(932)},
    {"sjis", of_pairs(932)},
    {"tis620", of_table(single_byte::windows_874)},
    {"ucs2", {utf_16}},
    {"ucs2be", {utf_16}},
    {"ucs2le", {utf_16, nullptr, 0, true}},
    {"ucs4", {utf_32}},
    {"uhc", of_pairs(949)},
    {"unicode", {utf_16, nullptr, 0, true}},
    {"unicode11utf7", {utf_7}},
    {"unicode20utf7", {utf_7}},
    {"utf16", {utf_16}},
    {"utf16be", {utf_16}},
    {"utf16le", {utf_16, nullptr, 0, true}},
    {"utf32", {utf_32}},
    {"utf32be", {utf_32}},
    {"utf32le", {utf_32, nullptr, 0, true}},
    {"utf7", {utf_7}},
    {"windows31j", of_pairs(932)},
    {"windows874", of_table(single_byte::windows_874)},
    {"windows932", of_pairs(932)},
    {"windows936", of_pairs(936)},
    {"windows949", of_pairs(949)},
    {"windows950", of_pairs(950)},
};
static_assert(std::is_sorted(std::begin(nicknames), std::end(nicknames),
                             [](const nickname& a, const nickname& b) { return a.name < b.name; }));

// The tables of iso-8859-1 and so on; the first and the ninth are parts of windows-1252 and windows-1254.
constexpr std::array<charset, 17> of_iso_8859 = {{
    {},
    {},
    of_table(single_byte::iso_2),
    of_table(single_byte::iso_3),
    of_table(single_byte::iso_4),
    of_table(single_byte::iso_5),
    of_table(single_byte::iso_6),
    of_table(single_byte::iso_7),
    of_table(single_byte::iso_8),
    of_table(single_byte::windows_1254),
    of_table(single_byte::iso_10),
    of_table(single_byte::windows_874),
    {},
    of_table(single_byte::iso_13),
    of_table(single_byte::iso_14),
    of_table(single_byte::iso_15),
    of_table(single_byte::iso_16),
}};

constexpr std::array<charset, 9> of_windows_125x = {{
    of_table(single_byte::windows_1250),
    of_table(single_byte::windows_1251),
    {},
    of_table(single_byte::windows_1253),
    of_table(single_byte::windows_1254),
    of_table(single_byte::windows_1255),
    of_table(single_byte::windows_1256),
    of_table(single_byte::windows_1257),
    of_table(single_byte::windows_1258),
}};

charset find_iso_8859(std::string_view number) {
    std::size_t value = 0;
    for (std::size_t at = 0; at < number.size() && at < 2 && is_digit(number[at]); ++at)
        value = value * 10 + static_cast<std::size_t>(number[at] - '0');
    return of_iso_8859[value < of_iso_8859.size() ? value : value / 10];
}

} // namespace

charset find_charset(std::string_view name) noexcept {
    std::array<char, 24> letters;
    std::size_t size = 0;
    for (const char c : name.substr(0, name.find(':'))) {
        const char lowered = lower(c);
        if ((lowered >= 'a' && lowered <= 'z') || is_digit(lowered)) {
            if (size == letters.size())
                return {};
            letters[size++] = lowered;
        }
    }
    std::string_view key(letters.data(), size);
    if (key.starts_with('x'))
        key.remove_prefix(1);
    for (const std::string_view start : {"iso8859"sv, "8859"sv})
        if (key.starts_with(start))
            return find_iso_8859(key.substr(start.size()));
    for (const std::string_view start : {"windows125"sv, "cp125"sv, "win125"sv, "ms125"sv, "125"sv})
        if (key.starts_with(start) && key.size() == start.size() + 1 && key.back() >= '0' &&
            key.back() <= '8')
            return of_windows_125x[static_cast<std::size_t>(key.back() - '0')];
    const auto* const found =
        std::lower_bound(std::begin(nicknames), std::end(nicknames), key,
                         [](const nickname& known, std::string_view k) { return known.name < k; });
    return found != std::end(nicknames) && found->name == key ? found->meaning : charset{};
}

} // namespace tvr
