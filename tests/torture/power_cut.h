// What a power cut would leave of a root.
//
// File systems keep the order of names: a rename is one step, and the names of a folder come to the disk
// together, when the folder is synced. Of a file nothing comes there before the file is. More than was synced
// may be there, in any mixture; what is tried are the ends and one between.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <sys/types.h>

#include "support/file_bytes.h"

namespace tvr::torture {

class disk_image {
public:
    explicit disk_image(std::string root); // with a slash at its end; all that is there is on the disk

    void created(int file);
    void written(int file, const void* data, std::size_t size, off_t at);
    void renamed(const std::string& from, const std::string& to); // done, between two folders or in one
    void synced(int file_or_folder);

    // The files (and folders, with a slash at their end) by path, for each variant.
    [[nodiscard]] std::map<std::string, files> states() const;

private:
    struct node {                           // of the disk
        int hold = -1;                      // keeps its number from being used again
        std::optional<std::string> content; // of a file, once it was synced
        std::map<std::string, ino_t> names; // of a folder
    };
    struct write {
        std::size_t at = 0;
        std::string bytes;
    };

    node& node_of(const std::string& path, ino_t number);
    void take_names(const std::string& folder, ino_t number);
    void take_all(const std::string& folder, ino_t number);
    void walk_disk(ino_t folder, const std::string& path, bool as_it_was, files& state) const;

    std::string m_root;
    std::map<ino_t, node> m_nodes;
    std::map<ino_t, write> m_last; // that no sync has followed
    struct move {
        ino_t from, to; // folders
        std::string old_name, new_name;
    };
    std::vector<move> m_moves; // not on the disk yet
};

} // namespace tvr::torture
