// Where things lie on this backend, and the translation of path texts.
#pragma once

#include <string>
#include <string_view>
#include <sys/types.h>

namespace tvr::platform::posix {

// "\a\b" gives "/a/b", "c:\x" gives "<root>/drive_c/x" (the drive's folder is made on demand). Empty for a
// text that can be no path: an empty one, or one with a zero byte.
std::string native_path(std::string_view path);
// The reverse of native_path.
std::string engine_path(std::string_view native);
// The folder that holds the last component: "." for a plain name.
std::string parent_folder(std::string_view native);

// The folders of everything, as native paths without a trailing slash. TESSIVAR_ROOT moves them all below
// itself. Each is made on demand with mode 0700; empty if it can't be made or isn't safe to use, the reason
// of which is told on the standard error once.

// Owned by this user, not writable for others. Without TESSIVAR_ROOT: below /run/user/<uid> if that is there
// and private; otherwise, or while somebody is there, below the home of the account. No other variable
// counts.
std::string native_runtime_folder();
// The one below the home, which outlasts sessions; under TESSIVAR_ROOT the same.
std::string native_lasting_runtime_folder();
std::string native_temp_folder(); // likewise
std::string native_appdata_folder();
std::string native_common_folder();
// Not made, here and below: the home, and the folder of all users' programs.
std::string native_home_folder();
std::string native_shared_programs_folder();
// The stores make them when they are written.
std::string native_user_store();
std::string native_machine_store();        // the one to be written
std::string native_machine_store_behind(); // read where the other has no answer; may be empty

// Of new folders and of the files of stores: 0700 and 0600, but for the administrator's, which all may read.
mode_t folder_mode(const std::string& native);
mode_t file_mode(const std::string& native);
// Makes a folder and its missing parents. True if it is there afterwards.
bool make_folders(const std::string& native);

} // namespace tvr::platform::posix
