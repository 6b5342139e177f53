// Share modes: marks that every open handle leaves on its file, seen by all handles of all processes.
//
// A mark is a shared open-file-description lock on one byte far past the end of the file. The kernel
// takes it away with the handle, however the process ends. Everybody sets his own marks first and then
// looks for those of the others, so of two that race at least one sees the other, and gives way. Who has
// found no conflict settles his marks: others need not try again for him.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <optional>
#include <string>

#include "platform/file.h"
#include "platform/posix/descriptor.h"

namespace tvr::platform::posix {

// A set of marks, a bit each.
using marks = unsigned;

marks marks_of(access rights, share sharing) noexcept;     // what a handle leaves
marks conflicts_of(access rights, share sharing) noexcept; // what it can't stand
constexpr marks deletion_mark = 1U << 4;                   // left while a name is taken away
constexpr marks deletion_conflicts = 1U << 1 | 1U << 3 | deletion_mark;

enum class mark_result {
    set,
    conflict, // with marks that may be gone in a moment
    held,     // with settled marks
    failed,   // errno tells
};

// Sets the marks and tests for others' ones. Only `set` leaves marks behind.
mark_result try_marks(int file, marks own, marks conflicting) noexcept;
void settle_marks(int file, marks own) noexcept;
void clear_marks(int file) noexcept;

// The pauses between the tries of somebody who gave way: random, growing, some milliseconds in all.
class mark_retry {
public:
    // Waits; false when it is time to give up.
    bool again() noexcept;

private:
    int m_tries = 0;
};

// Takes the deletion mark of the file behind `native`, so that its name can be taken away or moved. False
// sets last_error(): 32 if somebody has the file open.
class deletion_guard {
public:
    bool take(const std::string& native);
    void release() noexcept { m_file.close(); }

private:
    descriptor m_file;
};

// True while the path names the file whose state is `opened`.
bool still_names(const std::string& native, const struct stat& opened) noexcept;

constexpr bool has(access rights, access wanted) noexcept {
    return (static_cast<unsigned>(rights) & static_cast<unsigned>(wanted)) != 0;
}

} // namespace tvr::platform::posix
