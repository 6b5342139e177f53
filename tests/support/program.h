// The programs of the build, run to their end.
#pragma once

#include <string>

namespace tvr {

struct program_result {
    int code = -1;    // -1 if it was killed
    std::string text; // of both outputs
};

// `name` has no extension; the program lies beside this one. Standard input is this one's, or empty. On posix
// the arguments go through a shell, which does what is asked of it ("<file", ">file").
program_result run_program(const std::string& name, const std::string& arguments);

} // namespace tvr
