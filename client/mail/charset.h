// Text of any charset in UTF-8.
#pragma once

#include <string>
#include <string_view>

#include "client/mail/utf8.h"

namespace tvr {

// `bytes` in UTF-8: the bytes themselves where they are that already, otherwise their translation in
// `room`. `charset` is a name as in a mail, in any spelling, perhaps empty or unknown: such text counts as
// UTF-8 if it is that, and as windows-1252 if not; so does text that calls itself one of these two, ASCII or
// iso-8859-1. Bytes that mean nothing in the charset become U+FFFD, by the same rules on every system.
std::string_view to_utf8(std::string_view bytes, std::string_view charset, std::string& room);

} // namespace tvr
