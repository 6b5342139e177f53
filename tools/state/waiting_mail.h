// The messages that wait in the cache, and the ways to take one of them back or to change its verdict.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace tvr {

class file_lock;

// Takes the lock of the cache in `folder` (with a trailing backslash); waits at most `patience` milliseconds.
// The reason of a failure, or an empty text.
[[nodiscard]] std::string take_lock(file_lock& lock, std::string_view folder, std::uint32_t patience = 30000);

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

// The same for all records; `marked` of the result counts them.
[[nodiscard]] std::string forget_all_waiting(const std::string& cache, forgotten_mail& sum,
                                             std::uint32_t patience = 30000);

// A message's verdict, and what came of it.
struct waiting_verdict {
    bool spam = false;          // wanted
    std::uint32_t waiting = 0;  // records that have this verdict now
    std::uint32_t remarked = 0; // those among them that had the other one before
    std::uint32_t deleted = 0;  // records of the other verdict that are marked as deleted now
};

// By the ID in the cache.
using wanted_verdicts = std::map<std::string, waiting_verdict, std::less<>>;

// Gives the records of these messages another verdict, in place, under the same conditions as above. Good
// mail becomes spam. The mark of spam stays on a record for good, so that one is marked as deleted instead,
// and the caller has to append the message again if none is `waiting` then.
[[nodiscard]] std::string correct_waiting(const std::string& cache, wanted_verdicts& messages,
                                          std::uint32_t patience = 30000);

} // namespace tvr
