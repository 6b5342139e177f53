#include "platform/library.h"

#include <array>
#include <utility>

#include "platform/error.h"
#include "platform/win32/errors.h"
#include "platform/win32/paths.h"
#include "platform/win32/system.h"

namespace tvr::platform {

namespace {

HMODULE module_of(void* handle) {
    return static_cast<HMODULE>(handle);
}

} // namespace

library::~library() {
    unload();
}

bool library::load(std::string_view name) {
    return load_first({win32::native_path(name)});
}

bool library::load_installed(std::string_view) {
    unload();
    return win32::fail(error::module_not_found);
}

bool library::load_first(std::initializer_list<std::string> candidates) {
    unload();
    for (const std::string& candidate : candidates) {
        m_name = candidate;
        m_handle = LoadLibraryA(candidate.c_str());
        if (m_handle != nullptr)
            return true;
    }
    return win32::fail_last();
}

void library::unload() noexcept {
    if (m_handle != nullptr)
        FreeLibrary(module_of(std::exchange(m_handle, nullptr)));
}

void* library::symbol(std::string_view name) const noexcept {
    return m_handle != nullptr
               ? reinterpret_cast<void*>(GetProcAddress(module_of(m_handle), std::string(name).c_str()))
               : nullptr;
}

void* library::symbol(unsigned number) const noexcept {
    return m_handle != nullptr ? reinterpret_cast<void*>(GetProcAddress(
                                     module_of(m_handle), MAKEINTRESOURCEA(static_cast<WORD>(number))))
                               : nullptr;
}

std::string library::path() const {
    std::array<char, MAX_PATH + 1> room{};
    return m_handle != nullptr
               ? std::string(room.data(), GetModuleFileNameA(module_of(m_handle), room.data(), MAX_PATH))
               : m_name;
}

} // namespace tvr::platform
