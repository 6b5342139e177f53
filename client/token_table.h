// The tokens of one message with their counts, kept in the very bytes of a cache record's token table.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "client/tvr_ipc_export.h"

namespace tvr {

// The count of a token in a message of the tokenizer, however often it stands there: how many messages have a
// word tells more than how often they repeat it. With 3 it is graded from its second spam message or its
// first good one on.
constexpr std::uint32_t token_weight = 3;

// A token's bytes mixed to 64 bits, the same in every build. Its upper half serves as a hash.
[[nodiscard]] std::uint64_t mixed_token(std::string_view token) noexcept;

// Belongs to one thread. Made to be used again and again: clear() keeps the memory of ordinary messages.
class TVR_IPC_EXPORT token_table {
public:
    static constexpr std::size_t longest = 255; // bytes of a token
    static constexpr std::uint32_t no_limit = 0xFFFFFFFF;

    // `limit`: tokens beyond this number of different ones are left out.
    explicit token_table(std::uint32_t limit = no_limit);

    void clear();
    // Adds to the count of a token of 1 to 255 bytes, which stops at 0xFFFFFFFF. False if the token is
    // neither known nor taken any more.
    bool add(std::string_view token, std::uint32_t count = 1);
    // Makes the count `count`, however often the token is named. The result is that of add().
    bool mark(std::string_view token, std::uint32_t count = 1);

    // The count of a token; nothing if it isn't there.
    [[nodiscard]] std::optional<std::uint32_t> find(std::string_view token) const noexcept;
    [[nodiscard]] std::uint32_t size() const noexcept { return m_count; } // different tokens
    // Entry by entry, in the order of first use: length byte, text, 32-bit count.
    [[nodiscard]] std::span<const std::uint8_t> entries() const noexcept { return m_data; }

    // Calls visit(std::string_view token, std::uint32_t count) for each token.
    template <class visitor_T>
    void for_each(visitor_T&& visit) const {
        for (std::size_t at = 0; at < m_data.size();) {
            const std::size_t length = m_data[at];
            visit(std::string_view(reinterpret_cast<const char*>(m_data.data()) + at + 1, length),
                  read_count(at));
            at += length + 5;
        }
    }

private:
    struct slot {
        std::uint32_t hash = 0;
        std::uint32_t place = 0; // offset of the entry + 1; 0 is empty
    };

    [[nodiscard]] std::uint32_t read_count(std::size_t entry) const noexcept;
    [[nodiscard]] std::size_t find_slot(std::string_view token, std::uint32_t hash) const noexcept;
    std::uint8_t* count_place(std::string_view token); // made with 0 if it is new; null if full
    void grow();

    std::vector<std::uint8_t> m_data;
    std::vector<slot> m_slots;
    std::uint32_t m_count = 0;
    std::uint32_t m_limit;
};

} // namespace tvr
