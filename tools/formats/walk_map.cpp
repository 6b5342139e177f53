// The message-ID maps: the list, and its index.

#include <algorithm>
#include <vector>

#include "common/bytes.h"
#include "msid/list_record.h"
#include "platform/file.h"
#include "tools/formats/signatures.h"
#include "tools/formats/walks.h"
#include "tools/text.h"

namespace tvr {

namespace {

constexpr std::uint32_t page_size = page_view::size;
constexpr std::uint8_t leaf_flags = page_view::in_use;
constexpr std::uint8_t inner_flags = page_view::in_use | page_view::inner;

struct index_head {
    index_head() : header(signature::index) {
        header.add(root, page_size).add(size, 2 * page_size).add(keys, 0);
    }
    index_head(const index_head&) = delete;
    index_head& operator=(const index_head&) = delete;

    [[nodiscard]] bool is_page(std::uint32_t offset) const {
        return offset >= page_size && offset % page_size == 0 && offset < size;
    }

    std::uint32_t root = 0, size = 0, keys = 0;
    fileheader header;
};

bool is_there(const std::string& path, std::uint64_t offset) {
    std::uint8_t byte = 0;
    return platform::peek_file(path, offset, &byte, 1).value_or(0) == 1;
}

// Goes through the whole tree, each page once.
class tree_walk {
public:
    tree_walk(const std::string& path, const index_head& head, view_sink& sink)
        : m_path(path), m_head(head), m_sink(sink), m_seen(head.size / page_size) {}

    // The keys of the page are not below `low`, and below `high` if there is one. False after a defect.
    bool walk(std::uint32_t offset, const key11& low, const key11* high, unsigned depth) {
        std::array<std::uint8_t, page_size> bytes;
        if (depth > tree_depth_limit || m_seen[offset / page_size])
            return bad(offset, "the page is reached a second time");
        m_seen[offset / page_size] = true;
        if (platform::peek_file(m_path, offset, bytes.data(), bytes.size()).value_or(0) != bytes.size())
            return bad(offset, "the page is cut short");
        const page_view page(bytes.data());
        const unsigned n = page.used();
        const std::uint8_t flags = n == 0 ? leaf_flags : page.flags(0);
        if (n == 0 && depth != 0)
            return bad(offset, "the page is empty");
        for (unsigned i = 0; i < page_view::slots; ++i) {
            const std::uint64_t at = offset + i * page_view::slot_size;
            if (page.flags(i) != (i < n ? flags : 0) || (flags != leaf_flags && flags != inner_flags))
                return bad(at + 4, "the flags of the slot fit neither leaf nor inner page");
            if (i >= n)
                continue;
            if (page.key(i) < low || (i != 0 && page.key(i) <= page.key(i - 1)) ||
                (high && page.key(i) >= *high))
                return bad(at + 5, "the key is out of order");
        }
        return flags == leaf_flags ? show(page, n) : walk_children(offset, page, n, high, depth);
    }

private:
    bool bad(std::uint64_t at, const char* why) {
        m_sink.defect(at, why);
        return false;
    }

    bool show(const page_view& page, unsigned n) {
        for (unsigned i = 0; i < n; ++i) {
            if (!m_sink.wants_entry())
                continue;
            std::array<std::uint8_t, key11::size> key;
            page.key(i).store(key.data());
            m_sink.entry({{"key", std::string(reinterpret_cast<const char*>(key.data()), key.size())},
                          {"offset", std::uint64_t{page.value(i)}}});
        }
        return true;
    }

    bool walk_children(std::uint32_t offset, const page_view& page, unsigned n, const key11* high,
                       unsigned depth) {
        for (unsigned i = 0; i < n; ++i) {
            const std::uint32_t child = page.value(i);
            if (!m_head.is_page(child))
                return bad(offset + i * page_view::slot_size, "the child is no page of the file");
            const key11 next = i + 1 < n ? page.key(i + 1) : key11{};
            if (!walk(child, page.key(i), i + 1 < n ? &next : high, depth + 1))
                return false;
        }
        return true;
    }

    const std::string& m_path;
    const index_head& m_head;
    view_sink& m_sink;
    std::vector<bool> m_seen; // by page; a bit for 512 bytes of the file
};

} // namespace

void walk_list(file_view& file, view_sink& sink) {
    std::uint32_t told_records = 0;
    std::uint32_t told_garbage = 0;
    fileheader header(signature::list);
    header.add(told_records, 0).add(told_garbage, 0);
    const std::uint64_t start = file.position();
    if (start == 0 && !file.has(1))
        return; // of a half that never had a message
    if (!take_header(file, sink, header))
        return;
    std::uint64_t live = 0, dead = 0, dead_bytes = 0;
    bool zero_tail = false;
    while (file.has(1)) {
        const auto bytes = file.ahead(255 + list_record::overhead);
        list_record record;
        if (!read_record(bytes, 0, record)) {
            // Zeros at the end are room that its owner has left there.
            zero_tail = std::all_of(bytes.begin(), bytes.end(), [](std::uint8_t byte) { return byte == 0; });
            if (!zero_tail) {
                cut_short(file, sink, "record " + grouped(live + dead + 1));
                return;
            }
            dead_bytes += bytes.size();
            file.skip(bytes.size());
            continue;
        }
        sink.list_record(file.position(), record.id, record.value);
        if (record.value == 0) {
            ++dead;
            dead_bytes += record.size;
        } else {
            ++live;
            if (sink.wants_entry())
                sink.entry({{"id", std::string(record.id)}, {"time", moment(record.value)}});
        }
        file.skip(record.size);
    }
    sink.field("id records", std::uint64_t{told_records});
    sink.field("garbage", std::uint64_t{told_garbage});
    sink.field("live", live);
    sink.field("dead", dead);
    if (told_records < live || told_records > live + dead)
        sink.wrong_total(start + 8,
                         "the header tells " + grouped(told_records) + " records, there are " +
                             grouped(live) + " and " + grouped(dead) + " dead ones",
                         static_cast<std::uint32_t>(live));
    if (told_garbage > dead_bytes)
        sink.wrong_total(start + 12,
                         "the header tells " + grouped(told_garbage) + " bytes of dead records, there are " +
                             grouped(dead_bytes),
                         static_cast<std::uint32_t>(dead_bytes));
}

void walk_index(file_view& file, view_sink& sink) {
    index_head head;
    if (!take_header(file, sink, head.header))
        return;
    sink.field("root", std::uint64_t{head.root});
    sink.field("bytes in use", std::uint64_t{head.size});
    sink.field("keys", std::uint64_t{head.keys});
    if (head.size % page_size != 0 || !is_there(file.path(), std::uint64_t{head.size} - 1)) {
        sink.defect(12, "the size in the header is not that of whole pages in the file");
        return;
    }
    if (!head.is_page(head.root)) {
        sink.defect(8, "the root is no page of the file");
        return;
    }
    sink.list("key list");
    tree_walk(file.path(), head, sink).walk(head.root, {}, nullptr, 0);
}

index_view::index_view(std::string path)
    : m_path(std::move(path)), m_pages(std::make_unique_for_overwrite<std::uint8_t[]>(slots * page_size)) {
    std::array<std::uint8_t, page_size> start;
    index_head head;
    std::size_t behind = 0;
    const auto got = platform::peek_file(m_path, 0, start.data(), start.size());
    if (!head.header.read(std::span<const std::uint8_t>(start.data(), got.value_or(0)), behind))
        return;
    m_valid = true;
    m_root = head.root;
    m_size = head.size;
    m_keys = head.keys;
}

const std::uint8_t* index_view::page_at(std::uint32_t offset) {
    if (offset < page_size || offset % page_size != 0 || offset >= m_size)
        return nullptr;
    const std::size_t slot = offset / page_size % slots;
    std::uint8_t* const bytes = m_pages.get() + slot * page_size;
    if (m_offsets[slot] == offset)
        return bytes;
    m_offsets[slot] = 0;
    if (platform::peek_file(m_path, offset, bytes, page_size).value_or(0) != page_size)
        return nullptr;
    m_offsets[slot] = offset;
    return bytes;
}

std::optional<std::uint32_t> index_view::find(const key11& key) {
    std::uint32_t at = m_root;
    for (unsigned depth = 0; depth < tree_depth_limit; ++depth) {
        const std::uint8_t* const bytes = page_at(at);
        if (!bytes)
            return std::nullopt;
        std::array<std::uint8_t, page_size> copy;
        std::copy_n(bytes, copy.size(), copy.begin());
        const page_view page(copy.data());
        const unsigned n = page.used();
        if (page.is_leaf()) {
            const unsigned i = page.not_lower(key, n);
            return i < n && page.key(i) == key ? page.value(i) : 0;
        }
        if (n == 0)
            return std::nullopt;
        if (page.first_key() > key)
            return 0;
        at = page.value(page.greater(key, 1, n) - 1);
    }
    return std::nullopt;
}

} // namespace tvr
