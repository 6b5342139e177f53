#include "platform/folder_watch.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>

#include "platform/error.h"
#include "platform/posix/descriptor.h"
#include "platform/posix/errors.h"
#include "platform/posix/paths.h"

namespace tvr::platform {

using namespace posix;

namespace {

constexpr std::uint32_t of_itself = IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
constexpr std::uint32_t of_files = IN_CREATE | IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE;
constexpr std::size_t most_changes = 4096; // of one wait

std::atomic<int> stop_event = -1; // readable, and never read, once a stop was requested
std::atomic<bool> stop_seen = false;
static_assert(std::atomic<bool>::is_always_lock_free && std::atomic<int>::is_always_lock_free);

constexpr std::array<int, 3> stop_signals = {SIGINT, SIGTERM, SIGHUP};

void on_stop(int) {
    const int code = errno;
    for (const int number : stop_signals) // the next one has its usual effect
        std::signal(number, SIG_DFL);
    stop_seen.store(true);
    eventfd_write(stop_event.load(), 1);
    errno = code;
}

std::optional<folder_event> event_of(std::uint32_t mask) {
    if (mask & IN_Q_OVERFLOW)
        return folder_event::overflow;
    if (mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT))
        return folder_event::lost;
    if (mask & IN_ISDIR)
        return std::nullopt;
    if (mask & (IN_CLOSE_WRITE | IN_MOVED_TO))
        return folder_event::completed;
    if (mask & IN_CREATE)
        return folder_event::appeared;
    if (mask & (IN_DELETE | IN_MOVED_FROM))
        return folder_event::gone;
    return std::nullopt;
}

} // namespace

struct folder_watch::state {
    descriptor queue;

    // Takes what is in the queue. False if it can't be read.
    bool drain(std::vector<folder_change>& changes) {
        alignas(inotify_event) std::array<char, 65536> room;
        const std::size_t limit = changes.size() + most_changes;
        while (changes.size() < limit) {
            const ssize_t got = read(queue.get(), room.data(), room.size());
            if (got < 0 && errno == EINTR)
                continue;
            if (got <= 0)
                return got < 0 && (errno == EAGAIN || fail_errno());
            for (const char* at = room.data(); at < room.data() + got;) {
                const auto& event = *reinterpret_cast<const inotify_event*>(at);
                at += sizeof event + event.len;
                const auto what = event_of(event.mask);
                if (!what)
                    continue;
                if (*what == folder_event::lost) // a moved one would go on to be watched elsewhere
                    inotify_rm_watch(queue.get(), event.wd);
                changes.push_back({*what, event.wd, event.len != 0 ? event.name : ""});
            }
        }
        return true;
    }
};

folder_watch::folder_watch() noexcept = default;
folder_watch::~folder_watch() = default;

bool folder_watch::open() {
    auto fresh = std::make_unique<state>();
    fresh->queue = descriptor(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    if (!fresh->queue.is_open())
        return fail_errno();
    m_state = std::move(fresh);
    return true;
}

std::optional<int> folder_watch::add(std::string_view path, bool files) {
    const std::string native = native_path(path);
    if (!m_state || native.empty()) {
        fail(m_state ? error::path_not_found : error::invalid_handle);
        return std::nullopt;
    }
    const int number =
        inotify_add_watch(m_state->queue.get(), native.c_str(), files ? of_itself | of_files : of_itself);
    if (number >= 0)
        return number;
    if (errno == ENOSPC)
        fail(error::no_system_resources);
    else
        fail_path(native);
    return std::nullopt;
}

void folder_watch::remove(int folder) noexcept {
    if (m_state)
        inotify_rm_watch(m_state->queue.get(), folder);
}

folder_wait folder_watch::wait(std::uint32_t milliseconds, std::vector<folder_change>& changes) {
    if (!m_state) {
        fail(error::invalid_handle);
        return folder_wait::failed;
    }
    std::array<pollfd, 2> waited{{{m_state->queue.get(), POLLIN, 0}, {stop_event.load(), POLLIN, 0}}};
    const int ready =
        poll(waited.data(), waited.size(), static_cast<int>(std::min(milliseconds, 0x7FFFFFFFU)));
    if (stop_requested())
        return folder_wait::stopped;
    if (ready < 0 && errno != EINTR) {
        fail_errno();
        return folder_wait::failed;
    }
    const std::size_t before = changes.size();
    if (ready > 0 && !m_state->drain(changes))
        return folder_wait::failed;
    return changes.size() > before ? folder_wait::changed : folder_wait::timed_out;
}

bool folder_watch::take_stop_requests() {
    if (stop_event.load() < 0) {
        const int made = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
        if (made < 0)
            return fail_errno();
        stop_event.store(made);
    }
    struct sigaction action {};
    action.sa_handler = on_stop;
    sigemptyset(&action.sa_mask);
    for (const int number : stop_signals)
        if (sigaction(number, &action, nullptr) != 0)
            return fail_errno();
    return true;
}

bool folder_watch::stop_requested() noexcept {
    return stop_seen.load();
}

std::optional<bool> is_being_written(std::string_view path) {
    const descriptor file(open(native_path(path).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!file.is_open()) {
        fail_errno();
        return std::nullopt;
    }
    // A read lease is refused while there is a writer. One that comes while it is held must not end us: the
    // signal that tells of him is one that is ignored.
    if (fcntl(file.get(), F_SETSIG, SIGURG) == 0 && fcntl(file.get(), F_SETLEASE, F_RDLCK) == 0) {
        fcntl(file.get(), F_SETLEASE, F_UNLCK);
        return false;
    }
    if (errno == EAGAIN)
        return true;
    fail_errno();
    return std::nullopt;
}

} // namespace tvr::platform
