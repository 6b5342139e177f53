// The standard streams of a program for people.
#pragma once

namespace tvr::platform {

// Makes standard input and output carry bytes as they are, line ends included, and a write fail whose reader
// has gone, in place of ending the process. To be called before their first use.
void use_plain_streams() noexcept;

} // namespace tvr::platform
