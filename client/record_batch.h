// Training messages in the very bytes of the cache, ready to be appended in one piece.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "client/token_table.h"
#include "client/tvr_ipc_export.h"

namespace tvr {

struct training_message {
    std::string_view msid; // 0 to 255 bytes; see make_msid()
    bool spam = false;
    bool manual = false;    // the user's own verdict: trained at the engine's next time-out
    std::uint32_t size = 0; // bytes of the message
    std::uint32_t time = 0; // minutes since 1601, UTC
};

struct mail_facts;
// The message that a tokenizer has cut up, of `size` bytes. One without a sane date counts as written now.
TVR_IPC_EXPORT training_message describe(const mail_facts& facts, std::uint64_t size, bool spam, bool manual);

// Why these bytes are no whole record as add() makes them, or null if they are one: its lengths fit, no token
// is empty, and it has no marks but those of training_message.
[[nodiscard]] TVR_IPC_EXPORT const char* record_defect(std::span<const std::uint8_t> record) noexcept;

// Belongs to one thread. clear() keeps the memory.
class TVR_IPC_EXPORT record_batch {
public:
    // False, with nothing added, if the message ID is longer than 255 bytes or the batch would go beyond
    // 1 GiB.
    bool add(const training_message& message, const token_table& tokens);
    // Adds a record that stands in the bytes of the cache already; see record_defect(). False, with nothing
    // added, if it isn't sound or the batch would go beyond 1 GiB.
    bool add(std::span<const std::uint8_t> record);
    void clear() noexcept;

    [[nodiscard]] std::uint32_t count() const noexcept { return m_count; } // records
    [[nodiscard]] std::span<const std::uint8_t> bytes() const noexcept { return m_bytes; }

private:
    std::vector<std::uint8_t> m_bytes;
    std::uint32_t m_count = 0;
};

} // namespace tvr
