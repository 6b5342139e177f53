#include "common/registry_text.h"

#include <algorithm>
#include <utility>

#include "platform/error.h"

namespace tvr {

bool registry_text::open(platform::registry_root root, std::string_view path) {
    m_root = root;
    m_path = path;
    m_key.close();
    return m_key.open(root, path);
}

bool registry_text::create(platform::registry_root root, std::string_view path) {
    m_root = root;
    m_path = path;
    m_key.close();
    if (m_key.create(root, path))
        return true;
    return platform::last_error() == platform::error::access_denied && m_key.open(root, path);
}

void registry_text::close() noexcept {
    m_key.close();
}

std::optional<std::string> registry_text::read(std::string_view name) const {
    auto value = m_key.query(name);
    if (!value)
        return std::nullopt;
    value->data.resize(std::min(value->data.find('\0'), value->data.size()));
    return std::move(value->data);
}

bool registry_text::write(std::string_view name, std::string_view text) {
    std::string data(text);
    data += '\0';
    if (m_key.set(name, platform::registry_type::string, data))
        return true;
    if (platform::last_error() != platform::error::access_denied)
        return false;
    m_key.close();
    return m_key.open(m_root, m_path, platform::registry_access::write) &&
           m_key.set(name, platform::registry_type::string, data);
}

} // namespace tvr
