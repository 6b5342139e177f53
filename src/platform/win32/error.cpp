#include "platform/error.h"

#include <atomic>

#include "platform/win32/errors.h"
#include "platform/win32/system.h"

namespace tvr::platform {

namespace {

// Not the system's own: successful calls change that one as well.
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

namespace win32 {

bool fail(std::uint32_t number) noexcept {
    last = number;
    return false;
}

bool fail_last() noexcept {
    return fail(GetLastError());
}

bool is_watched() noexcept {
    return hook.load(std::memory_order_acquire) != nullptr;
}

bool may_change(change what, std::string_view path) noexcept {
    const change_hook ask = hook.load(std::memory_order_acquire);
    const std::uint32_t refused = ask != nullptr ? ask(what, path) : error::none;
    return refused == error::none || fail(refused);
}

} // namespace win32

} // namespace tvr::platform
