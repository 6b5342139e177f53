// Learns the verdict from the messages that are handed over for training.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "client/known_messages.h"
#include "client/record_batch.h"
#include "client/verdict/token_memory.h"
#include "client/verdict/verdict_file.h"
#include "compiled/hashreg.h"

namespace tvr {

// Each message is scored with the published base, as one not seen before, and kept with its user's verdict. A
// message that the engine knows already doesn't count again; a correction counts as what it is now. The
// engine takes no part. One thread.
class verdict_learning {
public:
    explicit verdict_learning(std::string_view working_directory); // with a backslash at the end

    // Looks at what the engine has and knows, before messages are handed over to it.
    void prepare();
    // The messages were handed over. Held until finish(), but never more than 32 MiB of records, and 16 MiB
    // of what they are cut up to, beside one such call.
    void take(std::vector<record_batch> batches);
    // All training is forgotten: nothing that was taken counts, and nothing is known.
    void forget();
    // Learns, and writes verdict.bin. An empty text, or one line for the user: training goes on all the same.
    std::string finish();

private:
    struct taken_message {
        std::uint64_t id = 0;
        std::uint32_t time = 0;
        bool spam = false;
        known_as known;
        std::size_t first = 0, end = 0; // of its tokens
    };

    static constexpr std::size_t most_bytes = std::size_t{32} << 20; // of records
    static constexpr std::size_t most_tokens = std::size_t{1} << 21;

    void cut_records();
    void add(std::string_view msid, bool spam, std::uint32_t time, std::span<const std::uint8_t> entries);
    [[nodiscard]] std::span<const token_key> tokens_of(const taken_message& of) const;
    std::string learn_pending();
    void judge_pending(verdict_state& state);
    void keep(verdict_state& state, std::vector<judged_message>& made) const;

    std::string m_working;
    std::string m_path;
    known_messages m_known;
    bool m_looked = false;
    bool m_graded = false; // the published base is grown enough to grade by
    hashreg m_base;
    std::vector<record_batch> m_taken; // not cut up yet
    std::size_t m_bytes = 0;           // of their records
    std::vector<taken_message> m_messages;
    std::vector<token_key> m_tokens;
    std::vector<std::uint8_t> m_classes; // of the grades that the published base gives them
    std::string m_remark;
};

} // namespace tvr
