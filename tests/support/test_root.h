// A root of its own for one test: every store, run-time object and file of the engine lies below it. Roots
// may be nested; the innermost one counts.
#pragma once

#include <filesystem>
#include <random>
#include <string>
#include <utility>

#include "platform/process.h"

namespace tvr {

class test_root {
public:
    test_root() {
        std::random_device random;
        do
            m_path = std::filesystem::temp_directory_path() / ("tvr" + std::to_string(random()));
        while (!std::filesystem::create_directory(m_path));
        std::filesystem::permissions(m_path, std::filesystem::perms::owner_all);
        m_before = std::exchange(current(), m_path.string());
        platform::set_environment_variable("TESSIVAR_ROOT", current());
    }
    ~test_root() {
        current() = m_before;
        platform::set_environment_variable("TESSIVAR_ROOT", m_before);
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    test_root(const test_root&) = delete;
    test_root& operator=(const test_root&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const { return m_path; }
    // A path below the root as the engine writes it; `name` with backslashes, may be empty.
    [[nodiscard]] std::string engine_path(const std::string& name = {}) const {
        std::string text = m_path.string();
        for (char& c : text)
            if (c == '/')
                c = '\\';
        return name.empty() ? text : text + "\\" + name;
    }

private:
    static std::string& current() {
        static std::string path;
        return path;
    }

    std::filesystem::path m_path;
    std::string m_before; // the root around this one
};

} // namespace tvr
