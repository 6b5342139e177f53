#include "platform/posix/stores/text_store.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/error.h"
#include "platform/posix/descriptor.h"
#include "platform/posix/errors.h"
#include "platform/posix/paths.h"

namespace tvr::platform::posix {

namespace {

bool write_all(int file, const std::string& text) {
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t count = write(file, text.data() + done, text.size() - done);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return false;
        done += static_cast<std::size_t>(count);
    }
    return true;
}

bool others_may_write(const struct stat& facts) {
    return (facts.st_uid != 0 && facts.st_uid != geteuid()) || (facts.st_mode & (S_IWGRP | S_IWOTH)) != 0;
}

bool lock_whole(int file) {
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    while (fcntl(file, F_OFD_SETLKW, &lock) != 0)
        if (errno != EINTR)
            return false;
    return true;
}

} // namespace

std::optional<std::string> read_text_file(const std::string& native, std::size_t limit, writers trusted) {
    const descriptor file(open(native.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    struct stat facts {};
    if (!file.is_open() || fstat(file.get(), &facts) != 0) {
        fail_path(native);
        return std::nullopt;
    }
    if (!S_ISREG(facts.st_mode) || static_cast<std::size_t>(facts.st_size) > limit ||
        (trusted == writers::root_or_user && others_may_write(facts))) {
        set_last_error(error::access_denied);
        return std::nullopt;
    }
    std::string text(static_cast<std::size_t>(facts.st_size), '\0');
    std::size_t got = 0;
    while (got < text.size()) {
        const ssize_t count = read(file.get(), text.data() + got, text.size() - got);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            break;
        got += static_cast<std::size_t>(count);
    }
    text.resize(got);
    return text;
}

namespace {

// As make_durable() does, by the system's own path: a root may have a backslash in its name.
bool bring_to_disk(const std::string& native, const std::string& path) {
    const descriptor file(open(native.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file.is_open())
        return fail_path(native);
    if (!may_change(change::make_durable, path))
        return false;
    return fsync(file.get()) == 0 || errno == EINVAL || errno == EOPNOTSUPP || fail_errno();
}

} // namespace

bool replace_text_file(const std::string& native, std::size_t limit,
                       const std::function<bool(std::string& text)>& edit) {
    if (!make_folders(parent_folder(native)))
        return fail_errno();
    const std::string lock_name = native + ".lock";
    const descriptor lock(open(lock_name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!lock.is_open() || !lock_whole(lock.get()))
        return fail_path(lock_name);
    std::string text = read_text_file(native, limit).value_or(std::string());
    if (!edit(text))
        return true;
    const std::string path = engine_path(native);
    const std::string fresh = native + ".new";
    if (!may_change(change::create_file, path))
        return false;
    unlink(fresh.c_str());
    {
        const descriptor file(
            open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, file_mode(native)));
        if (!file.is_open())
            return fail_path(fresh);
        if (!may_change(change::write_file, path))
            return false;
        if (!write_all(file.get(), text)) {
            fail_errno();
            unlink(fresh.c_str());
            return false;
        }
    }
    if (!bring_to_disk(fresh, engine_path(fresh)) || !may_change(change::rename_file, path))
        return false;
    const std::string folder = parent_folder(native);
    return (rename(fresh.c_str(), native.c_str()) == 0 || fail_path(native)) &&
           bring_to_disk(folder, engine_path(folder) + "\\");
}

} // namespace tvr::platform::posix
