// The map from message ID to a 32-bit value, on a list file (.lst) and its disposable index (.idx).
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "common/fileheader.h"
#include "common/filemap.h"
#include "platform/file.h"
#include "platform/sync.h"

namespace tvr {

class file_stream;
class msidtree;
struct key11;

// Any thread, one operation at a time; delete_if() and the rebuilding want the map to themselves.
//
// The index is held open for the life of the map. The list is open for the length of each operation only, or
// of a run of them, and is then exactly as long as its records.
class msidmap {
public:
    // Opens "<folder><name>.lst" and ".idx"; missing ones are made. `folder` with a trailing backslash, or
    // empty for the current folder. An index that doesn't fit its list is made again.
    msidmap(std::string_view folder, std::string_view name);
    // A temporary map of the content of an open file, from its position to its end, in the user's folder of
    // temporary files.
    explicit msidmap(file_stream& file);
    ~msidmap(); // writes the index header; deletes temporary files
    msidmap(const msidmap&) = delete;
    msidmap& operator=(const msidmap&) = delete;

    // `id` of at most 255 bytes. True if the map has the ID afterwards; an old value stands. False only if
    // the files can't be used. A value of 0 can't be told from a missing ID.
    bool insert(std::string_view id, std::uint32_t value);
    std::uint32_t search(std::string_view id); // the value, 0 if it isn't there
    bool remove(std::string_view id);          // false if it isn't there
    // Takes out every record for which the predicate, called in the order of the list, says yes; a dead one
    // is shown to it as the empty ID with the value 0. False, with a log line, if the list can't be mapped
    // (an empty one can't be) or has no header. Takes no lock.
    bool delete_if(const std::function<bool(std::string_view id, std::uint32_t value)>& predicate);
    // Between these two the list stays open, for many an operation in a row.
    void begin_run() noexcept { m_in_run = true; }
    void end_run() noexcept;
    // Inserts all live records of another .lst; nothing for an empty path.
    void merge(std::string_view list_path);
    // Overwrites the value of every live record of a .lst file; its index stays right. A missing list is
    // made, empty.
    static void relabel(std::string_view list_path, std::uint32_t value);
    // Writes a compacted copy of the .lst file. The map has no index afterwards: discard it or clear it.
    void write_out(file_stream& file);
    void clear(); // deletes both files and makes a new empty map; the .lst comes with the first insert

    // Records added, as counted at the last rebuild plus those added since; dead ones are not taken off.
    [[nodiscard]] std::uint32_t records() const noexcept { return m_records; }
    [[nodiscard]] std::uint32_t garbage() const noexcept { return m_garbage; }   // bytes
    [[nodiscard]] std::uint64_t filesize() const noexcept { return m_filesize; } // bytes in use in the .lst
    [[nodiscard]] const std::string& list_path() const noexcept { return m_list_path; }

private:
    // Records that stand together and have one key.
    struct chain {
        std::size_t offset = 0; // 0: none
        std::size_t bytes = 0;
        std::size_t records = 0;
        std::optional<std::size_t> match; // from the chain's start, of the record with the very ID
        bool ends_here = false;           // another record follows
        std::vector<std::uint8_t> content;
    };

    void open();
    bool upgrade();
    void __rebuild_index(bool with_index);
    void check_garbage();
    void tell_index(const key11& key, std::uint32_t offset, bool replace);
    void drop_files();
    void copy_in(file_stream& file);

    bool read_header(const write_map& list); // into the counters
    void write_header(const write_map& list);
    void cut(write_map& list, std::uint64_t size);

    std::size_t chain_offset(const key11& key);
    static chain measure_chain(std::span<const std::uint8_t> list, std::string_view id, const key11& key);
    struct list_use; // of one operation
    bool open_list(platform::access rights, platform::creation mode);
    chain read_chain(std::size_t offset, std::string_view id, const key11& key);
    void thin_chain(const write_map& list, const chain& whole,
                    const std::function<bool(std::string_view id, std::uint32_t value)>& predicate);

    platform::critical_section m_lock;
    std::uint32_t m_records = 0;
    std::uint32_t m_garbage = 0;
    std::uint64_t m_filesize = 0;
    fileheader m_header;
    platform::file m_list;
    bool m_in_run = false;
    std::string m_list_path;
    std::string m_index_path;
    std::unique_ptr<msidtree> m_tree;
    bool m_temporary = false;
    std::string m_reserved_path; // the empty file that holds a temporary map's name
};

} // namespace tvr
