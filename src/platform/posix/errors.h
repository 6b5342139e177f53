// From errno to the error numbers of the platform layer.
#pragma once

#include <cstdint>
#include <string>

#include "platform/failure.h"

namespace tvr::platform::posix {

using platform::fail;
using platform::may_change;

std::uint32_t number_of(int errno_value) noexcept;

// Each sets last_error() and returns false.
bool fail_errno() noexcept;
// The same for an operation on a path: a missing folder above it gives 3 instead of 2.
bool fail_path(const std::string& native) noexcept;

} // namespace tvr::platform::posix
