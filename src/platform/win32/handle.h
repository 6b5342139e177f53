// A kernel handle and its owner.
#pragma once

#include <utility>

#include "platform/win32/system.h"

namespace tvr::platform::win32 {

// Closed by the destructor. Null and the invalid handle value both stand for none.
class handle {
public:
    handle() noexcept = default;
    explicit handle(HANDLE owned) noexcept : m_handle(owned == INVALID_HANDLE_VALUE ? nullptr : owned) {}
    handle(handle&& other) noexcept : m_handle(std::exchange(other.m_handle, nullptr)) {}
    handle& operator=(handle&& other) noexcept {
        if (this != &other) {
            close();
            m_handle = std::exchange(other.m_handle, nullptr);
        }
        return *this;
    }
    ~handle() { close(); }
    handle(const handle&) = delete;
    handle& operator=(const handle&) = delete;

    [[nodiscard]] HANDLE get() const noexcept { return m_handle; }
    [[nodiscard]] bool is_open() const noexcept { return m_handle != nullptr; }
    void close() noexcept {
        if (m_handle != nullptr)
            CloseHandle(std::exchange(m_handle, nullptr));
    }

private:
    HANDLE m_handle = nullptr;
};

} // namespace tvr::platform::win32
