// The registry: a per-machine and a per-user store of typed values. Key paths have backslashes; keys and
// value names match in either case. Every query sees what other processes have written.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace tvr::platform {

enum class registry_root { local_machine, current_user };
// What a key is opened for: reading, writing alone, or all that the user may do with it.
enum class registry_access { read, write, allowed };

namespace registry_type {
constexpr std::uint32_t string = 1;
constexpr std::uint32_t expand_string = 2;
constexpr std::uint32_t binary = 3;
constexpr std::uint32_t dword = 4;
} // namespace registry_type

struct registry_value {
    std::uint32_t type = 0;
    std::string data; // the raw bytes; a string may or may not end in a zero byte
};

// An open key. A failed operation returns false or nothing and sets last_error(): 2 for a missing key or
// value, 5 without the right to do it.
class registry_key {
public:
    registry_key() = default;
    ~registry_key() { close(); }
    registry_key(registry_key&& other) noexcept
        : m_open(std::exchange(other.m_open, false)), m_rights(other.m_rights), m_root(other.m_root),
          m_path(std::move(other.m_path)), m_handle(other.m_handle) {}
    registry_key(const registry_key&) = delete;
    registry_key& operator=(const registry_key&) = delete;

    // Opens an existing key.
    bool open(registry_root root, std::string_view path, registry_access rights = registry_access::read);
    // Opens or makes a key, with all rights.
    bool create(registry_root root, std::string_view path);
    void close() noexcept;
    [[nodiscard]] bool is_open() const noexcept { return m_open; }

    [[nodiscard]] std::optional<registry_value> query(std::string_view name) const;
    bool set(std::string_view name, std::uint32_t type, std::string_view data);
    bool remove(std::string_view name);

private:
    bool m_open = false;
    [[maybe_unused]] registry_access m_rights = registry_access::read;
    registry_root m_root = registry_root::local_machine;
    std::string m_path;
    [[maybe_unused]] std::uintptr_t m_handle = 0; // the backend's own
};

} // namespace tvr::platform
