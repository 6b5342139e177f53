#include "platform/file.h"

#include <cerrno>
#include <fcntl.h>
#include <limits>
#include <sys/stat.h>

#include "platform/error.h"
#include "platform/posix/descriptor.h"
#include "platform/posix/errors.h"
#include "platform/posix/file_state.h"
#include "platform/posix/paths.h"
#include "platform/posix/share_marks.h"

namespace tvr::platform {

namespace posix {

bool grow_file(int file, std::uint64_t from, std::uint64_t to) noexcept {
    if (to > static_cast<std::uint64_t>(std::numeric_limits<off_t>::max())) {
        errno = EFBIG;
        return false;
    }
    int answer = 0;
    do
        answer = fallocate(file, 0, static_cast<off_t>(from), static_cast<off_t>(to - from));
    while (answer != 0 && errno == EINTR);
    if (answer != 0 && (errno == EOPNOTSUPP || errno == ENOSYS))
        answer = ftruncate(file, static_cast<off_t>(to));
    return answer == 0;
}

bool is_read_only(unsigned mode) noexcept {
    return (mode & S_IWUSR) == 0;
}

} // namespace posix

namespace {

constexpr mode_t new_file_mode = 0600;
constexpr mode_t new_read_only_mode = 0400;
constexpr int always = O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
constexpr std::size_t large_write = std::size_t{1} << 18; // bytes
constexpr int most_restarts = 1000;                       // a name that is made and deleted all the time

bool cuts(creation mode) {
    return mode == creation::create_always || mode == creation::truncate_existing;
}

bool makes(creation mode) {
    return mode == creation::create_new || mode == creation::create_always || mode == creation::open_always;
}

// One try after the other to open a file under the rules of sharing.
class opener {
public:
    opener(std::string_view path, access rights, share sharing, creation mode, std::uint32_t attributes)
        : m_path(path), m_native(posix::native_path(path)), m_rights(rights), m_sharing(sharing),
          m_mode(mode), m_attributes(attributes) {}

    bool run() {
        posix::mark_retry retry;
        for (int restart = 0; restart < most_restarts; ++restart) {
            if (!open_or_make() || !check_kind())
                return false;
            if (m_rights == access::none && !cuts(m_mode))
                return true;
            switch (set_marks()) {
            case posix::mark_result::failed:
                return posix::fail_errno();
            case posix::mark_result::held:
                return posix::fail(error::sharing_violation);
            case posix::mark_result::conflict:
                if (!retry.again())
                    return posix::fail(error::sharing_violation);
                continue;
            case posix::mark_result::set:
                break;
            }
            if (posix::still_names(m_native, m_info))
                return cut();
            // Gone, or another file in its place: start again with what is there now.
        }
        return posix::fail(error::sharing_violation);
    }

    posix::descriptor handle;

private:
    bool open_or_make() {
        if (m_native.empty())
            return posix::fail(error::path_not_found);
        m_made = false;
        for (int restart = 0; restart < most_restarts; ++restart) {
            if (m_mode != creation::create_new) {
                handle = posix::descriptor(::open(m_native.c_str(), flags()));
                if (handle.is_open())
                    return true;
                if (errno != ENOENT || !makes(m_mode))
                    return posix::fail_path(m_native);
            } else if (struct stat info{}; lstat(m_native.c_str(), &info) == 0) {
                return posix::fail(error::file_exists);
            }
            if (make())
                return true;
            if (errno != EEXIST)
                return m_refused ? false : posix::fail_path(m_native);
            if (m_mode == creation::create_new)
                return posix::fail(error::file_exists);
        }
        return posix::fail(error::access_denied); // a link that leads nowhere
    }

    bool make() {
        struct stat info {};
        if (stat(posix::parent_folder(m_native).c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) {
            errno = ENOTDIR;
            return false;
        }
        m_refused = !posix::may_change(change::create_file, m_path);
        if (m_refused) {
            errno = 0;
            return false;
        }
        const bool read_only = (m_attributes & attribute::read_only) != 0;
        handle = posix::descriptor(::open(m_native.c_str(), O_RDWR | O_CREAT | O_EXCL | always,
                                          read_only ? new_read_only_mode : new_file_mode));
        m_made = handle.is_open();
        return m_made;
    }

    [[nodiscard]] int flags() const {
        if (m_rights == access::none && !cuts(m_mode))
            return O_PATH | O_CLOEXEC;
        return (posix::has(m_rights, access::write) || cuts(m_mode) ? O_RDWR : O_RDONLY) | always;
    }

    bool check_kind() {
        if (fstat(handle.get(), &m_info) != 0)
            return posix::fail_errno();
        if (m_rights == access::none && !cuts(m_mode))
            return !S_ISDIR(m_info.st_mode) || posix::fail(error::access_denied);
        if (!S_ISREG(m_info.st_mode))
            return posix::fail(error::access_denied);
        const bool writing = posix::has(m_rights, access::write) || cuts(m_mode);
        if (writing && !m_made && posix::is_read_only(m_info.st_mode))
            return posix::fail(error::access_denied);
        return true;
    }

    // A handle without access that cuts the file is a writer for that moment.
    posix::mark_result set_marks() {
        const bool passing = m_rights == access::none;
        const access rights = passing ? access::write : m_rights;
        const share sharing = passing ? share::read_write : m_sharing;
        return posix::try_marks(handle.get(), posix::marks_of(rights, sharing),
                                posix::conflicts_of(rights, sharing));
    }

    bool cut() {
        if (!m_made && cuts(m_mode)) {
            if (!posix::may_change(change::truncate_file, m_path))
                return false;
            if (ftruncate(handle.get(), 0) != 0)
                return posix::fail_errno();
        }
        if (m_rights == access::none)
            posix::clear_marks(handle.get());
        else
            posix::settle_marks(handle.get(), posix::marks_of(m_rights, m_sharing));
        return true;
    }

    std::string_view m_path;
    std::string m_native;
    access m_rights;
    share m_sharing;
    creation m_mode;
    std::uint32_t m_attributes;
    struct stat m_info {};
    bool m_made = false;
    bool m_refused = false;
};

bool closed() {
    return posix::fail(error::invalid_handle);
}

bool denied() {
    return posix::fail(error::access_denied);
}

} // namespace

file::file() noexcept = default;
file::~file() = default;
file::file(file&& other) noexcept = default;
file& file::operator=(file&& other) noexcept = default;

bool file::open(std::string_view path, access rights, share sharing, creation mode,
                std::uint32_t attributes) {
    close();
    if (mode == creation::truncate_existing && !posix::has(rights, access::write))
        return posix::fail(error::invalid_parameter);
    opener way(path, rights, sharing, mode, attributes);
    if (!way.run())
        return false;
    m_state = std::make_unique<state>();
    m_state->handle = std::move(way.handle);
    m_state->rights = rights;
    m_state->temporary = (attributes & attribute::temporary) != 0;
    m_state->path = path;
    return true;
}

void file::close() noexcept {
    m_state.reset();
}

bool file::is_open() const noexcept {
    return m_state != nullptr;
}

bool file::read(void* buffer, std::size_t size, std::size_t& got) {
    got = 0;
    if (!m_state)
        return closed();
    if (!m_state->may(access::read))
        return denied();
    auto* to = static_cast<std::uint8_t*>(buffer);
    std::size_t arrived = 0;
    while (arrived < size) {
        const ssize_t part = pread(m_state->handle.get(), to + arrived, size - arrived,
                                   static_cast<off_t>(m_state->position + arrived));
        if (part == 0)
            break;
        if (part > 0)
            arrived += static_cast<std::size_t>(part);
        else if (errno != EINTR)
            return posix::fail(errno == EIO ? error::read_fault : posix::number_of(errno));
    }
    got = arrived;
    m_state->position += arrived;
    return true;
}

bool file::write(const void* data, std::size_t size) {
    if (!m_state)
        return closed();
    if (!m_state->may(access::write))
        return denied();
    if (size == 0)
        return true;
    if (!posix::may_change(change::write_file, m_state->path))
        return false;
    const auto* from = static_cast<const std::uint8_t*>(data);
    const bool is_large = size >= large_write;
    while (size != 0) {
        const ssize_t part = pwrite(m_state->handle.get(), from, size, static_cast<off_t>(m_state->position));
        if (part < 0) {
            if (errno == EINTR)
                continue;
            return posix::fail(errno == EIO ? error::write_fault : posix::number_of(errno));
        }
        from += part;
        size -= static_cast<std::size_t>(part);
        m_state->position += static_cast<std::uint64_t>(part);
    }
    if (is_large && !m_state->temporary) // the disk begins, before somebody waits for it
        sync_file_range(m_state->handle.get(), 0, 0, SYNC_FILE_RANGE_WRITE);
    return true;
}

std::optional<std::uint64_t> file::seek(std::int64_t distance, origin from) {
    if (!m_state) {
        closed();
        return std::nullopt;
    }
    std::uint64_t start = from == origin::current ? m_state->position : 0;
    if (from == origin::end) {
        const auto end = size();
        if (!end)
            return std::nullopt;
        start = *end;
    }
    std::int64_t place = 0;
    if (__builtin_add_overflow(static_cast<std::int64_t>(start), distance, &place) || place < 0) {
        posix::fail(error::negative_seek);
        return std::nullopt;
    }
    m_state->position = static_cast<std::uint64_t>(place);
    return m_state->position;
}

bool file::set_end() {
    if (!m_state)
        return closed();
    if (!m_state->may(access::write))
        return denied();
    const auto present = size();
    if (!present || !posix::may_change(change::truncate_file, m_state->path))
        return false;
    const int handle = m_state->handle.get();
    const std::uint64_t wanted = m_state->position;
    const bool done = wanted > *present ? posix::grow_file(handle, *present, wanted)
                                        : ftruncate(handle, static_cast<off_t>(wanted)) == 0;
    return done || posix::fail_errno();
}

bool file::flush() {
    if (!m_state)
        return closed();
    if (!m_state->may(access::write))
        return denied();
    return m_state->temporary || (posix::may_change(change::make_durable, m_state->path) &&
                                  (fdatasync(m_state->handle.get()) == 0 || posix::fail_errno()));
}

bool file::state::look(struct stat& info) const noexcept {
    return fstat(handle.get(), &info) == 0 || posix::fail_errno();
}

std::optional<std::uint64_t> file::size() const {
    struct stat info {};
    if (m_state ? m_state->look(info) : closed())
        return static_cast<std::uint64_t>(info.st_size);
    return std::nullopt;
}

std::optional<std::uint64_t> file::last_write_time() const {
    struct stat info {};
    if (m_state ? m_state->look(info) : closed())
        return posix::to_file_time(info.st_mtim);
    return std::nullopt;
}

bool file::set_last_write_time(std::uint64_t time) {
    if (!m_state)
        return closed();
    if (!m_state->may(access::write))
        return denied();
    if (!posix::may_change(change::set_time, m_state->path))
        return false;
    const timespec times[2] = {{0, UTIME_OMIT}, posix::from_file_time(time)};
    return futimens(m_state->handle.get(), times) == 0 || posix::fail_errno();
}

std::optional<std::size_t> peek_file(std::string_view path, std::uint64_t offset, void* buffer,
                                     std::size_t size) {
    const posix::descriptor file(
        ::open(posix::native_path(path).c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
    if (!file.is_open()) {
        posix::fail_errno();
        return std::nullopt;
    }
    std::size_t got = 0;
    while (got < size) {
        const ssize_t part =
            pread(file.get(), static_cast<char*>(buffer) + got, size - got, static_cast<off_t>(offset + got));
        if (part < 0 && errno == EINTR)
            continue;
        if (part < 0) {
            posix::fail_errno();
            return std::nullopt;
        }
        if (part == 0)
            break;
        got += static_cast<std::size_t>(part);
    }
    return got;
}

std::string_view line_end() noexcept {
    return "\n";
}

std::string display_path(std::string_view path) {
    return posix::native_path(path);
}

std::string from_display_path(std::string_view path) {
    return posix::engine_path(path);
}

} // namespace tvr::platform
