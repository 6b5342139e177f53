#include "platform/charset.h"

#include <cstddef>
#include <iconv.h>

#include "platform/error.h"
#include "platform/posix/errors.h"

namespace tvr::platform {

namespace {

const char* name_of(unsigned code_page) {
    switch (code_page) {
    case 932:
        return "CP932";
    case 936:
        return "CP936";
    case 949:
        return "CP949";
    default:
        return "CP950";
    }
}

} // namespace

bool read_pair_row(unsigned code_page, std::uint8_t first, pair_row& row) {
    const iconv_t converter = iconv_open("UTF-16LE", name_of(code_page));
    if (reinterpret_cast<std::intptr_t>(converter) == -1)
        return posix::fail_errno();
    for (std::size_t second = 0; second < row.size(); ++second) {
        std::array<char, 2> pair = {static_cast<char>(first), static_cast<char>(second)};
        std::array<char16_t, 4> made{};
        char* in = pair.data();
        char* out = reinterpret_cast<char*>(made.data());
        std::size_t in_left = pair.size(), out_left = sizeof made;
        iconv(converter, nullptr, nullptr, nullptr, nullptr);
        const bool good = iconv(converter, &in, &in_left, &out, &out_left) != static_cast<std::size_t>(-1) &&
                          out_left == sizeof made - 2;
        row[second] = good ? made[0] : u'\0';
    }
    iconv_close(converter);
    return true;
}

} // namespace tvr::platform
