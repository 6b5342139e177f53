// From errno to the error numbers of the platform layer.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/change_hook.h"

namespace tvr::platform::posix {

std::uint32_t number_of(int errno_value) noexcept;

// Each sets last_error() and answers false.
bool fail(std::uint32_t number) noexcept;
bool fail_errno() noexcept;
// The same for an operation on a path: a missing folder above it gives 3 instead of 2.
bool fail_path(const std::string& native) noexcept;

// Asks the change hook; false, with last_error() set, if it refuses.
bool may_change(change what, std::string_view path) noexcept;

} // namespace tvr::platform::posix
