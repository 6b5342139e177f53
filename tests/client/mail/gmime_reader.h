// A mail as GMime reads it.
#pragma once

#include "client/mail/mail_reader.h"

namespace tvr {

// As mail_reader::read(), with the default limits.
unsigned read_with_gmime(std::string_view raw, mail_visitor& visitor);

// The words of a field as GMime decodes them.
std::string decode_with_gmime(std::string_view value);

} // namespace tvr
