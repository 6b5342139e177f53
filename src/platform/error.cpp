#include "platform/error.h"

#include <atomic>

#include "platform/failure.h"

namespace tvr::platform {

namespace {

// No system's own: successful calls may change those as well.
thread_local std::uint32_t last = error::none;
std::atomic<change_hook> hook = nullptr;

} // namespace

std::uint32_t last_error() noexcept {
    return last;
}

void set_last_error(std::uint32_t number) noexcept {
    last = number;
}

void set_change_hook(change_hook wanted) noexcept {
    hook.store(wanted, std::memory_order_release);
}

bool fail(std::uint32_t number) noexcept {
    last = number;
    return false;
}

bool may_change(change what, std::string_view path) noexcept {
    const change_hook ask = hook.load(std::memory_order_acquire);
    const std::uint32_t refused = ask != nullptr ? ask(what, path) : error::none;
    return refused == error::none || fail(refused);
}

bool is_watched() noexcept {
    return hook.load(std::memory_order_acquire) != nullptr;
}

} // namespace tvr::platform
