#include "platform/mapping.h"

#include <utility>

#include "platform/error.h"
#include "platform/win32/errors.h"
#include "platform/win32/file_state.h"

namespace tvr::platform {

namespace {

constexpr std::intptr_t none = -1;

} // namespace

mapping::~mapping() {
    close();
}

bool mapping::create(file& target, bool writable, std::uint64_t size) {
    close();
    const auto present = target.size();
    if (!present)
        return false;
    if (size > *present && writable && !win32::may_change(change::truncate_file, target.m_state->path))
        return false;
    const HANDLE made =
        CreateFileMappingA(target.m_state->handle.get(), nullptr, writable ? PAGE_READWRITE : PAGE_READONLY,
                           static_cast<DWORD>(size >> 32), static_cast<DWORD>(size), nullptr);
    if (made == nullptr)
        return win32::fail_last();
    m_handle = reinterpret_cast<std::intptr_t>(made);
    m_writable = writable;
    m_size = size != 0 ? size : *present;
    return true;
}

bool mapping::map_view() {
    if (m_size == 0)
        return win32::fail(error::invalid_handle);
    unmap_view();
    void* const view = MapViewOfFile(reinterpret_cast<HANDLE>(m_handle),
                                     m_writable ? FILE_MAP_WRITE : FILE_MAP_READ, 0, 0, m_size);
    if (view == nullptr)
        return win32::fail_last();
    m_view = static_cast<std::uint8_t*>(view);
    return true;
}

void mapping::unmap_view() noexcept {
    if (m_view != nullptr)
        UnmapViewOfFile(std::exchange(m_view, nullptr));
}

void mapping::close() noexcept {
    unmap_view();
    if (m_handle != none)
        CloseHandle(reinterpret_cast<HANDLE>(std::exchange(m_handle, none)));
    m_size = 0;
}

} // namespace tvr::platform
