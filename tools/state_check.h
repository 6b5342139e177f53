// Whether the files of a user fit together.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>

namespace tvr {

// Looks at every file below a working directory, and holds none of them. Writes each defect as a line
// "file: offset N: reason"; what is odd but heals by itself as a line that begins with "note: ".
class state_check {
public:
    // `engine_runs`: a stage folder may be in work.
    state_check(std::string working_directory, bool engine_runs, std::ostream& out); // trailing backslash

    void run();
    [[nodiscard]] std::uint64_t files() const noexcept { return m_files; }
    [[nodiscard]] std::uint64_t defects() const noexcept { return m_defects; }

private:
    friend class file_check;

    void check_folder(const std::string& folder);
    void check_file(const std::string& path);
    void check_index(const std::string& list_path);
    void check_stages();
    void check_stage(unsigned stage, const std::string& folder, bool marked);
    [[nodiscard]] bool has_batch(const std::string& folder) const; // a file "dis*" with something in it

    void defect(const std::string& path, const std::string& reason);
    void note(const std::string& path, const std::string& reason);

    std::string m_working;
    bool m_engine_runs;
    std::ostream& m_out;
    std::uint64_t m_files = 0;
    std::uint64_t m_defects = 0;
};

} // namespace tvr
