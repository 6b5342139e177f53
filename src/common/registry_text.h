// A registry key with text values.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/registry.h"

namespace tvr {

class registry_text {
public:
    bool open(platform::registry_root root, std::string_view path); // for reading
    // Opens or makes the key with all rights; where that is denied, opens it for reading.
    bool create(platform::registry_root root, std::string_view path);
    void close() noexcept;
    [[nodiscard]] bool is_open() const noexcept { return m_key.is_open(); }

    [[nodiscard]] std::optional<std::string> read(std::string_view name) const; // without the terminator
    // Writes a string value with its terminating zero; denied access is tried once more on a key opened
    // for writing.
    bool write(std::string_view name, std::string_view text);

private:
    platform::registry_key m_key;
    platform::registry_root m_root = platform::registry_root::current_user;
    std::string m_path;
};

} // namespace tvr
