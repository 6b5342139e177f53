// The messages that wait in the cache, and the way to take one of them back.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace tvr {

// What came of one message.
struct forgotten_mail {
    std::uint32_t marked = 0;  // records that are marked as deleted now
    std::uint32_t already = 0; // and those that were before
};

// By what messages are known: an ID as the cache has it, or a Message-ID without angle brackets.
using mail_to_forget = std::map<std::string, forgotten_mail, std::less<>>;

// The key of an ID that a user gives: of either kind.
[[nodiscard]] std::string forget_key(std::string_view id);

// Marks all records of these messages as deleted, in place, under lock.bin; waits at most `patience`
// milliseconds for that. A missing cache holds none. The reason of a failure, or an empty text.
[[nodiscard]] std::string forget_waiting(const std::string& cache, mail_to_forget& messages,
                                         std::uint32_t patience = 30000);

} // namespace tvr
