// What a file of the engine holds, for people and for programs.
#pragma once

#include <ostream>
#include <string>

namespace tvr {

struct inspect_options {
    bool all = false;  // every entry, with the tokens of messages and the changes of atoms
    bool json = false; // one JSON object in a line
};

// Writes the header, the counts and the first entries of a file to `out`, and what is wrong with it to
// `errors`, in lines that begin with its name. True if nothing is wrong. The path as the users of this system
// write it.
bool inspect_file(const std::string& path, const inspect_options& options, std::ostream& out,
                  std::ostream& errors);

} // namespace tvr
