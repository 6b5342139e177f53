// An owned file descriptor.
#pragma once

#include <unistd.h>
#include <utility>

namespace tvr::platform::posix {

class descriptor {
public:
    descriptor() noexcept = default;
    explicit descriptor(int number) noexcept : m_number(number) {}
    ~descriptor() { close(); }
    descriptor(descriptor&& other) noexcept : m_number(std::exchange(other.m_number, -1)) {}
    descriptor& operator=(descriptor&& other) noexcept {
        close();
        m_number = std::exchange(other.m_number, -1);
        return *this;
    }
    descriptor(const descriptor&) = delete;
    descriptor& operator=(const descriptor&) = delete;

    [[nodiscard]] bool is_open() const noexcept { return m_number >= 0; }
    [[nodiscard]] int get() const noexcept { return m_number; }
    void close() noexcept {
        if (m_number >= 0)
            ::close(std::exchange(m_number, -1));
    }

private:
    int m_number = -1;
};

} // namespace tvr::platform::posix
