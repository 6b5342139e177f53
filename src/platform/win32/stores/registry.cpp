#include "platform/registry.h"

#include <utility>

#include "platform/error.h"
#include "platform/win32/errors.h"
#include "platform/win32/paths.h"
#include "platform/win32/system.h"

namespace tvr::platform {

namespace {

struct place {
    HKEY root;
    std::string path;
};

// Where a key lies. A moved root has both stores under one key of the user, named after the root.
place place_of(registry_root root, std::string_view path) {
    const bool machine = root == registry_root::local_machine;
    const std::string mark = win32::root_mark();
    if (mark.empty())
        return {machine ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER, std::string(path)};
    return {HKEY_CURRENT_USER,
            "Software\\Tessivar" + mark + (machine ? "\\machine\\" : "\\user\\") + std::string(path)};
}

HKEY key_of(std::uintptr_t handle) {
    return reinterpret_cast<HKEY>(handle);
}

REGSAM native_rights(registry_access rights) {
    switch (rights) {
    case registry_access::write:
        return KEY_WRITE;
    case registry_access::allowed:
        return MAXIMUM_ALLOWED;
    default:
        return KEY_READ;
    }
}

bool done(LSTATUS outcome) {
    return outcome == ERROR_SUCCESS || win32::fail(static_cast<std::uint32_t>(outcome));
}

} // namespace

bool registry_key::open(registry_root root, std::string_view path, registry_access rights) {
    close();
    const place where = place_of(root, path);
    HKEY key = nullptr;
    if (!done(RegOpenKeyExA(where.root, where.path.c_str(), 0, native_rights(rights), &key)))
        return false;
    m_handle = reinterpret_cast<std::uintptr_t>(key);
    m_open = true;
    return true;
}

bool registry_key::create(registry_root root, std::string_view path) {
    close();
    const place where = place_of(root, path);
    HKEY key = nullptr;
    if (!done(RegCreateKeyExA(where.root, where.path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                              KEY_ALL_ACCESS, nullptr, &key, nullptr)))
        return false;
    m_handle = reinterpret_cast<std::uintptr_t>(key);
    m_open = true;
    return true;
}

void registry_key::close() noexcept {
    if (std::exchange(m_open, false))
        RegCloseKey(key_of(std::exchange(m_handle, 0)));
}

std::optional<registry_value> registry_key::query(std::string_view name) const {
    if (!m_open) {
        win32::fail(error::invalid_handle);
        return std::nullopt;
    }
    const std::string own(name);
    registry_value value;
    DWORD type = 0;
    DWORD size = 128;
    LSTATUS outcome = ERROR_MORE_DATA;
    // Another process may make it longer between two calls.
    while (outcome == ERROR_MORE_DATA) {
        value.data.resize(size);
        outcome = RegQueryValueExA(key_of(m_handle), own.c_str(), nullptr, &type,
                                   reinterpret_cast<BYTE*>(value.data.data()), &size);
    }
    if (!done(outcome))
        return std::nullopt;
    value.data.resize(size);
    value.type = type;
    return value;
}

bool registry_key::set(std::string_view name, std::uint32_t type, std::string_view data) {
    if (!m_open)
        return win32::fail(error::invalid_handle);
    return done(RegSetValueExA(key_of(m_handle), std::string(name).c_str(), 0, type,
                               reinterpret_cast<const BYTE*>(data.data()), static_cast<DWORD>(data.size())));
}

bool registry_key::remove(std::string_view name) {
    if (!m_open)
        return win32::fail(error::invalid_handle);
    return done(RegDeleteValueA(key_of(m_handle), std::string(name).c_str()));
}

} // namespace tvr::platform
