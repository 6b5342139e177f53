// Text of any charset in UTF-8.
#pragma once

#include <string>
#include <string_view>

#include "client/utf8.h"

namespace tvr {

// To be called by whoever uses GMime; the first call sets it up.
void ready_gmime();

// `bytes` in UTF-8: the bytes themselves where they are that already, otherwise their translation in
// `room`. `charset` is a name as in a mail, perhaps empty or unknown: such text counts as UTF-8 if it is
// that, and as windows-1252 if not. Bytes that mean nothing in the charset become U+FFFD.
std::string_view to_utf8(std::string_view bytes, std::string_view charset, std::string& room);

} // namespace tvr
