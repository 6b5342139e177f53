// Critical sections, threads and events.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <string_view>

#include "native_lock.h" // the backend's own

namespace tvr::platform {

// A lock between the threads of this process. The owner may enter again.
class critical_section {
public:
    void lock() { m_lock.lock(); }
    void unlock() { m_lock.unlock(); }

private:
    native_lock m_lock;
};

// Holds a critical section for a scope.
using locker = std::lock_guard<critical_section>;

std::uint32_t current_thread_id() noexcept;

// A thread that ends by itself or with the process; the destructor does not wait for it.
class thread {
public:
    // Starts `body` at normal priority. False if no thread could be made.
    bool start(std::function<std::uint32_t()> body);
    [[nodiscard]] bool started() const noexcept { return m_state != nullptr; }
    // True from start() until `body` has returned.
    [[nodiscard]] bool running() const noexcept;
    // Waits until `body` has returned; at once if never started.
    void join();

private:
    struct state;
    std::shared_ptr<state> m_state;
};

constexpr std::uint32_t infinite = 0xFFFFFFFF;
constexpr std::uint32_t wait_timeout = 258;
constexpr std::uint32_t wait_failed = 0xFFFFFFFF;

// An event: signalled or not. Any thread may set, reset and wait.
//
// A named event is auto-reset and shared by all processes of the user that hold it: the first one
// creates it unsignalled, and it goes away with the last. The death of a holder at any point leaves it
// usable.
class event {
public:
    event() noexcept;
    ~event();
    event(const event&) = delete;
    event& operator=(const event&) = delete;

    bool create(bool manual_reset);           // unnamed, unsignalled
    bool create_named(std::string_view name); // auto-reset, opens an existing one; 1 to 100 bytes
    void close() noexcept;                    // not while another thread waits on it
    [[nodiscard]] bool is_open() const noexcept;

    void set() noexcept;
    void reset() noexcept;
    // Looks without taking: an auto-reset event stays as it is.
    [[nodiscard]] bool is_signalled() const noexcept;
    // True if it was or became signalled; an auto-reset event is then reset.
    bool wait(std::uint32_t milliseconds);

    struct state;

private:
    friend std::uint32_t wait_any(std::span<event* const>, std::uint32_t);
    std::shared_ptr<state> m_state;
};

// Waits until one of the events is signalled and returns its index, the lowest one first; an auto-reset
// event is then reset. wait_timeout after `milliseconds`; wait_failed if one isn't open, or if named and
// unnamed events are mixed. Costs no wake-ups while it waits.
std::uint32_t wait_any(std::span<event* const> events, std::uint32_t milliseconds);

} // namespace tvr::platform
