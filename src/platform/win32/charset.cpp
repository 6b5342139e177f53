#include "platform/charset.h"

#include "platform/error.h"
#include "platform/failure.h"
#include "platform/win32/system.h"

namespace tvr::platform {

bool read_pair_row(unsigned code_page, std::uint8_t first, pair_row& row) {
    if (!IsValidCodePage(code_page)) {
        fail(error::invalid_parameter);
        return false;
    }
    for (std::size_t second = 0; second < row.size(); ++second) {
        const char pair[2] = {static_cast<char>(first), static_cast<char>(second)};
        wchar_t made[4];
        const int length = MultiByteToWideChar(code_page, MB_ERR_INVALID_CHARS, pair, 2, made, 4);
        row[second] = length == 1 ? static_cast<char16_t>(made[0]) : u'\0';
    }
    return true;
}

} // namespace tvr::platform
