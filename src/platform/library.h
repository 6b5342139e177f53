// Shared libraries, loaded at run time by the names that they have on the reference platform.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

namespace tvr::platform {

// A loaded library; unloaded by the destructor.
class library {
public:
    library() noexcept = default;
    ~library();
    library(const library&) = delete;
    library& operator=(const library&) = delete;

    // Loads by name ("zlib1.dll", "tvr_ipc.dll") or path. False sets last_error().
    bool load(std::string_view name);
    // Loads one of our own libraries by name from where installations have them that don't lie beside the
    // executable. On the reference platform there are none (126).
    bool load_installed(std::string_view name);
    void unload() noexcept;
    [[nodiscard]] bool is_loaded() const noexcept { return m_handle != nullptr; }
    // The address of an exported function, or null.
    [[nodiscard]] void* symbol(std::string_view name) const noexcept;
    // The export with this number, or null. Where exports have names alone, number n is the function
    // "tvr_export_n" (in C linkage).
    [[nodiscard]] void* symbol(unsigned number) const noexcept;
    [[nodiscard]] std::string path() const; // where it was found

private:
    bool load_first(std::initializer_list<std::string> candidates);

    void* m_handle = nullptr;
    std::string m_name;
};

} // namespace tvr::platform
