#include "platform/mapping.h"

#include <cstdint>
#include <sys/mman.h>
#include <sys/stat.h>
#include <utility>

#include "platform/error.h"
#include "platform/posix/errors.h"
#include "platform/posix/file_state.h"

namespace tvr::platform {

mapping::~mapping() {
    close();
}

bool mapping::create(file& target, bool writable, std::uint64_t size) {
    close();
    if (!target.m_state)
        return posix::fail(error::invalid_handle);
    if (!target.m_state->may(writable ? access::read_write : access::read))
        return posix::fail(error::access_denied);
    const int handle = target.m_state->handle.get();
    struct stat info {};
    if (fstat(handle, &info) != 0)
        return posix::fail_errno();
    const auto present = static_cast<std::uint64_t>(info.st_size);
    if (size == 0)
        size = present;
    if (size == 0)
        return posix::fail(error::file_invalid);
    if (size > PTRDIFF_MAX || (size > present && !writable))
        return posix::fail(error::not_enough_memory);
    if (size > present) {
        if (!posix::may_change(change::truncate_file, target.m_state->path))
            return false;
        if (!posix::grow_file(handle, present, size))
            return posix::fail_errno();
    }
    m_handle = handle;
    m_writable = writable;
    m_size = size;
    return true;
}

bool mapping::map_view() {
    if (m_size == 0)
        return posix::fail(error::invalid_handle);
    unmap_view();
    void* const view = mmap(nullptr, m_size, m_writable ? PROT_READ | PROT_WRITE : PROT_READ, MAP_SHARED,
                            static_cast<int>(m_handle), 0);
    if (view == MAP_FAILED)
        return posix::fail_errno();
    m_view = static_cast<std::uint8_t*>(view);
    return true;
}

void mapping::unmap_view() noexcept {
    if (m_view != nullptr)
        munmap(std::exchange(m_view, nullptr), m_size);
}

void mapping::close() noexcept {
    unmap_view();
    m_handle = -1;
    m_size = 0;
}

} // namespace tvr::platform
