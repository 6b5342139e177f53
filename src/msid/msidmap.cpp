#include "msid/msidmap.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "common/file_stream.h"
#include "common/logger.h"
#include "common/path.h"
#include "msid/list_record.h"
#include "msid/msid_key.h"
#include "msid/page_manager.h"
#include "platform/error.h"
#include "platform/file.h"

namespace tvr {

namespace {

constexpr std::uint64_t rebuild_percent = 5;
constexpr std::uint32_t rebuild_least = 1024;     // bytes of garbage
constexpr std::uint64_t least_growth = 64 * 1024; // bytes, while the list is held
constexpr std::size_t copy_size = 65536;          // bytes

void log_unmapped(const char* operation) {
    const std::uint32_t code = platform::last_error();
    TVR_LOG(default_log, "[-] msidmap::%s failed to MapViewOfFile. GetLastError %d", operation,
            static_cast<int>(code));
}

// The maps of this process, so that one can be asked to let go of a list that another reads.
platform::critical_section& maps_lock() {
    static platform::critical_section lock;
    return lock;
}

std::vector<msidmap*>& all_maps() {
    static std::vector<msidmap*> maps;
    return maps;
}

} // namespace

msidmap::msidmap(std::string_view folder, std::string_view name)
    : m_header(list_signature), m_list_path(join_path(folder, std::string(name) + ".lst")),
      m_index_path(join_path(folder, std::string(name) + ".idx")) {
    enter();
    open();
}

msidmap::msidmap(file_stream& file) : m_header(list_signature), m_temporary(true) {
    enter();
    if (const auto made = platform::make_temp_file(platform::temp_folder_path(), "msid")) {
        m_reserved_path = *made;
        m_list_path = *made + ".lst";
        m_index_path = *made + ".idx";
        copy_in(file);
    }
    open();
}

msidmap::~msidmap() {
    leave();
    if (m_temporary) {
        drop_files();
        if (!m_reserved_path.empty())
            platform::delete_file(m_reserved_path);
        return;
    }
    release_list();
}

void msidmap::enter() {
    const platform::locker locker(maps_lock());
    all_maps().push_back(this);
}

void msidmap::leave() noexcept {
    const platform::locker locker(maps_lock());
    std::erase(all_maps(), this);
}

void msidmap::let_go_of(std::string_view list_path) {
    const platform::locker locker(maps_lock());
    for (msidmap* map : all_maps())
        if (map->m_list_path == list_path)
            map->release_list();
}

void msidmap::copy_in(file_stream& file) {
    file_stream list;
    if (!list.create_to_write(m_list_path))
        return;
    const auto buffer = std::make_unique_for_overwrite<std::uint8_t[]>(copy_size);
    std::size_t got = 0;
    while (file.read(buffer.get(), copy_size, got) && got != 0)
        list.write(buffer.get(), got);
}

void msidmap::open() {
    m_header.add(m_records, 0).add(m_garbage, 0);
    bool consistent = upgrade();
    if (consistent) {
        m_tree = std::make_unique<msidtree>(m_index_path);
        consistent = m_tree->is_valid() && !m_tree->damaged() && m_tree->count() == m_records;
    }
    if (!consistent)
        __rebuild_index(true);
    check_garbage();
    if (!m_tree)
        m_tree = std::make_unique<msidtree>(m_index_path);
}

// Brings a list with another number of header values to the present one. True if it has been so all along;
// otherwise the offsets in the index are wrong.
bool msidmap::upgrade() {
    if (!map_list() || !has_header())
        return false;
    const std::uint32_t values = m_header.filecount();
    if (values == m_header.count())
        return true;
    const std::size_t old_head = 8 + 4 * std::size_t{values};
    const std::uint64_t old_size = m_filesize;
    const std::uint64_t new_size = old_size + m_header.size() - old_head;
    grow_list(new_size);
    if (!m_list || !m_list->is_valid())
        return false;
    std::memmove(m_list->at(m_header.size()), m_list->at(old_head),
                 static_cast<std::size_t>(old_size - old_head));
    m_filesize = new_size;
    write_header();
    return false;
}

// Maps the list if it isn't mapped. The bytes in use are then those of the file.
bool msidmap::map_list() {
    if (m_list && m_list->is_valid())
        return true;
    if (m_list_path.empty())
        return false;
    std::uint64_t size = 0;
    m_list.emplace(m_list_path, 0, &size);
    if (!m_list->is_valid()) {
        const bool empty_file = m_list->is_file_open() && size == 0;
        if (empty_file)
            m_filesize = 0;
        return false;
    }
    m_filesize = size;
    return true;
}

// Reads the header of the mapped list into the counters.
bool msidmap::has_header() {
    std::size_t position = 0;
    const auto list = in_use();
    return m_header.read(std::span<const std::uint8_t>(list), position);
}

// Makes the mapped list at least so large; it may become larger while it is held.
void msidmap::grow_list(std::uint64_t needed) {
    if (!m_list)
        return;
    if (m_list->is_valid() && needed <= m_list->size())
        return;
    if (!m_list->resize(needed + std::max(least_growth, needed / 4)))
        m_list->resize(needed); // a disk that is nearly full may have room for that
}

void msidmap::write_header() {
    std::size_t position = 0;
    m_header.write(m_list->bytes(), position);
}

std::span<std::uint8_t> msidmap::in_use() const noexcept {
    if (!m_list || !m_list->is_valid())
        return {};
    return m_list->bytes().first(static_cast<std::size_t>(std::min(m_filesize, m_list->size())));
}

void msidmap::release_list() {
    const platform::locker locker(m_lock);
    if (!m_list)
        return;
    const bool cut = m_list->is_valid() && m_list->size() > m_filesize;
    m_list->close_view();
    if (cut && m_list->handle().seek(static_cast<std::int64_t>(m_filesize), platform::origin::begin))
        m_list->handle().set_end();
    m_list.reset();
}

// Asked before the list is mapped: an ID that the index doesn't know leaves the list alone.
std::size_t msidmap::chain_offset(const key11& key) {
    return m_tree ? m_tree->find(key) : 0;
}

msidmap::chain msidmap::measure_chain(std::size_t offset, std::string_view id, const key11& key) const {
    chain result;
    const auto list = in_use();
    if (offset < m_header.size() || offset >= list.size())
        return result;
    result.offset = offset;
    list_record record;
    for (std::size_t at = offset; read_record(list, at, record); at += record.size) {
        if (record.value == 0 || key11::of(record.id) != key)
            break;
        if (!result.match && record.id == id)
            result.match = at;
        result.bytes += record.size;
        ++result.records;
    }
    return result;
}

bool msidmap::insert(std::string_view id, std::uint32_t value) {
    const platform::locker locker(m_lock);
    if (id.size() > 255 || !m_tree)
        return false;
    map_list();
    const key11 key = key11::of(id);
    const chain found = measure_chain(chain_offset(key), id, key);
    if (found.match)
        return true;
    std::uint64_t end = m_filesize == 0 ? m_header.size() : m_filesize;
    const bool follows = found.offset != 0 && end == found.offset + found.bytes;
    const std::size_t moved = follows ? 0 : found.bytes;
    const std::size_t size = id.size() + list_record::overhead;
    grow_list(end + moved + size);
    if (!m_list || !m_list->is_valid())
        return false;
    m_filesize = end + moved + size;
    std::uint8_t* at = m_list->at(end);
    if (moved != 0) {
        std::memcpy(at, m_list->at(found.offset), moved);
        list_record record;
        for (std::size_t old = found.offset; old < found.offset + moved; old += record.size) {
            read_record(in_use(), old, record);
            blank_record(m_list->at(old), record.size);
        }
        m_garbage += static_cast<std::uint32_t>(moved);
    }
    write_record(at + moved, id, value);
    ++m_records;
    write_header();
    tell_index(key, static_cast<std::uint32_t>(end), !follows);
    check_garbage();
    return true;
}

std::uint32_t msidmap::search(std::string_view id) {
    const platform::locker locker(m_lock);
    const key11 key = key11::of(id);
    const std::size_t offset = chain_offset(key);
    if (offset == 0 || !map_list())
        return 0;
    const chain found = measure_chain(offset, id, key);
    list_record record;
    return found.match && read_record(in_use(), *found.match, record) ? record.value : 0;
}

// Moves the rest of the chain down over a record, and leaves a garbage record behind the chain.
void msidmap::kill_record(std::size_t offset, std::size_t size, std::size_t chain_end) {
    const std::uint8_t length = *m_list->at(offset);
    std::memmove(m_list->at(offset), m_list->at(offset + size), chain_end - offset - size);
    std::uint8_t* garbage_record = m_list->at(chain_end - size);
    *garbage_record = length;
    blank_record(garbage_record, size);
    m_garbage += static_cast<std::uint32_t>(size);
}

bool msidmap::remove(std::string_view id) {
    const platform::locker locker(m_lock);
    const key11 key = key11::of(id);
    const std::size_t offset = chain_offset(key);
    if (offset == 0 || !map_list())
        return false;
    const chain found = measure_chain(offset, id, key);
    if (!found.match)
        return false;
    kill_record(*found.match, id.size() + list_record::overhead, found.offset + found.bytes);
    write_header();
    check_garbage();
    // deliberate: this counts as an insertion of the index, which is then made anew at the next opening.
    if (found.records == 1 && m_tree)
        tell_index(key, 0, false);
    else if (m_tree && m_tree->damaged())
        __rebuild_index(true);
    return true;
}

bool msidmap::delete_if(const std::function<bool(std::string_view id, std::uint32_t value)>& predicate) {
    if (!map_list()) {
        log_unmapped("delete_if");
        return false;
    }
    if (!has_header()) {
        TVR_LOG(default_log, "[-] msidmap::__rebuild_index has wrong lst file");
        return false;
    }
    list_record record;
    std::vector<std::uint8_t> gone; // lengths of the IDs of a chain that are taken out
    for (std::size_t at = m_header.size(); read_record(in_use(), at, record);) {
        if (record.value == 0) {
            at += record.size;
            continue;
        }
        // What stays moves to the chain's start, garbage of the same sizes follows.
        const chain whole = measure_chain(at, record.id, key11::of(record.id));
        std::size_t kept = at;
        for (std::size_t left = whole.records; left != 0; --left) {
            read_record(in_use(), at, record);
            const std::size_t size = record.size;
            if (predicate(record.id, record.value)) {
                gone.push_back(*m_list->at(at));
                m_garbage += static_cast<std::uint32_t>(size);
            } else {
                std::memmove(m_list->at(kept), m_list->at(at), size);
                kept += size;
            }
            at += size;
        }
        for (const std::uint8_t length : gone) {
            *m_list->at(kept) = length;
            blank_record(m_list->at(kept), length + list_record::overhead);
            kept += length + list_record::overhead;
        }
        gone.clear();
    }
    write_header();
    check_garbage();
    return true;
}

void msidmap::check_garbage() {
    if (m_filesize == 0 || m_garbage == 0)
        return;
    if (std::uint64_t{m_garbage} * 100 / m_filesize >= rebuild_percent && m_garbage >= rebuild_least)
        __rebuild_index(true);
}

// An index that doesn't know what it has just been told is damaged, and made anew.
void msidmap::tell_index(const key11& key, std::uint32_t offset, bool replace) {
    m_tree->insert(key, offset, replace);
    const std::uint32_t known = m_tree->find(key);
    const bool sound = replace || offset == 0 ? known == offset : known != 0 && known <= offset;
    if (!sound || m_tree->damaged())
        __rebuild_index(true);
}

// Compacts the list and, with an index, enters its records anew.
bool msidmap::__rebuild_index(bool with_index) {
    m_tree.reset();
    if (!m_index_path.empty())
        platform::delete_file(m_index_path);
    if (with_index) {
        m_tree = std::make_unique<msidtree>(m_index_path);
        // An index that could not be deleted (somebody has it open) is emptied instead.
        if (m_tree->count() != 0)
            m_tree->start_anew();
    }
    if (!map_list()) {
        log_unmapped("__rebuild_index");
        m_list.reset();
        return false;
    }
    if (!has_header()) {
        TVR_LOG(default_log, "[-] msidmap::__rebuild_index has wrong lst file");
        // Counts as empty as a whole, so that the next record stands behind a header.
        m_records = m_garbage = 0;
        m_filesize = 0;
        release_list();
        return false;
    }
    m_records = 0;
    std::size_t kept = m_header.size();
    list_record record;
    for (std::size_t at = kept; read_record(in_use(), at, record);) {
        const std::size_t size = record.size;
        if (record.is_live()) {
            if (m_tree)
                m_tree->insert(key11::of(record.id), static_cast<std::uint32_t>(kept), false);
            if (kept != at)
                std::memmove(m_list->at(kept), m_list->at(at), size);
            kept += size;
            ++m_records;
        }
        at += size;
    }
    m_garbage = 0;
    write_header();
    m_filesize = kept;
    release_list();
    return true;
}

void msidmap::merge(std::string_view list_path) {
    if (list_path.empty())
        return;
    let_go_of(list_path);
    const read_map list(list_path);
    if (list.is_valid())
        for_each_live(list.bytes(),
                      [&](std::size_t, const list_record& record) { insert(record.id, record.value); });
}

void msidmap::relabel(std::string_view list_path, std::uint32_t value) {
    let_go_of(list_path);
    write_map list(list_path);
    if (!list.is_valid())
        return;
    for_each_live(list.bytes(), [&](std::size_t offset, const list_record& record) {
        store_u32(list.at(offset + record.size - 4), value);
    });
}

void msidmap::write_out(file_stream& file) {
    const platform::locker locker(m_lock);
    __rebuild_index(false);
    if (map_list())
        file.write(in_use().data(), in_use().size());
    release_list();
}

void msidmap::drop_files() {
    m_tree.reset();
    release_list();
    if (m_list_path.empty())
        return;
    platform::delete_file(m_list_path);
    platform::delete_file(m_index_path);
}

void msidmap::clear() {
    const platform::locker locker(m_lock);
    drop_files();
    m_records = m_garbage = 0;
    m_filesize = 0;
    m_tree = std::make_unique<msidtree>(m_index_path);
}

} // namespace tvr
