#include "platform/memory.h"

#include <cstdint>
#include <sys/mman.h>
#include <unistd.h>

#include "platform/error.h"
#include "platform/posix/errors.h"

namespace tvr::platform {

namespace {

constexpr std::size_t granularity = 65536;
constexpr int reserved = MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE;

// The whole pages around a range.
struct pages {
    pages(void* address, std::size_t bytes) {
        const std::uintptr_t mask = page_size() - 1;
        const auto from = reinterpret_cast<std::uintptr_t>(address) & ~mask;
        begin = reinterpret_cast<void*>(from);
        size = ((reinterpret_cast<std::uintptr_t>(address) + bytes + mask) & ~mask) - from;
    }
    void* begin;
    std::size_t size;
};

} // namespace

std::size_t page_size() noexcept {
    static const auto size = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    return size;
}

std::size_t allocation_granularity() noexcept {
    return granularity > page_size() ? granularity : page_size();
}

void* reserve_range(std::size_t size) noexcept {
    if (size == 0 || size > PTRDIFF_MAX) {
        posix::fail(error::invalid_parameter);
        return nullptr;
    }
    void* const range = mmap(nullptr, pages(nullptr, range_room(size)).size, PROT_NONE, reserved, -1, 0);
    if (range != MAP_FAILED)
        return range;
    posix::fail_errno();
    return nullptr;
}

void* commit_range(void* address, std::size_t size) noexcept {
    const pages range(address, size);
    if (mprotect(range.begin, range.size, PROT_READ | PROT_WRITE) == 0)
        return address;
    posix::fail_errno();
    return nullptr;
}

void decommit_range(void* address, std::size_t size) noexcept {
    const pages range(address, size);
    static_cast<void>(mmap(range.begin, range.size, PROT_NONE, reserved | MAP_FIXED, -1, 0));
}

void release_range(void* address, std::size_t size) noexcept {
    const pages range(address, range_room(size));
    munmap(range.begin, range.size);
}

} // namespace tvr::platform
