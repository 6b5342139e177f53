// What "tvrctl status" and the host tell of the engine.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <nlohmann/json_fwd.hpp>

#include "client/verdict/verdict_file.h"
#include "tools/state/engine_view.h"

namespace tvr {

struct learned_status {
    verdict_file_result file = verdict_file_result::missing;
    std::uint64_t judged = 0; // messages
    std::uint64_t kept = 0;   // of them, that the weights are learned from
    double spam_from = 0;     // percent
};

struct engine_status {
    std::uint32_t process = 0;    // 0: it doesn't run
    const char* stage = nullptr;  // of a training under way, or null
    std::uint64_t waiting = 0;    // messages
    std::uint64_t cache_size = 0; // bytes
    std::string room_fault;       // why what waits isn't trained; empty if nothing hinders it
    half_view spam, ham;
    std::optional<base_view> base;
    std::string base_fault; // what is wrong with it; empty if nothing is
    learned_status learned;
};

// Whether what was learned is there and can't be used.
[[nodiscard]] bool is_broken(const learned_status& learned);

[[nodiscard]] engine_status look_at(const engine_view& view);
[[nodiscard]] nlohmann::json json_of(const engine_view& view, const engine_status& state);

} // namespace tvr
