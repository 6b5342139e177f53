// The gate of the message cache, and the lock between processes that guards it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/file.h"
#include "platform/sync.h"

namespace tvr {

// The lock over lock.bin. The holder has the file open for itself alone; a dead holder holds nothing. One
// thread at a time.
class file_lock {
public:
    file_lock() = default;
    explicit file_lock(std::string_view path) : m_path(path) {}
    ~file_lock();
    file_lock(const file_lock&) = delete;
    file_lock& operator=(const file_lock&) = delete;

    void set_path(std::string_view path) { m_path = path; }
    // True if the lock is held by this object now; a holder may nest.
    bool try_acquire();
    // The same for at most `patience` milliseconds, but only a real lock file will do. False sets
    // last_error(): 32 if another process held it all the time.
    bool acquire_within(std::uint32_t patience);
    void acquire(); // tries every 200 ms, without limit
    // Ends one hold; the last one deletes the file.
    void release();

private:
    platform::file m_file;
    std::string m_path;
    std::uint64_t m_depth = 0;
};

// Holds a file lock for a scope.
class file_locker {
public:
    explicit file_locker(file_lock& lock) : m_lock(lock) { m_lock.acquire(); }
    ~file_locker() { m_lock.release(); }
    file_locker(const file_locker&) = delete;
    file_locker& operator=(const file_locker&) = delete;

private:
    file_lock& m_lock;
};

// Opens a file on first use, and reads or writes one 32-bit word; stays open between calls of the same
// direction. One thread.
class word_file {
public:
    explicit word_file(std::string_view path,
                       platform::creation write_mode = platform::creation::open_existing);

    std::uint32_t read(std::uint64_t position); // 0 if it can't be read
    bool write(std::uint64_t position, std::uint32_t word);
    void close();

private:
    enum class direction { none, read, write };
    bool turn(direction wanted, std::uint64_t position);

    direction m_direction = direction::none;
    std::uint64_t m_position = 0; // after the last access
    std::uint32_t m_error = 0;
    platform::file m_file;
    std::string m_path;
    platform::creation m_write_mode;
};

// One for the cache, in the engine. The critical section comes before the file lock.
class dictbase {
public:
    dictbase() = default;
    virtual ~dictbase() = default;
    dictbase(const dictbase&) = delete;
    dictbase& operator=(const dictbase&) = delete;

    void init(std::string_view path); // of the cache; lock.bin stands beside it
    // Takes the cache away as its tilde copy, or appends it to one that is there.
    void try_snapshot_to_tilda();
    // Deletes the cache; returns whether that worked. deliberate: without the file lock.
    bool removeall();
    // The number at the head of the cache; 0 if there is none.
    std::uint32_t message_count();
    // True if a record of the cache is marked by the user.
    bool has_manual_marks();

    [[nodiscard]] const std::string& path() const noexcept { return m_path; }

private:
    void merge_into_tilda(const std::string& tilda_path);

    platform::critical_section m_lock;
    std::string m_path;
    bool m_inited = false;
    file_lock m_flock;
};

} // namespace tvr
