#include "platform/memory.h"

#include <cstdint>

#include "platform/error.h"
#include "platform/win32/errors.h"
#include "platform/win32/system.h"

namespace tvr::platform {

namespace {

SYSTEM_INFO system_facts() {
    SYSTEM_INFO facts{};
    GetSystemInfo(&facts);
    return facts;
}

void* checked(void* range) {
    if (range == nullptr)
        win32::fail_last();
    return range;
}

} // namespace

std::size_t page_size() noexcept {
    static const std::size_t size = system_facts().dwPageSize;
    return size;
}

std::size_t allocation_granularity() noexcept {
    static const std::size_t size = system_facts().dwAllocationGranularity;
    return size;
}

void* reserve_range(std::size_t size) noexcept {
    if (size == 0 || size > PTRDIFF_MAX) {
        win32::fail(error::invalid_parameter);
        return nullptr;
    }
    return checked(VirtualAlloc(nullptr, range_room(size), MEM_RESERVE, PAGE_NOACCESS));
}

void* commit_range(void* address, std::size_t size) noexcept {
    return checked(VirtualAlloc(address, size, MEM_COMMIT, PAGE_READWRITE)) != nullptr ? address : nullptr;
}

void decommit_range(void* address, std::size_t size) noexcept {
    VirtualFree(address, size, MEM_DECOMMIT);
}

void release_range(void* address, std::size_t) noexcept {
    VirtualFree(address, 0, MEM_RELEASE);
}

} // namespace tvr::platform
