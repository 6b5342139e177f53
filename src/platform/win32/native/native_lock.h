// What a critical section is on this backend.
#pragma once

#include <cstddef>

namespace tvr::platform {

// The system's own, behind room for it.
class native_lock {
public:
    native_lock() noexcept;
    ~native_lock();
    native_lock(const native_lock&) = delete;
    native_lock& operator=(const native_lock&) = delete;

    void lock() noexcept;
    void unlock() noexcept;

private:
    alignas(std::max_align_t) std::byte m_section[48];
};

} // namespace tvr::platform
