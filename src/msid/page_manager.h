// The index file of a message-ID map: a B-tree of 512-byte pages that is worked on in a mapped view.
//
// Nothing is ever deleted from it: a key that goes away gets the value 0, and the whole file is made
// again from the list file. It has one writer at a time, under the lock of its msidmap.
#pragma once

#include <cstdint>
#include <string_view>

#include "common/fileheader.h"
#include "common/filemap.h"
#include "msid/msid_key.h"
#include "msid/page.h"

namespace tvr {

// Owns the file, its view and the allocation of pages. The header in the file is brought up to date by
// the destructor only, so that a process that dies leaves a stale one.
class pmanager {
public:
    // Opens the file, shared for reading, or makes it. A file whose header can't be read or can't be true
    // counts as new.
    explicit pmanager(std::string_view path);
    ~pmanager(); // writes the header and leaves a file of exactly the bytes in use
    pmanager(const pmanager&) = delete;
    pmanager& operator=(const pmanager&) = delete;

    // False if the file could not be opened or mapped: nothing is found then and nothing is stored.
    [[nodiscard]] bool is_valid() const noexcept { return m_map.is_valid(); }
    // True once something was met that no sound file holds, or a page could not be had. What the tree
    // returns can't be relied on any more; the remedy is to make the index again.
    [[nodiscard]] bool damaged() const noexcept { return m_damaged; }
    // Insertions done, repeated ones included.
    [[nodiscard]] std::uint32_t count() const noexcept { return m_keycount; }

protected:
    static constexpr std::uint32_t first_page = page_view::size; // the root of a new file
    static constexpr std::uint32_t new_filesize = 2 * page_view::size;

    // The offset of a new, cleared page; 0 if there is none to be had. All pointers into the view die.
    std::uint32_t allocate_page();
    // True for an offset that a page can stand at.
    [[nodiscard]] bool is_page(std::uint32_t offset) const noexcept {
        return offset % page_view::size == 0 && offset >= first_page && offset < m_filesize &&
               m_map.is_valid();
    }
    [[nodiscard]] page_view page(std::uint32_t offset) const noexcept { return page_view(m_map.at(offset)); }
    void mark_damaged() noexcept { m_damaged = true; }
    void start_anew(); // an empty tree in a file that is open

private:
    // Bytes; the file is never made smaller than it was found. Stands before the map, which fills it in.
    std::uint64_t m_opened_size = 0;

protected:
    write_map m_map;
    fileheader m_header;
    std::uint32_t m_filesize = 0; // bytes in use: the offset of the next new page
    std::uint32_t m_keycount = 0;
    std::uint32_t m_root = 0;

private:
    void reset_values() noexcept;
    [[nodiscard]] bool values_fit(std::uint64_t size_on_disk) const noexcept;
    void write_header();

    bool m_damaged = false;
};

// The operations on pages and the insertion: a full page first spills into its siblings, and two full
// ones are split into three. Pages are named by their offsets; 0 means none.
class binpage : public pmanager {
public:
    using pmanager::pmanager;

protected:
    struct item {
        key11 key;
        std::uint32_t value = 0;
        bool replace = false; // an equal key takes the value even if it is not lower
    };

    // Results of insert_in_page(); any other number is the child to go on with.
    static constexpr std::uint32_t stored = 0;
    static constexpr std::uint32_t known = 1; // the key was there
    static constexpr std::uint32_t full = 2;
    static constexpr std::uint32_t again = 3; // the page's first key was lowered

    // What an insertion did to the pages beside the one it was run on.
    enum class change { none, rebalanced, new_after_left, new_before_right };
    struct outcome {
        std::uint32_t page = 0; // to be added to the parent
        change what = change::none;
    };

    // One step of a search. True if it has ended, with the value in `out` (0: not there); false if it
    // goes on with the child `out`.
    bool try_find(std::uint32_t at, const key11& key, std::uint32_t& out);
    // One step of an insertion. When it returns a child, `left` and `right` become the child's siblings.
    std::uint32_t insert_in_page(std::uint32_t at, const item& entry, std::uint32_t& left,
                                 std::uint32_t& right);
    // The whole insertion into the tree below a page with the given siblings.
    outcome __insert(std::uint32_t at, std::uint32_t left, std::uint32_t right, const item& entry,
                     unsigned depth = 0);

    bool add_child(std::uint32_t at, std::uint32_t child); // false if the page is full
    std::uint32_t split_in_half(std::uint32_t at);
    std::uint32_t split_in_three(std::uint32_t a, std::uint32_t b); // returns the page between the two
    std::uint32_t make_root(std::uint32_t a, std::uint32_t b);
    bool balance(std::uint32_t left, std::uint32_t at, std::uint32_t right); // true if slots were moved
    void update_separators(std::uint32_t at, const key11& key, std::uint32_t left, std::uint32_t child,
                           std::uint32_t right);

    // The one of three neighbouring pages that a key belongs to, with its own neighbours.
    struct place {
        std::uint32_t page, left, right;
    };
    [[nodiscard]] place route(std::uint32_t a, std::uint32_t b, std::uint32_t c,
                              const key11& key) const noexcept;

    std::uint32_t find(const key11& key);
    void insert(const item& entry);
    void start_anew();

private:
    outcome insert_in_full_leaf(std::uint32_t at, std::uint32_t left, std::uint32_t right, const item& entry,
                                unsigned depth);
    outcome add_child_to_full(std::uint32_t at, std::uint32_t left, std::uint32_t right, std::uint32_t child);
    [[nodiscard]] bool are_siblings(std::uint32_t left, std::uint32_t at, std::uint32_t right) const noexcept;

    key11 m_last_key; // no key is all zeros
    std::uint32_t m_last_value = 0;
};

// The tree as the map uses it.
class msidtree : public binpage {
public:
    using binpage::binpage;

    // The value, 0 if the key isn't there.
    std::uint32_t find(const key11& key) { return binpage::find(key); }
    std::uint32_t find(std::string_view id) { return find(key11::of(id)); }
    // An equal key takes the value if it is lower than the stored one, or if `replace` is set. Storing 0
    // takes a key out.
    void insert(const key11& key, std::uint32_t value, bool replace) {
        binpage::insert({key, value, replace});
    }
    void insert(std::string_view id, std::uint32_t value, bool replace) {
        insert(key11::of(id), value, replace);
    }
    void start_anew() { binpage::start_anew(); } // an empty tree
};

} // namespace tvr
