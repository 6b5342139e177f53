// Operations on names: attributes, delete, move, copy, link, folders.
#include "platform/file.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <limits>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/error.h"
#include "platform/posix/descriptor.h"
#include "platform/posix/errors.h"
#include "platform/posix/file_state.h"
#include "platform/posix/paths.h"
#include "platform/posix/share_marks.h"

namespace tvr::platform {

namespace {

constexpr mode_t any_write = 0222;
constexpr std::size_t copy_portion = std::size_t{8} << 20; // bytes between two questions to the change hook
constexpr std::size_t copy_buffer = std::size_t{256} << 10;

std::uint32_t attributes_of(const struct stat& info) {
    const std::uint32_t kind = S_ISDIR(info.st_mode) ? attribute::directory : attribute::archive;
    return kind | (posix::is_read_only(info.st_mode) ? attribute::read_only : 0);
}

bool exists(const std::string& native) {
    struct stat info {};
    return lstat(native.c_str(), &info) == 0;
}

// lstat with the error of a missing path.
bool look(const std::string& native, struct stat& info) {
    if (native.empty())
        return posix::fail(error::path_not_found);
    return lstat(native.c_str(), &info) == 0 || posix::fail_path(native);
}

// False, with an error, unless the parent of a name to be made is a folder.
bool has_parent(const std::string& native) {
    struct stat info {};
    return (!native.empty() && stat(posix::parent_folder(native).c_str(), &info) == 0 &&
            S_ISDIR(info.st_mode)) ||
           posix::fail(error::path_not_found);
}

// Gives a name to `to` that nobody has, in one step where the file system can do it. False leaves errno.
bool rename_to_new(const std::string& from, const std::string& to) {
    if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0)
        return true;
    if (errno != EINVAL && errno != ENOSYS && errno != EOPNOTSUPP)
        return false;
    if (link(from.c_str(), to.c_str()) == 0)
        return unlink(from.c_str()) == 0;
    if (errno == EEXIST || errno == EXDEV)
        return false;
    if (exists(to)) {
        errno = EEXIST;
        return false;
    }
    return rename(from.c_str(), to.c_str()) == 0;
}

bool move_across(std::string_view from, std::string_view to) {
    if (copy_file(from, to, true)) {
        if (delete_file(from))
            return true;
        const std::uint32_t reason = last_error();
        delete_file(to);
        return posix::fail(reason);
    }
    return last_error() == error::file_exists ? posix::fail(error::already_exists) : false;
}

// One portion through the kernel, or through a buffer where the file systems don't allow that. Returns the
// bytes copied, 0 at the end of the source, -1 on an error.
ssize_t copy_some(int from, int to, off_t& at, std::unique_ptr<char[]>& buffer) {
    if (!buffer) {
        off_t read_at = at;
        off_t write_at = at;
        const ssize_t done = copy_file_range(from, &read_at, to, &write_at, copy_portion, 0);
        if (done > 0)
            at += done;
        // Nothing from the kernel may also mean a file system that only pretends.
        if (done > 0 || (done < 0 && (errno == ENOSPC || errno == EDQUOT || errno == EIO || errno == EINTR)))
            return done;
        buffer = std::make_unique_for_overwrite<char[]>(copy_buffer);
    }
    const ssize_t got = pread(from, buffer.get(), copy_buffer, at);
    for (ssize_t written = 0; written < got;) {
        const ssize_t part = pwrite(to, buffer.get() + written, static_cast<std::size_t>(got - written), at);
        if (part < 0 && errno != EINTR)
            return -1;
        if (part > 0) {
            written += part;
            at += part;
        }
    }
    return got;
}

bool copy_content(int from, int to, std::string_view path) {
    std::unique_ptr<char[]> buffer;
    struct stat info {};
    if (fstat(from, &info) != 0)
        return posix::fail_errno();
    off_t at = 0;
    off_t asked = -1; // the end of the portion that the hook has seen
    while (at < info.st_size) {
        if (at > asked) {
            if (!posix::may_change(change::write_file, path))
                return false;
            asked = at + static_cast<off_t>(copy_portion) - 1;
        }
        const ssize_t done = copy_some(from, to, at, buffer);
        if (done == 0)
            break;
        if (done < 0 && errno != EINTR)
            return posix::fail_errno();
    }
    return true;
}

bool copy_time(int from, int to, std::string_view path) {
    struct stat info {};
    if (fstat(from, &info) != 0)
        return posix::fail_errno();
    if (!posix::may_change(change::set_time, path))
        return false;
    const timespec times[2] = {{0, UTIME_OMIT}, info.st_mtim};
    return futimens(to, times) == 0 || posix::fail_errno();
}

bool set_mode(const std::string& native, std::string_view path, mode_t present, bool read_only) {
    const mode_t wanted = read_only ? present & ~any_write : present | S_IWUSR;
    if (((wanted ^ present) & any_write) == 0)
        return true;
    if (!posix::may_change(change::set_attributes, path))
        return false;
    return chmod(native.c_str(), wanted & 07777) == 0 || posix::fail_path(native);
}

} // namespace

bool make_durable(const std::vector<std::string>& paths) {
    const auto open_one = [](const std::string& path) {
        return posix::descriptor(
            ::open(posix::native_path(path).c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
    };
    // All begin to be written before one of them is waited for: the disk is flushed once for most of them.
    if (paths.size() > 2)
        for (const std::string& path : paths)
            if (const posix::descriptor file = open_one(path); file.is_open() && !path.ends_with('\\'))
                sync_file_range(file.get(), 0, 0, SYNC_FILE_RANGE_WRITE);
    bool done = true;
    for (const std::string& path : paths) {
        const bool is_folder = path.ends_with('\\');
        const posix::descriptor file = open_one(path);
        if (!file.is_open())
            done = posix::fail_path(posix::native_path(path));
        else if (!posix::may_change(change::make_durable, path))
            done = false;
        else if ((is_folder ? fsync(file.get()) : fdatasync(file.get())) != 0 &&
                 !(is_folder && (errno == EINVAL || errno == EOPNOTSUPP)))
            done = posix::fail_errno();
    }
    return done;
}

bool has_other_names(std::string_view path) {
    struct stat info {};
    return stat(posix::native_path(path).c_str(), &info) == 0 && info.st_nlink > 1;
}

std::optional<std::uint32_t> get_attributes(std::string_view path) {
    const std::string native = posix::native_path(path);
    struct stat info {};
    if (stat(native.c_str(), &info) == 0)
        return attributes_of(info);
    posix::fail_path(native);
    return std::nullopt;
}

bool set_attributes(std::string_view path, std::uint32_t attributes) {
    const std::string native = posix::native_path(path);
    struct stat info {};
    if (stat(native.c_str(), &info) != 0)
        return posix::fail_path(native);
    return set_mode(native, path, info.st_mode, (attributes & attribute::read_only) != 0);
}

bool delete_file(std::string_view path) {
    const std::string native = posix::native_path(path);
    struct stat info {};
    if (!look(native, info))
        return false;
    const bool plain = S_ISREG(info.st_mode);
    if (S_ISDIR(info.st_mode) || (plain && posix::is_read_only(info.st_mode)))
        return posix::fail(error::access_denied);
    posix::deletion_guard guard;
    if (plain && !guard.take(native))
        return false;
    if (!posix::may_change(change::delete_file, path))
        return false;
    return unlink(native.c_str()) == 0 || posix::fail_path(native);
}

bool move_file(std::string_view from, std::string_view to) {
    const std::string source = posix::native_path(from);
    const std::string target = posix::native_path(to);
    struct stat info {};
    if (!look(source, info))
        return false;
    posix::deletion_guard guard;
    if (S_ISREG(info.st_mode) && !guard.take(source))
        return false;
    if (!has_parent(target))
        return false;
    if (exists(target))
        return posix::fail(error::already_exists);
    if (!posix::may_change(change::rename_file, to))
        return false;
    if (rename_to_new(source, target))
        return true;
    if (errno != EXDEV)
        return posix::fail_path(source);
    if (!S_ISREG(info.st_mode))
        return posix::fail(error::access_denied);
    guard.release();
    return move_across(from, to);
}

bool replace_file(std::string_view from, std::string_view to) {
    const std::string source = posix::native_path(from);
    const std::string target = posix::native_path(to);
    struct stat info {};
    struct stat old {};
    if (!look(source, info) || !has_parent(target))
        return false;
    const bool replaces = lstat(target.c_str(), &old) == 0;
    const bool plain = replaces && S_ISREG(old.st_mode);
    if (S_ISDIR(info.st_mode) || (replaces && S_ISDIR(old.st_mode)) ||
        (plain && posix::is_read_only(old.st_mode)))
        return posix::fail(error::access_denied);
    posix::deletion_guard guard;
    posix::deletion_guard old_guard;
    if ((S_ISREG(info.st_mode) && !guard.take(source)) || (plain && !old_guard.take(target)))
        return false;
    if (!posix::may_change(change::rename_file, to))
        return false;
    return rename(source.c_str(), target.c_str()) == 0 || posix::fail_path(source);
}

bool copy_file(std::string_view from, std::string_view to, bool fail_if_exists) {
    file source;
    file target;
    const creation mode = fail_if_exists ? creation::create_new : creation::create_always;
    if (!source.open(from, access::read, share::read_write, creation::open_existing) ||
        !target.open(to, access::write, share::none, mode))
        return false;
    const auto attributes = get_attributes(from);
    const int reader = source.m_state->handle.get();
    const int writer = target.m_state->handle.get();
    if (copy_content(reader, writer, to) && copy_time(reader, writer, to) &&
        (!attributes || set_attributes(to, *attributes)))
        return true;
    const std::uint32_t reason = last_error();
    target.close();
    delete_file(to);
    return posix::fail(reason);
}

bool create_hard_link(std::string_view link, std::string_view existing) {
    const std::string source = posix::native_path(existing);
    const std::string target = posix::native_path(link);
    struct stat info {};
    if (source.empty() || stat(source.c_str(), &info) != 0)
        return posix::fail_path(source);
    if (S_ISDIR(info.st_mode))
        return posix::fail(error::access_denied);
    if (!has_parent(target))
        return false;
    if (exists(target))
        return posix::fail(error::already_exists);
    if (!posix::may_change(change::link_file, link))
        return false;
    if (linkat(AT_FDCWD, source.c_str(), AT_FDCWD, target.c_str(), AT_SYMLINK_FOLLOW) == 0)
        return true;
    const bool no_links =
        errno == EPERM || errno == EXDEV || errno == EMLINK || errno == EOPNOTSUPP || errno == ENOSYS;
    return no_links ? posix::fail(error::invalid_function) : posix::fail_path(source);
}

bool create_directory(std::string_view path) {
    const std::string native = posix::native_path(path);
    if (!has_parent(native))
        return false;
    if (exists(native))
        return posix::fail(error::already_exists);
    if (!posix::may_change(change::create_folder, path))
        return false;
    return mkdir(native.c_str(), posix::folder_mode(native)) == 0 || posix::fail_path(native);
}

bool remove_directory(std::string_view path) {
    const std::string native = posix::native_path(path);
    struct stat info {};
    if (!look(native, info))
        return false;
    if (!S_ISDIR(info.st_mode))
        return posix::fail(error::directory);
    if (posix::is_read_only(info.st_mode))
        return posix::fail(error::access_denied);
    if (!posix::may_change(change::remove_folder, path))
        return false;
    if (rmdir(native.c_str()) == 0)
        return true;
    return errno == EEXIST ? posix::fail(error::directory_not_empty) : posix::fail_path(native);
}

} // namespace tvr::platform
