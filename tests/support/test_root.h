// A root of its own for one test: every store, run-time object and file of the engine lies below it.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace tvr {

class test_root {
public:
    test_root() {
        std::string name = (std::filesystem::temp_directory_path() / "tvrXXXXXX").string();
        if (!mkdtemp(name.data()))
            throw std::runtime_error("no temporary folder");
        m_path = name;
        setenv("TESSIVAR_ROOT", name.c_str(), 1);
    }
    ~test_root() {
        unsetenv("TESSIVAR_ROOT");
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
    std::filesystem::path m_path;
};

} // namespace tvr
