// The failures of this backend, and the question to the change hook.
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/change_hook.h"

namespace tvr::platform::win32 {

// Each sets last_error() and answers false.
bool fail(std::uint32_t number) noexcept;
bool fail_last() noexcept; // with the number that the system's last call left

// True if the outcome of a call is not zero; otherwise as fail_last().
inline bool succeeded(int outcome) noexcept {
    return outcome != 0 || fail_last();
}

// True while somebody wants to be asked before a change.
bool is_watched() noexcept;
// Asks the change hook; false, with last_error() set, if it refuses.
bool may_change(change what, std::string_view path) noexcept;

} // namespace tvr::platform::win32
