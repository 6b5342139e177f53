// The words by which the engine's files are known.
#pragma once

#include <cstdint>

#include "compiled/base_header.h"
#include "dict/atom.h"
#include "dict/message_record.h"

namespace tvr::signature {

constexpr std::uint32_t atom = atom_head::signature;
constexpr std::uint32_t base = base_header::signature;
constexpr std::uint32_t old_base = base_header::deprecated_signature;
constexpr std::uint32_t message = message_head::signature;
constexpr std::uint32_t list = 0x4449536E;
constexpr std::uint32_t index = 0x12351237;
constexpr std::uint32_t columns = 0x454A546F;
constexpr std::uint32_t packed = 0x26072105;
constexpr std::uint32_t statistic = 0x54415453; // "STAT"
constexpr std::uint32_t settings = 0x61626261;  // "abba"

} // namespace tvr::signature
