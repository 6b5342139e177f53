// One dictionary on disk: the folder that holds it, its name, and the list of its atom files.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "common/file_names.h"

namespace tvr {

// Belongs to the transaction's thread. Failures of single files are not reported.
class dict_folder {
public:
    dict_folder(std::string_view path, std::string_view name); // path with a trailing backslash

    // Appends the names of the matching files of the folder, in ascending order.
    void enumerate(std::string_view pattern);
    // Points the object at a folder and lists its atoms.
    void reload(std::string_view path, bool flag);
    // Lists the atoms. Divides old ones; with `flag`, deletes empty ones. Returns how many there are.
    std::size_t reload_atoms(bool flag);
    // Divides an atom without stamps into ordinal atoms. False if it is none.
    bool divide_old_atom(const std::string& name);
    // Makes an atom file with an empty head under the lowest free number from `index` up; its full path.
    std::string new_file(std::uint32_t index);

    // These four list the atoms first if the list is empty.
    void copy_all(std::string_view target, bool fail_if_exists); // links or copies
    void delete_all();
    void move_all(std::string_view target); // deliberate: no caller here
    // Deletes the atoms of `target`, and moves those of the folder there.
    void replace(std::string_view target);

    [[nodiscard]] const std::string& path() const noexcept { return m_path; }
    [[nodiscard]] const std::string& name() const noexcept { return m_name; }
    [[nodiscard]] const std::vector<std::string>& files() const noexcept { return m_files; } // without folder
    void set_files(std::vector<std::string> files) { m_files = std::move(files); }

private:
    [[nodiscard]] std::string atom_pattern() const { return m_name + names::any_atom; }
    void enumerate_if_empty();

    std::string m_path;
    std::string m_name;
    std::vector<std::string> m_files;
};

} // namespace tvr
