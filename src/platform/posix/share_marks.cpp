#include "platform/posix/share_marks.h"

#include <bit>
#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>

#include "platform/error.h"
#include "platform/posix/errors.h"

namespace tvr::platform::posix {

namespace {

// The order makes the marks of the usual handles neighbours, which are then set in one call.
constexpr marks denies_reading = 1U << 0;
constexpr marks reads = 1U << 1;
constexpr marks denies_writing = 1U << 2;
constexpr marks writes = 1U << 3;
static_assert(deletion_conflicts == (reads | writes | deletion_mark));

constexpr unsigned settled = 5; // places above a mark stands the same one, settled
constexpr off_t first_byte = off_t{1} << 62;
constexpr int most_tries = 7;
constexpr long first_pause = 20'000; // nanoseconds, doubled with each try

bool has(share sharing, share wanted) {
    return (static_cast<unsigned>(sharing) & static_cast<unsigned>(wanted)) != 0;
}

// Cuts the lowest run of neighbouring marks off the set, as a lock on their bytes.
struct flock next_run(marks& set, short type) {
    const int start = std::countr_zero(set);
    const int count = std::countr_one(set >> start);
    set &= ~(((1U << count) - 1) << start);
    struct flock lock {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = first_byte + start;
    lock.l_len = count;
    return lock;
}

bool set_marks(int file, marks own) {
    while (own != 0) {
        struct flock lock = next_run(own, F_RDLCK);
        if (fcntl(file, F_OFD_SETLK, &lock) != 0)
            return false;
    }
    return true;
}

mark_result test_marks(int file, marks conflicting) {
    while (conflicting != 0) {
        struct flock lock = next_run(conflicting, F_WRLCK);
        if (fcntl(file, F_OFD_GETLK, &lock) != 0)
            return mark_result::failed;
        if (lock.l_type != F_UNLCK)
            return mark_result::conflict;
    }
    return mark_result::set;
}

} // namespace

marks marks_of(access rights, share sharing) noexcept {
    return (has(rights, access::read) ? reads : 0) | (has(rights, access::write) ? writes : 0) |
           (has(sharing, share::read) ? 0 : denies_reading) |
           (has(sharing, share::write) ? 0 : denies_writing);
}

marks conflicts_of(access rights, share sharing) noexcept {
    return (has(rights, access::read) ? denies_reading : 0) |
           (has(rights, access::write) ? denies_writing : 0) | (has(sharing, share::read) ? 0 : reads) |
           (has(sharing, share::write) ? 0 : writes) | deletion_mark;
}

mark_result try_marks(int file, marks own, marks conflicting) noexcept {
    const mark_result result = set_marks(file, own) ? test_marks(file, conflicting) : mark_result::failed;
    if (result == mark_result::set)
        return result;
    const int reason = errno;
    clear_marks(file);
    errno = reason;
    return result == mark_result::conflict &&
                   test_marks(file, conflicting << settled) == mark_result::conflict
               ? mark_result::held
               : result;
}

void settle_marks(int file, marks own) noexcept {
    set_marks(file, own << settled); // without them others only wait longer
}

void clear_marks(int file) noexcept {
    marks all = (1U << 2 * settled) - 1;
    struct flock lock = next_run(all, F_UNLCK);
    fcntl(file, F_OFD_SETLK, &lock);
}

bool mark_retry::again() noexcept {
    if (++m_tries > most_tries)
        return false;
    // The clock is random enough; the process number parts two processes of one tick.
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const long longest = first_pause << m_tries;
    const timespec pause{0, (now.tv_nsec + 7919L * getpid()) % longest};
    nanosleep(&pause, nullptr);
    return true;
}

bool deletion_guard::take(const std::string& native) {
    mark_retry retry;
    for (;;) {
        m_file =
            descriptor(::open(native.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
        if (!m_file.is_open())
            return fail_path(native);
        const mark_result result = try_marks(m_file.get(), deletion_mark, deletion_conflicts);
        // Deleters exclude each other too: what the path names can't change while the mark is held.
        struct stat opened {};
        if (result == mark_result::set && fstat(m_file.get(), &opened) == 0 && still_names(native, opened))
            return true;
        const int reason = errno;
        m_file.close();
        if (result == mark_result::failed)
            return fail(number_of(reason));
        if (result == mark_result::held || !retry.again())
            return fail(error::sharing_violation);
    }
}

bool still_names(const std::string& native, const struct stat& opened) noexcept {
    struct stat named {};
    return stat(native.c_str(), &named) == 0 && named.st_ino == opened.st_ino &&
           named.st_dev == opened.st_dev;
}

} // namespace tvr::platform::posix
