// What a critical section is on this backend.
#pragma once

#include <mutex>

namespace tvr::platform {

using native_lock = std::recursive_mutex;

} // namespace tvr::platform
