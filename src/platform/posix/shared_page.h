// A small file of the run-time folder that several processes map at once, and the kernel locks on its
// bytes. A lock belongs to one shared_page object, not to a thread or process, so two objects of one
// process exclude each other too; the kernel drops it when the process dies.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <sys/types.h>

#include "platform/posix/descriptor.h"

namespace tvr::platform::posix {

// The path of a file in the run-time folder; empty, with last_error() set, if there is no
// such folder.
std::string runtime_file(std::string_view name);

class shared_page {
public:
    enum class lock_kind : short { shared, exclusive };

    shared_page() = default;
    ~shared_page() { close(); }
    shared_page(const shared_page&) = delete;
    shared_page& operator=(const shared_page&) = delete;

    // Opens a regular file of this user for reading and writing, without following a link. False sets
    // last_error().
    bool open(const std::string& path, bool create);
    // Gives the file at least `size` bytes, with space behind every one of them. False sets last_error().
    bool reserve(std::size_t size);
    // Maps the first `size` bytes. False, with last_error() set, also if the file is shorter.
    bool map(std::size_t size);
    // Unmaps, and drops all locks.
    void close() noexcept;

    // Locks bytes at once or not at all; they need not exist in the file.
    bool try_lock(lock_kind kind, off_t first, off_t count = 1) const noexcept;
    // Drops the locks on all bytes in one step.
    void unlock(off_t first, off_t count = 1) const noexcept;
    // True if another object holds a lock that would keep this one from the lock `kind`.
    [[nodiscard]] bool locked_by_other(lock_kind kind, off_t byte) const noexcept;

    // True if the file has lost its name, so that nobody else can find it any more.
    [[nodiscard]] bool is_orphan() const noexcept;

    [[nodiscard]] void* data() const noexcept { return m_data; }
    [[nodiscard]] bool same_file(const shared_page& other) const noexcept {
        return m_device == other.m_device && m_inode == other.m_inode;
    }

private:
    descriptor m_file;
    void* m_data = nullptr;
    std::size_t m_size = 0;
    dev_t m_device = 0;
    ino_t m_inode = 0;
};

} // namespace tvr::platform::posix
