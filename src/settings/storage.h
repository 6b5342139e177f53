// A small typed tree with a file form: named sections that hold typed values.
//
// The tree holds 16-bit ids; one table of the storage maps each name to its id. A path is one or more names
// with
// "\" or "/" between them, from the section of a parent handle, or from the root if that is null.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "settings/storage_entry.h"

namespace tvr {

// The lock of a storage. Its owner may enter again; any other thread tries once a millisecond.
class storage_lock {
public:
    void lock() noexcept;
    void unlock() noexcept; // by the owner

private:
    std::atomic<std::uint32_t> m_owner{0}; // thread id; 0: free
    std::uint32_t m_depth = 0;             // touched by the owner only
};

// The way to refer to an entry from outside. Owned by whoever got it, who gives it back through release() or
// next_release(), or lets a std::unique_ptr do so. It holds the lock of the storage all the time: release it
// soon, on the thread that got it, and before the storage goes.
struct storage_handle {
    static constexpr std::uint32_t valid_tag = 12345;

    std::uint32_t tag = valid_tag;
    std::shared_ptr<storage_section> parent;
    std::shared_ptr<storage_entry> entry;
    storage_section::position place; // in the parent
    std::uint16_t id = 0;
    std::unique_lock<storage_lock> lock;
    std::uint64_t generation = 0; // of the parent when it was searched
};

// Any thread; each operation takes the lock. No file is touched. A handle argument that is null (but for a
// parent), has no valid tag or belongs to another storage makes the operation fail without harm, and so does
// one whose place was cleared away meanwhile. Failures are told by the result alone.
class storage_object {
public:
    static constexpr std::uint32_t signature = 0x61626261; // "abba", before the file form
    // The largest form that is packed or unpacked (bytes); it bounds the memory that a damaged file can take.
    static constexpr std::size_t max_packed_size = std::size_t{1} << 22;

    storage_object();
    virtual ~storage_object();
    storage_object(const storage_object&) = delete;
    storage_object& operator=(const storage_object&) = delete;

    // Empties the names and the root, and clears the modified flag.
    virtual void clear();
    // The section at the path; made if it isn't there, or in any case with `unique`, after others of its
    // name. Null if a section on the way is missing (none is made), if the name is that of a value, or if all
    // ids are used up.
    virtual storage_handle* create_section(const char* path, const storage_handle* parent, bool unique);
    // The first entry at the path, a value as well as a section; with a null path the parent's first child.
    virtual storage_handle* find_section(const char* path, const storage_handle* parent);
    // The next entry of the same id in the same section, or with `any` the next of whatever id. Null after
    // the last one. next_release() gives the handle back in any case.
    virtual storage_handle* next_release(storage_handle* handle, bool any);
    virtual storage_handle* next(const storage_handle* handle, bool any);
    virtual void release(storage_handle* handle); // null is allowed
    // deliberate: this and set_at() have no caller here.
    // Empties the section; false if the handle isn't one of a section. The modified flag stays.
    virtual bool clear_section(const storage_handle* handle);
    // Replaces the bytes of a value and sets the modified flag. False, with nothing changed, if the entry has
    // another tag, or for a size that doesn't fit the tag.
    virtual bool set_at(const storage_handle* handle, std::span<const std::uint8_t> bytes, entry_tag type);
    // The same by path; makes the value if it isn't there, or in any case with `unique`.
    virtual bool set(const char* path, const storage_handle* parent, std::span<const std::uint8_t> bytes,
                     entry_tag type, bool unique);
    // Copies a value out. `size_out` (may be null) receives its size in bytes once it was found with the
    // right type: `type` itself, where blob stands for any value. With a null buffer that is all; otherwise
    // false if the value is larger than the buffer. `handle_out` (may be null) walks through values of one
    // name: a handle in it is the place after which the search goes on, in its section and with its id. It
    // is given back, and replaced by the handle of the value that was found, or by null if the result is
    // false.
    virtual bool get(const char* path, const storage_handle* parent, void* buffer, std::size_t buffer_size,
                     std::size_t* size_out, entry_tag type, storage_handle** handle_out);
    // Takes the content of a file form; the old content goes in any case. False with an empty storage for
    // anything that is no whole, exact file form.
    virtual bool load(std::span<const std::uint8_t> bytes);
    [[nodiscard]] virtual bool is_modified() const;
    virtual void set_modified(bool modified);

    // Makes the file form. False if it can't be represented or is larger than max_packed_size.
    bool pack(std::vector<std::uint8_t>& bytes) const;

private:
    static constexpr std::uint16_t unknown_id = 0xFFFF;

    // A search: what to look for, and where it was found.
    struct arg {
        bool create = false;
        bool unique = false;
        entry_tag type = entry_tag::section; // to create
        bool advance = false;                // begin after `place`
        storage_section::position place;
        std::uint16_t id = 0; // 0: by path
        std::shared_ptr<storage_section> parent;
        bool any = false;
        std::uint64_t generation = 0;
    };
    // One of these as long as an operation runs.
    using guard = std::lock_guard<storage_lock>;

    [[nodiscard]] bool is_valid(const storage_handle* handle) const noexcept;
    // The section where a search begins; null if there is none.
    [[nodiscard]] std::shared_ptr<storage_section> section_of(const storage_handle* parent) const;
    // Finds or makes an entry, and tells its place in `search`. Null if there is none.
    std::shared_ptr<storage_entry> __search(const char* path, arg& search);
    // A handle for what __search() found.
    storage_handle* make_handle(std::shared_ptr<storage_entry> entry, const arg& found);
    static void go_on_behind(const storage_handle& handle, arg& search);

    [[nodiscard]] std::uint16_t look_up(std::string_view name) const;
    std::uint16_t issue(std::string_view name);
    void save_names(std::uint8_t* buffer, std::size_t& used) const;
    bool load_names(std::span<const std::uint8_t>& rest);

    std::shared_ptr<storage_section> m_root;
    std::map<std::string, std::uint16_t, std::less<>> m_names;
    std::uint16_t m_last_id = 0;
    mutable storage_lock m_lock;
    bool m_modified = false;
};

// A storage with its file. Made for one load or save, and thrown away.
class storage_file final : public storage_object {
public:
    explicit storage_file(std::string_view path) : m_path(path) {}

    // Reads the file through a view of it. False with a line in the default log (at level 1; at level 2
    // without `report`, if the file can't be opened), and with the storage empty if it could be mapped.
    bool open(bool report);
    // Replaces the file and clears the modified flag; with `only_if_modified` nothing happens without that
    // flag. False with a line in the default log; the file may then be missing or cut short.
    bool write(bool only_if_modified);

private:
    std::string m_path;
};

} // namespace tvr
