// Paths and folders. Folders are joined with backslashes.
#pragma once

#include <string>
#include <string_view>

namespace tvr {

// The folder, one backslash unless it ends with one, and the name; with an empty folder, the name.
std::string join_path(std::string_view folder, std::string_view name);
std::string_view file_part(std::string_view path);   // after the last backslash
std::string_view folder_part(std::string_view path); // up to and with the last backslash; may be empty
// The path with "~" before its file name. A path that ends in a backslash gives an empty text.
std::string tilde_name(std::string_view path);
void add_backslash(std::string& path); // unless it ends with one, or is empty

bool file_exists(std::string_view path); // it can be opened with no rights asked, which a folder can't
// Makes every folder of the path. False if the last one could not be made (183: it was there).
bool make_folders(std::string_view path);

enum class folder_state { usable = 0, not_creatable_file = 1, not_writable = 2, exists_unproven = 3 };
// Makes the folder, or proves that an existing one can be written to.
folder_state check_directory(std::string_view path);

// The installation folder: the machine's registry value TessivarRoot, expanded, with a trailing
// backslash; empty if there is none.
std::string root_folder();
// A path value of the product's registry key, as root_folder(); `name` says which. `text` as it stands if
// there is none, or if it is longer than 260 bytes or expands to more.
std::string registry_path_value(std::string_view name, std::string text = {});
std::string module_folder(); // with a trailing backslash

inline constexpr std::string_view paths_key = "Software\\Orvenix\\Brackenhold\\Paths";

} // namespace tvr
