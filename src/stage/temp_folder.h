// The numbered stage folders of a transaction and their markers.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "common/zfile.h"
#include "platform/sync.h"

namespace tvr {

class file_stream;

namespace stage_number {
constexpr std::uint32_t entered = 1;
constexpr std::uint32_t sorted = 2;       // S_SORTED
constexpr std::uint32_t ready_spam = 3;   // S_READYSPAM
constexpr std::uint32_t ready_good = 4;   // S_READYGOOD
constexpr std::uint32_t generate_rgd = 6; // S_GENERATERGD
} // namespace stage_number

// Folders and files under one root. To be used by one thread at a time; no operation reports a failure
// unless told.
class temp_folder {
public:
    explicit temp_folder(std::string_view root); // root with a trailing backslash

    // The folder of a stage, with a trailing backslash ("<root>0002\"). deliberate: the path of a new
    // object, that of stage 0, has none, as nothing is ever put there. Valid until another stage is asked.
    const std::string& path(std::uint32_t stage);
    std::string path_of(std::uint32_t stage, std::string_view name);
    void prepare(std::uint32_t stage); // makes the folder, or empties it
    void create(std::uint32_t stage);
    void clean(std::uint32_t stage);                     // deletes all inside; stops at a file in use
    void remove(std::uint32_t stage);                    // with all inside
    static void empty_folder(const std::string& folder); // clean() for any folder
    // The first file of the folder whose name begins with `prefix`; `out` (may be null) gets its path.
    bool find_first(std::uint32_t stage, std::string* out, std::string_view prefix);
    // Brings all to the disk that a marker of the stage is to vouch for: its folder, and the files in it. A
    // hard link is left out, as files get a second name when they are finished and durable.
    void make_durable(std::uint32_t stage);
    void make_folders_durable(); // which stage folders there are
    // Makes a new empty file with a unique name; false if that fails. `prefix` empty: "dis".
    bool tmp_filename_for_stage(std::uint32_t stage, std::string& out, bool fullpath,
                                std::string_view prefix = {});
    // Writes an archive of the folder to a new file among the user's temporary files; `out` gets its path.
    void pack(std::string& out, std::uint32_t stage);
    // Restores what pack() wrote. A file after a nested folder is not restored.
    void unpack(std::uint32_t stage, std::string_view archive);

private:
    void pack_folder(file_stream& archive, const std::string& folder, std::string_view name);
    void unpack_folder(file_stream& archive, const std::string& folder, unsigned levels);

    std::uint32_t m_stage = 0;
    std::string m_current;
    std::string m_root;
    platform::critical_section m_lock;
    zlib_loader m_zlib;
};

// platform::make_durable(), with a line in the log where that fails: the stage goes on.
void bring_to_disk(const std::vector<std::string>& paths);

// The file that marks a stage as done, and all its content.
inline constexpr std::string_view stage_marker_text("prepared\0", 9);

// The base folder and the markers of its stages.
class tmpfld_holder {
public:
    tmpfld_holder() = default;

    bool init(std::string_view base);                                 // "<working directory>\base\"; true
    [[nodiscard]] std::string main_path(std::string_view name) const; // in the base folder
    void _mark_prepared(std::uint32_t stage);                         // and brings the marker to the disk
    void _mark_unsuccess(std::uint32_t stage);
    bool _is_success(std::uint32_t stage);

    [[nodiscard]] temp_folder& folder() { return *m_folder; } // after init()
    [[nodiscard]] const std::string& base() const noexcept { return m_base; }
    [[nodiscard]] platform::critical_section& lock() noexcept { return m_lock; }

private:
    platform::critical_section m_lock;
    [[nodiscard]] bool reports_ready(const char* operation) const;

    bool m_initialized = false;
    std::string m_base;
    std::unique_ptr<temp_folder> m_folder;
};

} // namespace tvr
