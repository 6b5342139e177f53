// The binary form of a setting's value, which settings.cfg and the flat form share:
//   string, path   2 bytes of length and the bytes; a path by its raw form
//   flag           1 byte
//   real           8 bytes
//   others         4 bytes
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "settings/settings.h"

namespace tvr {

[[nodiscard]] std::size_t binary_size(const field_descriptor& field); // bytes
void append_binary(const field_descriptor& field, std::string& bytes);
// The size of the value of that type which begins `bytes`; nothing if it is cut short. Unknown types have 4
// bytes.
[[nodiscard]] std::optional<std::size_t> binary_extent(field_type type, std::string_view bytes);
// Takes the value that begins `bytes`, which must hold it whole; a path is expanded.
void assign_binary(const field_descriptor& field, std::string_view bytes);

} // namespace tvr
