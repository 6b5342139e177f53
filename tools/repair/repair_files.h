// How single files are mended. What is mended is made in a folder of its own and then put in place at one
// stroke; what was there before is kept aside. So whoever dies leaves either file whole.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tvr {

// One at a time. Operations return the reason of a failure, or an empty text.
enum class old_files { kept, deleted };

class repair_folder {
public:
    // `working_directory` with a trailing backslash. With old_files::deleted nothing is kept aside.
    explicit repair_folder(std::string working_directory, old_files old = old_files::kept);
    ~repair_folder(); // takes the unfinished files away
    repair_folder(const repair_folder&) = delete;
    repair_folder& operator=(const repair_folder&) = delete;

    // Moves a file or folder into "repair\<date>-<time>\", under its path below the working directory. What
    // isn't there is set aside already.
    std::string set_aside(const std::string& path);
    // Puts a file of this folder's unfinished ones in the place of another, which is kept aside.
    std::string replace(const std::string& made, const std::string& path);
    // Where a new file is to be made; an old one of that name is deleted. Empty if the folder can't be made.
    std::string unfinished(std::string_view name);
    [[nodiscard]] const std::string& working() const noexcept { return m_working; }
    [[nodiscard]] const std::string& aside() const noexcept {
        return m_aside;
    } // empty while nothing was set aside

private:
    std::string place_for(const std::string& path); // empty if its folder can't be made

    std::string m_working;
    old_files m_old;
    std::string m_aside;
};

// The records of a cache that can be read, also after damage.
struct cache_scan {
    std::vector<std::pair<std::uint64_t, std::uint64_t>> ranges; // of whole records: from, to
    std::uint64_t records = 0;
    std::uint64_t lost = 0; // bytes
};
[[nodiscard]] cache_scan scan_cache(const std::string& path);
// Writes a cache of these records of a file.
std::string write_cache(const std::string& from, const cache_scan& scan, const std::string& to);

// A message ID and its value of a list; false ends the walk.
using id_visitor = std::function<void(std::string_view id, std::uint32_t value)>;
// Visits the live records of a list before its first damage; those of one whose header alone is damaged
// are read as well. None are visited if none can be trusted.
std::string visit_ids(const std::string& list, repair_folder& folder, const id_visitor& visit);
// Makes the message-ID list of a half again, and its index if it has one, of the records that `keeps` says
// yes to (all if it is empty). A list of which nothing is left is set aside, and the index with it.
std::string remake_map(const std::string& list, repair_folder& folder,
                       const std::function<bool(std::string_view, std::uint32_t)>& keeps = {});

// Writes a copy of a file with other words at some offsets.
std::string write_patched(const std::string& from,
                          const std::vector<std::pair<std::uint64_t, std::uint32_t>>& words,
                          const std::string& to);
// Writes the whole entries of a statistic in order; nothing if it is none.
std::string write_statistic(const std::string& from, const std::string& to);

} // namespace tvr
