// A base with history in a root: several atoms in both halves, older ones gone, messages corrected, deleted
// and wrongly dated; logs are on, and a batch waits in the cache. And what an undisturbed engine makes of it.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "support/file_bytes.h"
#include "torture/engine_run.h"
#include "torture/file_changes.h"

namespace tvr::torture {

inline const std::string data_folder = "appdata/Orvenix/Brackenhold/data/";
inline const std::string base_folder = data_folder + "base/";
inline const std::string transact_folder = base_folder + "transact/";
inline const std::string cache_file = transact_folder + "autotrain.bys";
inline const std::string time_mark = base_folder + "cashe.mrk";
inline const std::string compiled_base = base_folder + "cashe.rgd";
inline const std::string statistic_file = data_folder + "~stat.bin";

constexpr int killed = -1;

// One root that is used again and again, since paths stand in some files; and saved states of it. In memory
// where the system has such a folder.
class trained_base {
public:
    static constexpr unsigned history = 6;     // transactions
    static constexpr unsigned waiting = 7;     // the series in the cache
    static constexpr unsigned next_series = 8; // trained after whatever went wrong
    static constexpr unsigned batch = 14;      // messages

    trained_base();
    ~trained_base();
    trained_base(const trained_base&) = delete;
    trained_base& operator=(const trained_base&) = delete;

    [[nodiscard]] std::string root() const { return (m_folder / "root").string(); }
    [[nodiscard]] std::string path(const std::string& name) const { return root() + "/" + name; }
    void save(const std::string& name) const;    // the root under a name; "waiting" and "trained" are there
    void restore(const std::string& name) const; // the root as it was saved
    // The states that the last power cut may have left, for restore(); none of them twice.
    [[nodiscard]] std::vector<std::string> cuts() const;
    void empty() const;                         // a root without anything
    void make_bare();                           // one with its settings
    void remove(const std::string& path) const; // a file or a folder of the root

    // By path below the root, with slashes. Logs and shared memory are left out.
    [[nodiscard]] files all_content() const;
    // The same without what the dead leave and nobody looks at: the lock file, temporary files, and
    // unmarked stage folders. Nor does it have the archives of batches, of which each must be one that an
    // undisturbed engine makes, unless `any_archive` is set.
    files content(bool any_archive = false);

    // Each runs an engine in a child, and answers how it ended; a crash fails the test.
    verdict run(const std::string& what, const std::function<void(engine_driver&)>& driver);
    verdict restart();                      // to its rest
    verdict train(const std::string& what); // what waits
    verdict train_next();                   // what is left, and then the next series
    // Starts a child that runs the body on this root, and answers its process id.
    int start(const plan& wanted, const std::function<int()>& body) const;
    static int join(int process); // the exit code, or `killed`
    int run_child(const plan& wanted, const std::function<int()>& body);
    [[nodiscard]] const std::vector<file_change>& changes_of_the_dead() const {
        return m_dead;
    } // the last one
    // Each must succeed in a child.
    void work(const std::function<int()>& body);
    void append(unsigned series, unsigned count);

    // Equal files; of the time mark only the size is looked at.
    static void expect_equal(const std::string& when, files found, files expected);
    // The compiled base of these files, made by an engine that finds nothing but the last marker.
    [[nodiscard]] std::string generated(const files& dictionaries);

    files before;                               // a batch waits
    files after;                                // it is trained
    files both_apart, both_together, next_only; // the next series too, or alone

private:
    std::filesystem::path m_folder;
    std::vector<file_change> m_dead;
    bool m_complete = false; // the undisturbed runs are done
    std::set<std::string> m_archives;
};

// The one of this program.
trained_base& the_base();

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

// One process that changes files, and what may be left when it is killed.
struct job {
    const char* name;
    const char* start;         // the saved root
    std::function<int()> work; // in a child
    // Answers the outcome; `before` and `after` are the files without the death.
    std::function<std::string(const files& left, const files& before, const files& after)> judge;
    unsigned usual_stride = 1;
    const char* promised = ""; // stands in the outcome of a power cut at the end
};

inline const std::vector<std::uint32_t> all_errors = {5, 32, 112, 1450};

// Kills the job at each of its changes, or lets each fail with each of the errors, and counts the outcomes.
void torture(const job& each, const std::vector<std::uint32_t>& errors = {});
// Cuts the power at each change, each time something is brought to the disk, and at the end.
void cut_power(const job& each);

} // namespace tvr::torture
