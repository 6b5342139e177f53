// The client's end of the message cache: appends records to autotrain.bys so that neither the death of a
// process nor a second one can spoil it.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "client/record_batch.h"
#include "dict/dictbase.h"
#include "platform/file.h"
#include "platform/sync.h"

namespace tvr {

enum class append_result {
    done = 0,
    locked = 1,     // another process held the lock all the time
    cache_full = 2, // the cache would grow beyond 2 GiB: the engine has to take it first
    io_failed = 3,  // the reason is in platform::last_error()
};

// Any thread.
class cache_writer {
public:
    explicit cache_writer(std::string_view path); // of the cache; its folder exists

    // Appends all records of the batches, under lock.bin. What follows the last whole record, left by
    // a process that died in the middle of an append, gives way. A failure adds no record. Waits at most
    // `patience` milliseconds for the lock.
    append_result append(std::span<const record_batch> batches, std::uint32_t patience = 30000);
    append_result append(const record_batch& batch, std::uint32_t patience = 30000) {
        return append(std::span(&batch, 1), patience);
    }

    // The end of the file after the last append of this object (bytes).
    [[nodiscard]] std::uint64_t end() const noexcept { return m_end; }

private:
    append_result append_locked(std::span<const record_batch> batches);
    bool find_end(platform::file& cache);

    platform::critical_section m_locker;
    std::string m_path;
    file_lock m_lock;
    // Where the whole records end, how many there are, and the time of the file's last change when that was
    // found: while the file has this end and time, it need not be walked again.
    std::uint64_t m_end = 0;
    std::uint64_t m_changed = 0;
    std::uint32_t m_count = 0;
};

} // namespace tvr
