// Sleeping on a 32-bit word until somebody changes it and wakes the sleepers.
#pragma once

#include <atomic>
#include <cstdint>
#include <ctime>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace tvr::platform::posix {

static_assert(std::atomic<std::uint32_t>::is_always_lock_free && sizeof(std::atomic<std::uint32_t>) == 4);

// Who may wake: the threads of this process, or every process that maps the word's file.
enum class futex_scope : int { process = FUTEX_PRIVATE_FLAG, shared = 0 };

// A point on the monotonic clock, `milliseconds` from now.
inline timespec monotonic_after(std::uint32_t milliseconds) noexcept {
    timespec at{};
    clock_gettime(CLOCK_MONOTONIC, &at);
    at.tv_sec += static_cast<time_t>(milliseconds / 1000);
    at.tv_nsec += static_cast<long>(milliseconds % 1000) * 1'000'000;
    if (at.tv_nsec >= 1'000'000'000) {
        at.tv_nsec -= 1'000'000'000;
        ++at.tv_sec;
    }
    return at;
}

inline bool monotonic_passed(const timespec& at) noexcept {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec != at.tv_sec ? now.tv_sec > at.tv_sec : now.tv_nsec >= at.tv_nsec;
}

// Sleeps while the word is `expected`, until woken or until the point of time (null: without limit). May
// return early: the caller looks again.
inline void futex_wait(std::atomic<std::uint32_t>& word, std::uint32_t expected, futex_scope scope,
                       const timespec* until) noexcept {
    syscall(SYS_futex, reinterpret_cast<std::uint32_t*>(&word), FUTEX_WAIT_BITSET | static_cast<int>(scope),
            expected, until, nullptr, FUTEX_BITSET_MATCH_ANY);
}

inline void futex_wake_all(std::atomic<std::uint32_t>& word, futex_scope scope) noexcept {
    syscall(SYS_futex, reinterpret_cast<std::uint32_t*>(&word), FUTEX_WAKE | static_cast<int>(scope),
            0x7FFFFFFF, nullptr, nullptr, 0);
}

} // namespace tvr::platform::posix
