#include "msid/msidmap.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "common/file_names.h"
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
constexpr std::uint32_t rebuild_least = 1024; // bytes of garbage
constexpr std::size_t copy_size = 65536;      // bytes
constexpr std::uint64_t chain_room = 512;     // bytes, read at first

bool write_at(platform::file& file, std::uint64_t place, std::span<const std::uint8_t> bytes) {
    return file.seek(static_cast<std::int64_t>(place), platform::origin::begin) &&
           file.write(bytes.data(), bytes.size());
}

void log_unmapped(const char* operation) {
    const std::uint32_t code = platform::last_error();
    TVR_LOG(default_log, "[-] msidmap::%s failed to MapViewOfFile. GetLastError %d", operation,
            static_cast<int>(code));
}

} // namespace

msidmap::msidmap(std::string_view folder, std::string_view name)
    : m_header(list_signature), m_list_path(join_path(folder, std::string(name) + names::list_ending)),
      m_index_path(join_path(folder, std::string(name) + names::index_ending)) {
    open();
}

msidmap::msidmap(file_stream& file) : m_header(list_signature), m_temporary(true) {
    if (const auto made = platform::make_temp_file(platform::temp_folder_path(), "msid")) {
        m_reserved_path = *made;
        m_list_path = *made + names::list_ending;
        m_index_path = *made + names::index_ending;
        copy_in(file);
    }
    open();
}

msidmap::~msidmap() {
    if (!m_temporary)
        return;
    drop_files();
    if (!m_reserved_path.empty())
        platform::delete_file(m_reserved_path);
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
    write_map list(m_list_path, 0, &m_filesize);
    if (!list.is_valid() || !read_header(list))
        return false;
    const std::uint32_t values = m_header.filecount();
    if (values == m_header.count())
        return true;
    const std::size_t old_head = 8 + 4 * std::size_t{values};
    const auto body = static_cast<std::size_t>(m_filesize - old_head);
    if (old_head < m_header.size() && !list.resize(m_header.size() + body))
        return false;
    std::memmove(list.at(m_header.size()), list.at(old_head), body);
    write_header(list);
    cut(list, m_header.size() + body);
    return false;
}

bool msidmap::read_header(const write_map& list) {
    std::size_t position = 0;
    return m_header.read(std::span<const std::uint8_t>(list.bytes()), position);
}

void msidmap::write_header(const write_map& list) {
    std::size_t position = 0;
    m_header.write(list.bytes(), position);
}

// Ends the view, and the file after its bytes in use.
void msidmap::cut(write_map& list, std::uint64_t size) {
    const bool longer = list.size() > size;
    m_filesize = size;
    list.close_view();
    if (longer && list.handle().seek(static_cast<std::int64_t>(size), platform::origin::begin))
        list.handle().set_end();
}

// Asked before the list is opened: an ID that the index doesn't know leaves the list alone.
std::size_t msidmap::chain_offset(const key11& key) {
    return m_tree ? m_tree->find(key) : 0;
}

// The records at the start of `list` that have the length and the key of the ID. deliberate: a dead record
// counts as the empty ID, whose key also an ID of 32 bytes may have.
msidmap::chain msidmap::measure_chain(std::span<const std::uint8_t> list, std::string_view id,
                                      const key11& key) {
    chain result;
    list_record record;
    for (; read_record(list, result.bytes, record); result.bytes += record.size) {
        if (record.id.size() != id.size() || key11::of(record.id) != key) {
            result.ends_here = true;
            break;
        }
        if (!result.match && record.id == id)
            result.match = result.bytes;
        ++result.records;
    }
    return result;
}

struct msidmap::list_use {
    msidmap& map;
    ~list_use() {
        if (!map.m_in_run)
            map.m_list.close();
    }
};

// A run may go on with a change.
bool msidmap::open_list(platform::access rights, platform::creation mode) {
    if (m_list.is_open())
        return true;
    if (!m_list.open(m_list_path, m_in_run ? platform::access::read_write : rights, platform::share::read,
                     mode))
        return false;
    m_filesize = m_list.size().value_or(0);
    return true;
}

void msidmap::end_run() noexcept {
    m_in_run = false;
    m_list.close();
}

// The chain at an offset that the index tells, with its bytes. Few have more than one record, so that little
// is read at first.
msidmap::chain msidmap::read_chain(std::size_t offset, std::string_view id, const key11& key) {
    chain result;
    if (offset < m_header.size() || offset >= m_filesize)
        return result;
    const std::uint64_t rest = m_filesize - offset;
    std::vector<std::uint8_t> bytes;
    for (std::uint64_t wanted = chain_room;; wanted *= 2) {
        bytes.resize(static_cast<std::size_t>(std::min(wanted, rest)));
        std::size_t got = 0;
        if (!m_list.seek(static_cast<std::int64_t>(offset), platform::origin::begin) ||
            !m_list.read(bytes.data(), bytes.size(), got))
            return result;
        bytes.resize(got);
        result = measure_chain(bytes, id, key);
        if (result.ends_here || got < wanted)
            break;
    }
    result.offset = offset;
    bytes.resize(result.bytes);
    result.content = std::move(bytes);
    return result;
}

bool msidmap::insert(std::string_view id, std::uint32_t value) {
    const platform::locker locker(m_lock);
    const list_use use{*this};
    if (id.size() > 255 || !m_tree ||
        !open_list(platform::access::read_write, platform::creation::open_always))
        return false;
    if (m_filesize == 0) // the line of a mapping, as everywhere else an empty list is met
        TVR_LOG(default_log, "[-] filemap__ failed to map file. Error is %d",
                static_cast<int>(platform::error::file_invalid));
    const key11 key = key11::of(id);
    chain found = read_chain(chain_offset(key), id, key);
    if (found.match)
        return true;
    const std::uint64_t end = std::max<std::uint64_t>(m_filesize, m_header.size());
    const bool follows = found.offset != 0 && end == found.offset + found.bytes;
    std::vector<std::uint8_t> added;
    if (!follows)
        added = found.content;
    const std::size_t moved = added.size();
    added.resize(moved + id.size() + list_record::overhead);
    write_record(added.data() + moved, id, value);
    if (!write_at(m_list, end, added)) {
        if (m_list.seek(static_cast<std::int64_t>(m_filesize), platform::origin::begin))
            m_list.set_end();
        return false;
    }
    m_filesize = end + added.size();
    if (moved != 0) { // garbage stays in the old place
        list_record record;
        for (std::size_t at = 0; read_record(found.content, at, record); at += record.size)
            blank_record(found.content.data() + at, record.size);
        write_at(m_list, found.offset, found.content);
        m_garbage += static_cast<std::uint32_t>(moved);
    }
    ++m_records;
    std::vector<std::uint8_t> head(m_header.size());
    std::size_t position = 0;
    m_header.write(head, position);
    write_at(m_list, 0, head);
    tell_index(key, static_cast<std::uint32_t>(end), !follows);
    check_garbage();
    return true;
}

std::uint32_t msidmap::search(std::string_view id) {
    const platform::locker locker(m_lock);
    const key11 key = key11::of(id);
    const std::size_t offset = chain_offset(key);
    const list_use use{*this};
    if (offset == 0 || !open_list(platform::access::read, platform::creation::open_existing))
        return 0;
    const chain found = read_chain(offset, id, key);
    list_record record;
    return found.match && read_record(found.content, *found.match, record) ? record.value : 0;
}

bool msidmap::remove(std::string_view id) {
    const platform::locker locker(m_lock);
    const key11 key = key11::of(id);
    const std::size_t offset = chain_offset(key);
    const list_use use{*this};
    if (offset == 0 || !open_list(platform::access::read_write, platform::creation::open_existing))
        return false;
    chain found = read_chain(offset, id, key);
    if (!found.match)
        return false;
    // The rest of the chain moves down, and a garbage record stands after it.
    list_record record;
    read_record(found.content, *found.match, record);
    const auto start = found.content.begin() + static_cast<std::ptrdiff_t>(*found.match);
    const auto garbage =
        std::rotate(start, start + static_cast<std::ptrdiff_t>(record.size), found.content.end());
    blank_record(&*garbage, record.size);
    write_at(m_list, offset, found.content);
    m_garbage += static_cast<std::uint32_t>(record.size);
    check_garbage();
    // deliberate: this counts as an insertion of the index, which is then made again at the next opening.
    if (found.records == 1 && m_tree)
        tell_index(key, 0, false);
    else if (m_tree && m_tree->damaged())
        __rebuild_index(true);
    return true;
}

bool msidmap::delete_if(const std::function<bool(std::string_view id, std::uint32_t value)>& predicate) {
    m_list.close();
    {
        const write_map list(m_list_path, 0, &m_filesize);
        if (!list.is_valid()) {
            log_unmapped("delete_if");
            return false;
        }
        const std::uint32_t garbage = m_garbage; // the header in the file may be behind
        if (!read_header(list)) {
            TVR_LOG(default_log, "[-] msidmap::__rebuild_index has wrong lst file");
            return false;
        }
        m_garbage = garbage;
        list_record record;
        for (std::size_t at = m_header.size(); read_record(list.bytes(), at, record);) {
            chain whole = measure_chain(list.bytes().subspan(at), record.id, key11::of(record.id));
            whole.offset = at;
            thin_chain(list, whole, predicate);
            at += whole.bytes;
        }
    }
    check_garbage();
    return true;
}

// What stays of the chain moves to its start, and garbage of the sizes of the others follows: the one taken
// out last comes first.
void msidmap::thin_chain(const write_map& list, const chain& whole,
                         const std::function<bool(std::string_view id, std::uint32_t value)>& predicate) {
    std::vector<std::uint8_t> gone; // lengths of the IDs
    std::size_t at = whole.offset;
    std::size_t kept = at;
    list_record record;
    for (std::size_t left = whole.records; left != 0; --left) {
        read_record(list.bytes(), at, record);
        const std::size_t size = record.size;
        if (predicate(record.id, record.value)) {
            gone.push_back(*list.at(at));
            m_garbage += static_cast<std::uint32_t>(size);
        } else {
            std::memmove(list.at(kept), list.at(at), size);
            kept += size;
        }
        at += size;
    }
    for (; !gone.empty(); gone.pop_back()) {
        const std::size_t size = gone.back() + list_record::overhead;
        *list.at(kept) = gone.back();
        blank_record(list.at(kept), size);
        kept += size;
    }
}

void msidmap::check_garbage() {
    if (m_filesize == 0 || m_garbage == 0)
        return;
    if (std::uint64_t{m_garbage} * 100 / m_filesize >= rebuild_percent && m_garbage >= rebuild_least)
        __rebuild_index(true);
}

// An index that doesn't know what it has just been told is damaged, and made again.
void msidmap::tell_index(const key11& key, std::uint32_t offset, bool replace) {
    m_tree->insert(key, offset, replace);
    const std::uint32_t known = m_tree->find(key);
    const bool sound = replace || offset == 0 ? known == offset : known != 0 && known <= offset;
    if (!sound || m_tree->damaged())
        __rebuild_index(true);
}

// Compacts the list and, with an index, enters its records again.
void msidmap::__rebuild_index(bool with_index) {
    m_list.close();
    m_tree.reset();
    if (!m_index_path.empty())
        platform::delete_file(m_index_path);
    if (with_index) {
        m_tree = std::make_unique<msidtree>(m_index_path);
        // An index that could not be deleted (somebody has it open) is emptied instead.
        if (m_tree->count() != 0)
            m_tree->start_anew();
    }
    write_map list(m_list_path, 0, &m_filesize);
    if (!list.is_valid()) {
        log_unmapped("__rebuild_index");
        return;
    }
    // deliberate: such a file stays as it is. The next insert() gives it a header, and the next rebuilding
    // finds its records again.
    if (!read_header(list)) {
        TVR_LOG(default_log, "[-] msidmap::__rebuild_index has wrong lst file");
        return;
    }
    m_records = 0;
    std::size_t kept = m_header.size();
    list_record record;
    for (std::size_t at = kept; read_record(list.bytes(), at, record);) {
        const std::size_t size = record.size;
        if (record.is_live()) {
            if (m_tree)
                m_tree->insert(key11::of(record.id), static_cast<std::uint32_t>(kept), false);
            if (kept != at)
                std::memmove(list.at(kept), list.at(at), size);
            kept += size;
            ++m_records;
        }
        at += size;
    }
    m_garbage = 0;
    write_header(list);
    cut(list, kept);
}

void msidmap::merge(std::string_view list_path) {
    if (list_path.empty())
        return;
    const read_map list(list_path);
    if (list.is_valid())
        for_each_live(list.bytes(),
                      [&](std::size_t, const list_record& record) { insert(record.id, record.value); });
}

void msidmap::relabel(std::string_view list_path, std::uint32_t value) {
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
    const read_map list(m_list_path);
    file.write(list.bytes().data(), list.bytes().size());
}

void msidmap::drop_files() {
    m_list.close();
    m_tree.reset();
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
