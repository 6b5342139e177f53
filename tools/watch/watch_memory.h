// What `tvrctl watch` knows from one run to the next: the files it has seen in each folder, and the verdicts
// it has learned.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace tvr {

// One process at a time. Changes reach the file in save(). What save() could not write is written by the
// next one.
class watch_memory {
public:
    // Folders, files and messages are known by their fnv_64().
    static constexpr std::size_t most_verdicts = 32768; // the newest ones are kept

    // The file is written under a name with a "~" before it, and then replaced. Not read yet.
    explicit watch_memory(std::string_view path);

    // Reads the file, and writes it again with these folders only. A damaged file counts as empty and is set
    // aside as watch.bad. Returns what is to be told, or an empty text.
    std::string load(const std::vector<std::uint64_t>& folders);

    // False if no run has finished a look at this folder yet, or the last run didn't watch it.
    [[nodiscard]] bool knows_folder(std::uint64_t folder) const { return m_folders.contains(folder); }
    void add_folder(std::uint64_t folder);

    // A file by its name; the stamp tells files of one name apart.
    [[nodiscard]] bool knows_file(std::uint64_t folder, std::uint64_t name, std::uint32_t stamp) const;
    void add_file(std::uint64_t folder, std::uint64_t name, std::uint32_t stamp);
    void drop_file(std::uint64_t folder, std::uint64_t name);
    [[nodiscard]] std::vector<std::uint64_t> files(std::uint64_t folder) const;

    // The verdict (true for spam) as which a message was learned last.
    [[nodiscard]] std::optional<bool> learned(std::uint64_t message) const;
    void set_learned(std::uint64_t message, bool spam);

    // Appends what has changed, or writes the file again when too much of it is out of date. Returns the
    // reason of a failure, or an empty text.
    [[nodiscard]] std::string save();
    // The same, but always writes the whole file: whatever happens, it is as before or complete.
    [[nodiscard]] std::string write_anew();

private:
    enum class kind : std::uint32_t { folder = 1, present = 2, gone = 3, ham = 4, spam = 5 };
    struct entry {
        kind what;
        std::uint32_t stamp;
        std::uint64_t key;
    };
    struct verdict {
        bool spam;
        std::uint64_t turn; // the greater, the newer
    };
    using file_map = std::unordered_map<std::uint64_t, std::uint32_t>; // name to stamp

    bool read(const std::string& path);
    bool apply(const entry& read, file_map*& current);
    void note(std::uint64_t in_folder, entry added);
    void forget_old_verdicts();
    [[nodiscard]] std::vector<entry> all_entries() const;

    std::string m_path;
    std::map<std::uint64_t, file_map> m_folders;
    std::unordered_map<std::uint64_t, verdict> m_verdicts;
    std::uint64_t m_turn = 0;

    std::vector<entry> m_unsaved;
    std::optional<std::uint64_t> m_noted_folder; // of the last entry about a file
    std::size_t m_in_file = 0;                   // entries
    bool m_whole = false;                        // the file can be appended to
};

} // namespace tvr
