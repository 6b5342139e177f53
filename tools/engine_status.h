// What "tvrctl status" and the host tell of the engine.
#pragma once

#include <cstdint>
#include <optional>

#include <nlohmann/json_fwd.hpp>

#include "tools/engine_view.h"

namespace tvr {

struct engine_status {
    std::uint32_t process = 0;            // 0: it doesn't run
    const char* stage = nullptr;          // of a training under way, or null
    std::optional<std::uint32_t> waiting; // messages; nothing while the cache is in use
    std::uint64_t cache_size = 0;         // bytes
    half_view spam, ham;
    std::optional<base_view> base;
};

[[nodiscard]] engine_status look_at(const engine_view& view);
[[nodiscard]] nlohmann::json json_of(const engine_view& view, const engine_status& state);

} // namespace tvr
