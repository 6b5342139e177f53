// verdict.bin in the working directory: what the verdict on mail was learned from, and what was learned.
// docs/formats.md tells its bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "client/tvr_ipc_export.h"
#include "client/verdict/evidence.h"
#include "client/verdict/model.h"
#include "client/verdict/seen_tokens.h"
#include "client/verdict/token_memory.h"

namespace tvr {

// A message that the user has judged, as it was scored before it was learned. Scores are logits in 1/128.
struct judged_message {
    std::uint64_t id = 0;   // hash of its message ID
    std::uint32_t time = 0; // minutes since 1601
    bool spam = false;
    evidence what;
    std::int16_t score = 0;         // that the user was shown, or would have been
    std::int16_t learned_score = 0; // by the learned weights alone

    bool operator==(const judged_message&) const = default;
};
constexpr double score_unit = 128;

constexpr std::uint32_t verdict_signature = 0x56525654; // "TVRV"
constexpr std::uint32_t verdict_version = 5;
constexpr std::size_t largest_verdict = 1'043'808;   // bytes of a file
constexpr std::size_t verdict_messages_at = 525'408; // offset of the messages
constexpr std::size_t verdict_message_size = 144;
[[nodiscard]] std::int16_t pack_score(double logit) noexcept;
[[nodiscard]] std::uint64_t id_of(std::string_view msid) noexcept;

// What is kept of one user. One thread.
struct TVR_IPC_EXPORT verdict_state {
    static constexpr std::size_t most_messages = 3600;
    static constexpr std::size_t top_scores = 64;

    std::uint64_t judged = 0;    // messages since the file was begun
    std::uint32_t unlearned = 0; // of them since the weights were learned
    double trust = 0;            // 0 to 1: how far the learned weights count, against the built-in ones
    feature_weights weights = built_in_weights();
    std::uint32_t recent_ham = 0;           // good messages that `ham_scores` is of
    std::vector<std::int16_t> ham_scores{}; // the highest of the recent good mail, falling
    std::vector<judged_message> messages{}; // the oldest first
    token_memory memory{};
    seen_tokens seen{};
};

enum class verdict_file_result {
    loaded,
    missing, // the state is that of a user who has judged nothing; so are the following
    damaged, // or of another version
    failed,  // it can't be read; last_error() tells why
};

// What is kept of a file that is read. The messages are looked at only if they are kept.
struct verdict_use {
    bool messages = true; // who only scores needs none
    std::optional<std::span<const token_key>> only =
        std::nullopt; // what is known of these tokens, and of no others
};

[[nodiscard]] TVR_IPC_EXPORT std::string verdict_path(std::string_view working_directory);
[[nodiscard]] TVR_IPC_EXPORT verdict_file_result load_verdict(std::string_view path, verdict_state& state,
                                                              const verdict_use& use = {});
// Whoever changes the file holds this one meanwhile, and waits so many milliseconds for it.
[[nodiscard]] std::string verdict_lock_path(std::string_view working_directory);
constexpr std::uint32_t verdict_patience = 5000;
// The state in its bytes, and back; nothing but a whole file is taken.
[[nodiscard]] TVR_IPC_EXPORT std::vector<std::uint8_t> verdict_bytes(const verdict_state& state);
// Writes the checks into a file's bytes: all in front of the messages at least, and whole messages.
TVR_IPC_EXPORT void seal_verdict(std::span<std::uint8_t> bytes);
[[nodiscard]] TVR_IPC_EXPORT bool parse_verdict(const std::vector<std::uint8_t>& bytes, verdict_state& state);
// Both take the lock, and false sets last_error(). Without a state the file is deleted: all begins anew.
[[nodiscard]] TVR_IPC_EXPORT bool replace_verdict(std::string_view working_directory,
                                                  const verdict_state* state);
// Writes it beside, and puts it in place in one step. False sets last_error(), and leaves the old file.
[[nodiscard]] TVR_IPC_EXPORT bool save_verdict(std::string_view path, const verdict_state& state);

} // namespace tvr
