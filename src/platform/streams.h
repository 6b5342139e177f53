// The standard streams of a program for people.
#pragma once

namespace tvr::platform {

// Makes standard input and output carry bytes as they are, line ends included. To be called before their
// first use.
void use_binary_streams() noexcept;

} // namespace tvr::platform
