// The score of a message by what its user has judged so far, and from which score on it is spam.
#pragma once

#include <span>
#include <string_view>

#include "client/tvr_ipc_export.h"
#include "client/verdict/verdict_file.h"

namespace tvr {

// Counts what the tokens of a message say, one by one.
class evidence_sum {
public:
    // `messages`: that the base was made of. `crossed`: in its place, other mail that came with the message.
    evidence_sum(const token_memory& memory, const seen_tokens& seen, message_counts messages,
                 bool crossed = false)
        : m_memory(memory), m_seen(seen), m_messages(messages), m_crossed(crossed),
          m_knows(seen.knows({1, 1}) && (!crossed || seen.knows(messages))) {}

    // `by_base`: the class of the base's grade. Returns that of the grade by all mail; as long as too little
    // mail was judged, the same.
    std::size_t add(token_key token, std::size_t by_base) noexcept {
        const std::size_t by_all = m_knows ? class_of(m_seen.grade(token)) : by_base;
        m_said += m_memory.weight(token);
        ++m_tokens;
        if (kind_of_key(token) < kind_count) {
            ++m_by_base[kind_of_key(token)][by_base];
            ++m_by_all[kind_of_key(token)][by_all];
        }
        return by_all;
    }
    [[nodiscard]] evidence finish() const noexcept {
        return {.by_base = pack_counts(m_by_base, m_messages),
                .by_all = pack_counts(m_by_all, m_knows ? m_seen.messages() : m_messages),
                .memory = m_memory.verdict(m_said, m_tokens),
                .crossed = m_crossed};
    }

private:
    const token_memory& m_memory;
    const seen_tokens& m_seen;
    const message_counts m_messages;
    const bool m_crossed;
    const bool m_knows; // enough for grades by all mail
    grade_counts m_by_base{}, m_by_all{};
    std::int64_t m_said = 0;
    std::size_t m_tokens = 0;
};

// The built-in and the learned weights, mixed by the trust in the latter.
[[nodiscard]] TVR_IPC_EXPORT feature_weights weights_of(const verdict_state& state) noexcept;

struct spam_limits {
    double spam_threshold = 85; // percent: below this nothing is spam
    double false_positives =
        0.1; // percent of the good mail that may go wrong, by the user's own; 100 is no limit
};
// The logit from which on a message is spam.
[[nodiscard]] TVR_IPC_EXPORT double spam_logit(const verdict_state& state,
                                               const spam_limits& limits) noexcept;

// Leaves the most messages that are kept, or fewer. The newest stay, and of the older ones those that teach
// most.
void forget_messages(verdict_state& state);

// Learns from the state's messages: the weights, the trust in them, and the scores of the recent good mail.
TVR_IPC_EXPORT void learn(verdict_state& state);

} // namespace tvr
