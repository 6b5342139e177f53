// Files, folders and searches.
//
// Paths are 8-bit text with backslashes, absolute ("\a\b", "c:\a") or relative to the current folder;
// a folder may be given with or without a trailing backslash. A failed operation returns false (or an
// empty optional) and leaves its reason in last_error(). Nothing here throws.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tvr::platform {

enum class access : std::uint32_t { none = 0, read = 1, write = 2, read_write = 3 };
enum class share : std::uint32_t { none = 0, read = 1, write = 2, read_write = 3 };
enum class creation : std::uint32_t {
    create_new = 1,    // fails with 80 if the file exists
    create_always = 2, // cuts an existing file to nothing
    open_existing = 3,
    open_always = 4,
    truncate_existing = 5,
};
enum class origin { begin, current, end };

namespace attribute {
constexpr std::uint32_t read_only = 1;
constexpr std::uint32_t directory = 16;
constexpr std::uint32_t archive = 32;
constexpr std::uint32_t normal = 128;
constexpr std::uint32_t temporary = 256;
} // namespace attribute

// An open file with a position. Belongs to one thread at a time. Closed by the destructor.
//
// Sharing is real between all handles of all processes of the user: an open fails with 32 if it asks
// for an access that an open handle does not share, or does not share an access that an open handle
// has. No handle shares deletion, so a file that is open with any access can be neither deleted nor
// renamed (32). A handle with access::none takes no part in this. A dead process holds nothing.
class file {
public:
    file() noexcept;
    ~file();
    file(file&& other) noexcept;
    file& operator=(file&& other) noexcept;
    file(const file&) = delete;
    file& operator=(const file&) = delete;

    // Opens a file, closing the one held before. A folder gives 5. A write
    // access to a file with the read-only attribute gives 5. `attributes` are those of a new file;
    // attribute::temporary also says that flush() need not reach the disk.
    bool open(std::string_view path, access rights, share sharing, creation mode,
              std::uint32_t attributes = attribute::normal);
    void close() noexcept;
    [[nodiscard]] bool is_open() const noexcept;

    // Reads up to `size` bytes at the position and moves it; `got` receives the number (0 at the end of
    // the file, which is no failure). False with `got` 0 on an error, also without read access (5).
    bool read(void* buffer, std::size_t size, std::size_t& got);
    // Writes `size` bytes at the position and moves it. False if not all were written.
    bool write(const void* data, std::size_t size);
    // Moves the position (bytes); returns the new one. It may lie past the end of the file.
    std::optional<std::uint64_t> seek(std::int64_t distance, origin from);
    // Cuts or grows the file (with zeros) to the position.
    bool set_end();
    // Brings the content of the file to the disk, but not its name: see make_durable().
    bool flush();
    [[nodiscard]] std::optional<std::uint64_t> size() const;
    // Last-write time: 100 ns units since 1601-01-01 UTC.
    [[nodiscard]] std::optional<std::uint64_t> last_write_time() const;
    bool set_last_write_time(std::uint64_t time);

private:
    friend class mapping;
    friend bool copy_file(std::string_view from, std::string_view to, bool fail_if_exists);
    struct state;
    std::unique_ptr<state> m_state;
};

// The attribute bits of a path, or nothing if it doesn't exist.
std::optional<std::uint32_t> get_attributes(std::string_view path);
// Sets or clears the read-only bit (other bits are ignored).
bool set_attributes(std::string_view path, std::uint32_t attributes);

// 2 if there is no such file, 5 for a folder or a read-only file, 32 if it is open.
bool delete_file(std::string_view path);
// Renames a file or folder, across volumes if need be. 183 if the target exists; 32 if the file is open.
bool move_file(std::string_view from, std::string_view to);
// Renames a file of the same volume in one step, in place of the file `to` if there is one. 32 if either is
// open (or 5, if that is `to`), 5 if either is a folder or `to` is read-only.
bool replace_file(std::string_view from, std::string_view to);
// Copies content, last-write time and attributes. 80 if the target exists and `fail_if_exists` is set.
bool copy_file(std::string_view from, std::string_view to, bool fail_if_exists);
// Makes `link` a second name of the file `existing`. 183 if `link` exists; an error of its own (1) where
// the file system has no hard links.
bool create_hard_link(std::string_view link, std::string_view existing);
// 183 if the name exists, 3 if its parent doesn't.
bool create_directory(std::string_view path);
// 145 if the folder isn't empty.
bool remove_directory(std::string_view path);

// Makes a new empty file in `folder`, named by up to three characters of `prefix`, some hexadecimal
// digits and ".tmp", and returns its full path.
std::optional<std::string> make_temp_file(std::string_view folder, std::string_view prefix);
// The user's folder of temporary files, with a trailing backslash. Private to the user.
std::string temp_folder_path();

// Brings what the paths name to the disk, one after the other: of a file its content, of a folder (a path
// with a trailing backslash) the names in it, new, changed and gone. Until then the system keeps both in
// memory, writes them in an order of its own, and a power cut loses them. Takes no part in sharing on posix;
// elsewhere a file that somebody has open and doesn't share for writing gives 32. False if one of them
// couldn't be brought there; the others are all the same. What a file system can't do for folders is no
// failure.
bool make_durable(const std::vector<std::string>& paths);
// Whether a file has more than one name (hard links). False if that can't be told.
bool has_other_names(std::string_view path);

std::string current_directory(); // without a trailing backslash, but for a root folder
bool set_current_directory(std::string_view path);

// For onlookers: reads up to `size` bytes at `offset` (bytes), and hinders nobody who works on the file. On
// the reference platform a read counts as one for as long as it takes: it fails with 32 where reading isn't
// shared. The number read; nothing if the file can't be opened or read.
std::optional<std::size_t> peek_file(std::string_view path, std::uint64_t offset, void* buffer,
                                     std::size_t size);
// The path as the users of this system write it, and the reverse.
std::string display_path(std::string_view path);
std::string from_display_path(std::string_view path);

// What ends a line of a text file.
std::string_view line_end() noexcept;

struct directory_entry {
    std::string name;
    std::uint32_t attributes = 0;
};

// A search for names in a folder. The names come in ascending byte order, "." and ".." first among the
// others where the platform has them in a folder.
class directory_search {
public:
    directory_search() noexcept;
    ~directory_search();
    directory_search(const directory_search&) = delete;
    directory_search& operator=(const directory_search&) = delete;

    // Begins a search. The last component of `pattern` may hold "*" and "?"; "*.*" means every name, and
    // letters match in either case. False with 2 if nothing matches, with 3 if the folder is missing.
    bool first(std::string_view pattern, directory_entry& entry);
    // The next match; false with 18 when there is none.
    bool next(directory_entry& entry);
    void close() noexcept;

private:
    struct state;
    std::unique_ptr<state> m_state;
};

} // namespace tvr::platform
