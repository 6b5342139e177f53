#include "platform/posix/shared_page.h"

#include "platform/error.h"
#include "platform/posix/errors.h"
#include "platform/posix/paths.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tvr::platform::posix {

namespace {

struct flock lock_on(short type, off_t first, off_t count) {
    struct flock lock {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = first;
    lock.l_len = count;
    return lock;
}

short type_of(shared_page::lock_kind kind) {
    return kind == shared_page::lock_kind::exclusive ? F_WRLCK : F_RDLCK;
}

} // namespace

std::string runtime_file(std::string_view name) {
    std::string path = native_runtime_folder();
    if (path.empty())
        set_last_error(error::path_not_found);
    else
        path.append("/").append(name);
    return path;
}

bool shared_page::open(const std::string& path, bool create) {
    close();
    // O_NONBLOCK: a pipe of that name must not block.
    const int flags = O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | (create ? O_CREAT : 0);
    m_file = descriptor(::open(path.c_str(), flags, 0600));
    if (!m_file.is_open())
        return fail_errno();
    struct stat info {};
    // A second name would let others in whom the folder keeps out.
    if (fstat(m_file.get(), &info) != 0 || !S_ISREG(info.st_mode) || info.st_uid != geteuid() ||
        info.st_nlink > 1) {
        close();
        return fail(error::access_denied);
    }
    m_device = info.st_dev;
    m_inode = info.st_ino;
    return true;
}

bool shared_page::reserve(std::size_t size) {
    // A hole of a full file system would kill the process at the first write through the mapping.
    const auto length = static_cast<off_t>(size);
    int answer = 0;
    do
        answer = fallocate(m_file.get(), 0, 0, length);
    while (answer != 0 && errno == EINTR);
    if (answer == 0)
        return true;
    if (errno != EOPNOTSUPP && errno != ENOSYS)
        return fail_errno();
    struct stat info {};
    if (fstat(m_file.get(), &info) != 0)
        return fail_errno();
    return info.st_size >= length || ftruncate(m_file.get(), length) == 0 || fail_errno();
}

bool shared_page::map(std::size_t size) {
    struct stat info {};
    if (fstat(m_file.get(), &info) != 0)
        return fail_errno();
    if (info.st_size < static_cast<off_t>(size))
        return fail(error::file_invalid);
    void* const data = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, m_file.get(), 0);
    if (data == MAP_FAILED)
        return fail_errno();
    m_data = data;
    m_size = size;
    return true;
}

void shared_page::close() noexcept {
    // The mapping keeps the kernel's file, and with it the locks, as long as the descriptor does.
    if (m_data != nullptr)
        munmap(m_data, m_size);
    m_data = nullptr;
    m_file.close();
}

bool shared_page::try_lock(lock_kind kind, off_t first, off_t count) const noexcept {
    struct flock lock = lock_on(type_of(kind), first, count);
    return fcntl(m_file.get(), F_OFD_SETLK, &lock) == 0;
}

void shared_page::unlock(off_t first, off_t count) const noexcept {
    struct flock lock = lock_on(F_UNLCK, first, count);
    fcntl(m_file.get(), F_OFD_SETLK, &lock);
}

bool shared_page::locked_by_other(lock_kind kind, off_t byte) const noexcept {
    struct flock lock = lock_on(type_of(kind), byte, 1);
    // Where the kernel can't tell, the byte counts as taken: nothing of another's is reset.
    return fcntl(m_file.get(), F_OFD_GETLK, &lock) != 0 || lock.l_type != F_UNLCK;
}

bool shared_page::is_orphan() const noexcept {
    struct stat info {};
    return fstat(m_file.get(), &info) == 0 && info.st_nlink == 0;
}

} // namespace tvr::platform::posix
