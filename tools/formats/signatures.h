// The words by which the engine's files are known.
#pragma once

#include <cstdint>

#include "client/verdict/verdict_file.h"
#include "common/zfile.h"
#include "compiled/base_header.h"
#include "dict/atom.h"
#include "dict/message_record.h"
#include "dict/ring.h"
#include "msid/list_record.h"
#include "msid/page.h"
#include "settings/storage.h"
#include "stat/statistic.h"

namespace tvr::signature {

constexpr std::uint32_t atom = atom_head::signature;
constexpr std::uint32_t base = base_header::signature;
constexpr std::uint32_t old_base = base_header::deprecated_signature;
constexpr std::uint32_t message = message_head::signature;
constexpr std::uint32_t list = list_signature;
constexpr std::uint32_t index = index_signature;
constexpr std::uint32_t columns = column_signature;
constexpr std::uint32_t packed = packed_signature;
constexpr std::uint32_t statistic = tvr::statistic::signature;
constexpr std::uint32_t watch = 0x57525654; // "TVRW"
constexpr std::uint32_t settings = storage_object::signature;
constexpr std::uint32_t verdict = verdict_signature;

} // namespace tvr::signature
