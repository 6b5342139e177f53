// Roots that are made once, copied for each run, and compared after it; and children of the test program.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "torture/file_changes.h"

namespace tvr::torture {

// Contents by path below the root, with slashes. Logs and shared memory are left out.
using files = std::map<std::string, std::string>;

// One root that is used again and again, since paths stand in some files; and saved states of it. In memory
// where the system has such a folder.
class sandbox {
public:
    sandbox();
    ~sandbox();
    sandbox(const sandbox&) = delete;
    sandbox& operator=(const sandbox&) = delete;

    [[nodiscard]] std::string root() const { return (m_folder / "root").string(); }
    void save(const std::string& name) const;    // the root under a name
    void restore(const std::string& name) const; // the root as it was saved
    void empty() const;                          // a root without anything
    [[nodiscard]] files content() const;

private:
    std::filesystem::path m_folder;
};

constexpr int killed = -1;

// Runs the body in a child on this root. It answers the exit code, or `killed`.
int in_child(const sandbox& box, const plan& wanted, const std::function<int()>& body);
// Starts one, and answers its process id.
int start_child(const sandbox& box, const plan& wanted, const std::function<int()>& body);
int join_child(int process);

// The paths in which two states differ, each with a word.
std::vector<std::string> differences(const files& found, const files& expected);

// Every n-th point is run. From TORTURE_STRIDE; `usual` where that isn't set.
unsigned stride(unsigned usual);

// A count of points for each outcome; printed by the destructor.
class tally {
public:
    explicit tally(std::string title) : m_title(std::move(title)) {}
    ~tally();
    tally(const tally&) = delete;
    tally& operator=(const tally&) = delete;
    void add(const std::string& outcome) { ++m_counts[outcome]; }

private:
    std::string m_title;
    std::map<std::string, unsigned> m_counts;
};

} // namespace tvr::torture
