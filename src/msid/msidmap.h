// The map from message ID to a 32-bit value, on a list file (.lst) and its disposable index (.idx).
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "common/fileheader.h"
#include "platform/sync.h"

namespace tvr {

class file_stream;
class msidtree;

// Any thread, one operation at a time; delete_if() and the rebuilding want the map to themselves.
class msidmap {
public:
    // Opens "<folder><name>.lst" and ".idx"; missing ones are made. `folder` with a trailing backslash, or
    // empty for the current folder.
    msidmap(std::string_view folder, std::string_view name);
    // A temporary map of the content of an open file, from its position to its end.
    explicit msidmap(file_stream& file);
    ~msidmap(); // writes the index header; deletes temporary files
    msidmap(const msidmap&) = delete;
    msidmap& operator=(const msidmap&) = delete;

    bool insert(std::string_view id, std::uint32_t value); // true if the map has the ID afterwards; an old value stands
    std::uint32_t search(std::string_view id);             // the value, 0 if it isn't there
    bool remove(std::string_view id);
    bool delete_if(const std::function<bool(std::string_view id, std::uint32_t value)>& predicate);
    void merge(std::string_view list_path); // inserts all live records of another .lst
    // Overwrites the value of every live record of a .lst file.
    static void relabel(std::string_view list_path, std::uint32_t value);
    // Writes a compacted copy of the .lst file. The map has no index afterwards: discard it or clear it.
    void write_out(file_stream& file);
    void clear(); // deletes both files and makes a new empty map

    // Lets go of the list file between operations, so that it can be renamed; it is opened again by the
    // next operation.
    void release_list();

    [[nodiscard]] std::uint32_t records() const noexcept { return m_records; }
    [[nodiscard]] std::uint32_t garbage() const noexcept { return m_garbage; } // bytes
    [[nodiscard]] std::uint64_t filesize() const noexcept { return m_filesize; } // bytes in use in the .lst
    [[nodiscard]] const std::string& list_path() const noexcept { return m_list_path; }

private:
    struct list_view;

    void open();
    void upgrade();
    bool __rebuild_index(bool with_index);
    void check_garbage();

    platform::critical_section m_lock;
    std::uint32_t m_records = 0;
    std::uint32_t m_garbage = 0;
    std::uint64_t m_filesize = 0;
    fileheader m_header;
    std::string m_list_path;
    std::string m_index_path;
    std::unique_ptr<msidtree> m_tree;
    bool m_temporary = false;
};

} // namespace tvr
