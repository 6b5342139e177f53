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
    explicit evidence_sum(const token_memory& memory) : m_memory(memory) {}

    void add(token_key token, double grade) noexcept { // 0 is no grade
        m_said += m_memory.weight(token);
        ++m_tokens;
        if (kind_of_key(token) < kind_count)
            ++m_counts[kind_of_key(token)][class_of(grade)];
    }
    // `spam_messages` and `ham_messages`: that the base was made of.
    [[nodiscard]] evidence finish(std::uint32_t spam_messages, std::uint32_t ham_messages) const noexcept {
        return make_evidence(m_counts, spam_messages, ham_messages, m_memory.verdict(m_said, m_tokens));
    }

private:
    const token_memory& m_memory;
    grade_counts m_counts{};
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

// Learns from the state's messages: the weights, the trust in them, and the scores of the recent good mail.
TVR_IPC_EXPORT void learn(verdict_state& state);

} // namespace tvr
