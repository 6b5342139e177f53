// Whether the files of a user fit together.
#pragma once

#include <cstdint>
#include <functional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "tools/formats/file_view.h"

namespace tvr {

// A file with defects.
struct file_finding {
    std::string path;
    file_kind kind = file_kind::unknown;
    // Words of it that are wrong, and what they should be.
    std::vector<std::pair<std::uint64_t, std::uint32_t>> totals{};
    bool only_totals = true; // nothing else is wrong
};

// Looks at every file below a working directory, and holds none of them. Writes each defect as a line
// "file: offset N: reason"; what is odd but heals by itself as a line that begins with "note: ".
class state_check {
public:
    // `engine_runs`: a stage folder may be in work.
    state_check(std::string working_directory, bool engine_runs, std::ostream& out); // trailing backslash

    // What is lost and can't come back is told as a note, not as a defect.
    void let_losses_pass() noexcept { m_losses_count = false; }
    // Called between files: how many it has looked at, and of how many.
    using progress_hook = std::function<void(std::uint64_t done, std::uint64_t total)>;
    void on_progress(progress_hook told) { m_progress = std::move(told); }
    void run();
    [[nodiscard]] std::uint64_t files() const noexcept { return m_files; }
    [[nodiscard]] std::uint64_t defects() const noexcept { return m_defects; }
    // The files with defects; what is wrong with the markers and folders is told by stage_state.
    [[nodiscard]] const std::vector<file_finding>& findings() const noexcept { return m_findings; }

private:
    friend class file_check;

    void check_folder(const std::string& folder);
    void check_file(const std::string& path);
    void check_index(const std::string& list_path);
    void check_stages();
    void check_half(const std::string& name, std::uint32_t messages, std::uint32_t tokens);
    void check_halves();

    void defect(const std::string& path, const std::string& reason);
    void note(const std::string& path, const std::string& reason);
    void loss(const std::string& path, const std::string& reason);

    std::string m_working;
    bool m_engine_runs;
    bool m_losses_count = true;
    std::ostream& m_out;
    progress_hook m_progress;
    std::uint64_t m_seen = 0;  // files, of any kind
    std::uint64_t m_total = 0; // about
    std::vector<file_finding> m_findings;
    std::uint64_t m_files = 0;
    std::uint64_t m_defects = 0;
};

// Checks all, with a bar on the standard error if that is a terminal, and writes what it finds and a line
// with the sums. True if nothing is wrong. `losses_count`: what is lost and can't come back is a defect, too.
bool tell_state(const std::string& working_directory, bool engine_runs, std::ostream& out,
                bool losses_count = true);

} // namespace tvr
