// How the backends fail, and how they ask before a change. Not for those above them.
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/change_hook.h"

namespace tvr::platform {

// Sets last_error() and returns false.
bool fail(std::uint32_t number) noexcept;

// Asks the change hook; false, with last_error() set, if it refuses.
bool may_change(change what, std::string_view path) noexcept;
// True while somebody wants to be asked.
bool is_watched() noexcept;

} // namespace tvr::platform
