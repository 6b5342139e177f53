#include "client/cache_writer.h"

#include <algorithm>
#include <array>

#include "common/bytes.h"
#include "common/file_names.h"
#include "common/file_stream.h"
#include "common/files.h"
#include "common/path.h"
#include "dict/message_record.h"
#include "platform/error.h"

namespace tvr {

namespace {

constexpr std::uint64_t count_size = 4; // bytes before the records
constexpr std::uint64_t largest = 0x7FFFFFFF;

bool write_at(platform::file& file, std::uint64_t place, const void* data, std::size_t size) {
    return file.seek(static_cast<std::int64_t>(place), platform::origin::begin) && file.write(data, size);
}

bool write_word(platform::file& file, std::uint64_t place, std::uint32_t word) {
    std::array<std::uint8_t, 4> bytes{};
    store_u32(bytes.data(), word);
    return write_at(file, place, bytes.data(), bytes.size());
}

} // namespace

cache_writer::cache_writer(std::string_view path)
    : m_path(path), m_lock(join_path(folder_part(path), names::lock)) {}

append_result cache_writer::append(std::span<const record_batch> batches, std::uint32_t patience) {
    const platform::locker locker(m_locker);
    while (!batches.empty() && batches.front().count() == 0)
        batches = batches.subspan(1);
    if (batches.empty())
        return append_result::done;
    if (!m_lock.acquire_within(patience))
        return platform::last_error() == platform::error::sharing_violation ? append_result::locked
                                                                            : append_result::io_failed;
    const append_result result = append_locked(batches);
    const std::uint32_t code = platform::last_error();
    m_lock.release();
    platform::set_last_error(code);
    return result;
}

// Walks the heads of the records. The count in front doesn't bound them, here as for every other reader.
bool cache_writer::find_end(platform::file& cache) {
    const auto size = cache.size();
    const auto changed = cache.last_write_time();
    if (!size || !changed)
        return false;
    if (m_end != 0 && *size == m_end && *changed == m_changed)
        return true;
    m_end = count_size;
    m_count = 0;
    m_changed = 0;
    file_stream records;
    std::uint32_t count = 0;
    if (*size <= count_size)
        return true;
    if (!records.open(m_path, platform::access::read, platform::share::read_write,
                      platform::creation::open_existing) ||
        !records.read_u32(count))
        return false;
    message_head record;
    while (record.read_head(records)) {
        const auto end = record.whole_end(records, *size);
        if (!end || !records.seek(static_cast<std::int64_t>(*end), platform::origin::begin))
            break;
        m_end = *end;
        ++m_count;
    }
    return true;
}

// Three steps, each of which leaves a cache that every reader takes as it was or as it becomes: the records
// without the signature of the first one, where readers stop; that signature; and the count. The first step
// is on the disk before the second one, so that a power cut leaves no signature without its record.
append_result cache_writer::append_locked(std::span<const record_batch> batches) {
    platform::file cache;
    if (!cache.open(m_path, platform::access::read_write, platform::share::read,
                    platform::creation::open_always) ||
        !find_end(cache))
        return append_result::io_failed;
    const bool is_known = m_changed != 0; // and with it the name of the file on the disk
    std::uint64_t size = 0;
    std::uint32_t count = 0;
    for (const record_batch& batch : batches) {
        size += batch.bytes().size();
        count += batch.count();
    }
    if (size > largest || m_end > largest - size)
        return append_result::cache_full;
    const std::uint64_t start = m_end;
    constexpr std::size_t signature_size = 4;
    const auto first = batches.front().bytes();
    const bool written = cache.seek(static_cast<std::int64_t>(start), platform::origin::begin) &&
                         cache.set_end() && write_word(cache, start, 0) &&
                         cache.write(first.data() + signature_size, first.size() - signature_size) &&
                         std::all_of(batches.begin() + 1, batches.end(),
                                     [&](const record_batch& batch) {
                                         return cache.write(batch.bytes().data(), batch.bytes().size());
                                     }) &&
                         cache.flush() && write_at(cache, start, first.data(), signature_size) &&
                         write_word(cache, 0, m_count + count) && cache.flush() &&
                         (is_known || platform::make_durable({folder_of(m_path)}));
    if (!written) {
        const std::uint32_t code = platform::last_error();
        if (cache.seek(static_cast<std::int64_t>(start), platform::origin::begin))
            cache.set_end();
        m_end = 0;
        platform::set_last_error(code);
        return append_result::io_failed;
    }
    m_end = start + size;
    m_count += count;
    m_changed = cache.last_write_time().value_or(0);
    return append_result::done;
}

} // namespace tvr
