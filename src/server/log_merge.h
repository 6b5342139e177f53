// Merges the logs of all components into one, by their time stamps.
#pragma once

#include <string_view>

namespace tvr {

// Makes common.log in the folder, from those of the known logs that are there; each line tells the log that
// it comes from. A log that can't be opened counts as empty. deliberate: the folder is joined with the names
// as it stands, an empty one included.
void merge_logs(std::string_view folder);

} // namespace tvr
