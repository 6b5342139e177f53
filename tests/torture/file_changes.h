// Every change of the file system that a process makes below its root, told one by one, and the plan by which
// one of them goes wrong.
//
// The test program defines the system's functions itself (open, pwrite, unlink, ...), so it sees a change
// before and after it happens and can let half of a write through. The change hook of the platform layer is
// used for failures, and checked against what is seen here.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tvr::torture {

enum class fate : std::uint32_t {
    none,       // only watch
    die_before, // the process is killed before the change
    die_within, // half of the bytes of a write are through; as die_before for every other change
    die_after,
    fail,      // the change fails with an error number
    halt,      // the thread stops before the change until board::resume is set
    cut_power, // before the change, or of bringing something to the disk, or at the end
};

const char* name_of(fate what);

struct file_change {
    std::string what; // "create", "write", "cut", "grow", "copy", "delete", "rename", "link", "make",
                      // "remove", "time", "mode"
    std::string path; // below the root, with slashes; the target of a rename or link
};

// Lies in memory that a test shares with its children.
struct board {
    static constexpr std::size_t most_changes = 16384;
    struct entry {
        std::array<char, 8> what;
        std::array<char, 152> path;
    };

    std::atomic<std::uint32_t> begun;  // changes seen
    std::atomic<std::uint32_t> points; // the same with what was brought to the disk
    std::atomic<std::uint32_t> asked;  // calls of the change hook
    std::atomic<std::uint32_t> unseen; // changes of data files that the hook wasn't asked for
    std::atomic<std::uint32_t> done;   // changes made; entries in `log`
    std::atomic<std::uint32_t> halted; // the halting thread stands
    std::atomic<std::uint32_t> resume;
    std::atomic<std::uint32_t> idle;     // how often the transaction thread came to its wait
    std::atomic<std::uint32_t> no_batch; // lines of the two endless rounds in the log
    std::atomic<std::uint32_t> no_marker;
    std::atomic<std::uint32_t> verdict; // how the child ended
    entry hit;                          // the change that the plan met
    std::array<entry, most_changes> log;

    void clear();
    [[nodiscard]] std::vector<file_change> changes() const; // made, in order
    [[nodiscard]] file_change hit_change() const;
};

// That of this process; made before the first child. A test has the first one, and so have its children
// unless their plan names the other.
board& shared_board();
board& board_of(unsigned number); // 0 or 1

struct plan {
    fate what = fate::none;
    std::uint32_t index =
        0; // of the change, from 0; for `fail` of the hook's call, for `cut_power` of the point
    std::uint32_t error = 0; // for `fail`
    unsigned board = 0;
    std::string change = {}; // unless it is empty, what is met in place of the index: "create path"
    std::string states = {}; // of `cut_power`: the folder for what it may leave, each state in one of its own
};

// Watches this process from now on. `root` is an absolute folder.
void arm(const plan& wanted, const std::string& root);

// The process has come to its end.
void tell_end();

// Tells the board that this thread stands, and waits until it may go on.
void halt();
// For the test: waits until a child stands, or has ended.
void wait_for_halt(const board& of_child);

// Whether the changes of this thread are spared from now on.
void spare(bool yes);

// The same path with the changing parts of temporary names taken out.
std::string generic_name(std::string path);

} // namespace tvr::torture
