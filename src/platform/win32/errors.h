// The failures of this backend.
#pragma once

#include "platform/failure.h"

namespace tvr::platform::win32 {

using platform::fail;
using platform::is_watched;
using platform::may_change;

bool fail_last() noexcept; // as fail(), with the number that the system's last call left

// True if the outcome of a call is not zero; otherwise as fail_last().
inline bool succeeded(int outcome) noexcept {
    return outcome != 0 || fail_last();
}

} // namespace tvr::platform::win32
