#include "platform/library.h"

#include <array>
#include <dlfcn.h>
#include <utility>

#include "platform/error.h"
#include "platform/posix/errors.h"
#include "platform/posix/paths.h"
#include "platform/process.h"

namespace tvr::platform {

using namespace posix;

namespace {

// What the libraries of the reference platform are called here.
constexpr std::array<std::pair<std::string_view, std::string_view>, 3> names = {
    {{"zlib1.dll", "libz.so.1"}, {"zlib.dll", "libz.so.1"}, {"tvr_ipc.dll", "libtvr_ipc.so"}}};

std::string native_name(const std::string& native) {
    const std::size_t slash = native.rfind('/');
    const std::string folder = native.substr(0, slash == std::string::npos ? 0 : slash + 1);
    const std::string file = native.substr(folder.size());
    for (const auto& [name, here] : names)
        if (file == name)
            return folder + std::string(here);
    return native;
}

// With a trailing slash.
std::string own_folder() {
    const std::string own = native_path(module_path());
    return own.substr(0, own.rfind('/') + 1);
}

} // namespace

library::~library() {
    unload();
}

bool library::load(std::string_view name) {
    const std::string native = native_name(native_path(name));
    if (native.starts_with('/'))
        return load_first({native});
    return load_first({own_folder() + native, native});
}

bool library::load_installed(std::string_view name) {
    const std::string native = native_name(native_path(name));
    return load_first({own_folder() + "../lib/" + native, native});
}

bool library::load_first(std::initializer_list<std::string> candidates) {
    unload();
    for (const std::string& candidate : candidates) {
        m_handle = candidate.empty() ? nullptr : dlopen(candidate.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (m_handle) {
            m_name = candidate;
            return true;
        }
    }
    return fail(error::module_not_found);
}

void library::unload() noexcept {
    if (m_handle)
        dlclose(std::exchange(m_handle, nullptr));
}

void* library::symbol(std::string_view name) const noexcept {
    return m_handle ? dlsym(m_handle, std::string(name).c_str()) : nullptr;
}

void* library::symbol(unsigned number) const noexcept {
    return symbol("tvr_export_" + std::to_string(number));
}

std::string library::path() const {
    return engine_path(m_name);
}

} // namespace tvr::platform
