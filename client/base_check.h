// Reads a published base in one pass, and tells whether it is what the engine wrote. Whoever loads it as a
// table takes what a file lacks as zeros, so that a cut one would call all mail good.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>

#include "compiled/base_header.h"

namespace tvr {

// Whole entries, one after the other: length byte, token, grade as a 32-bit float. Behind the last one there
// are 8 bytes more that may be read, and mean nothing.
using base_entries = std::span<const std::uint8_t>;

// What is wrong with the file, for a person; empty if its size and its tokens are those that its head tells.
// `visit` may have seen some entries by then.
std::string read_base(std::string_view path, base_header& head,
                      const std::function<void(base_entries)>& visit);

std::string base_defect(std::string_view path);

} // namespace tvr
