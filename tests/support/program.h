// The programs of the build, run to their end.
#pragma once

#include <string>

namespace tvr {

struct program_result {
    int code = -1;    // -1 if it was killed
    std::string text; // of both outputs
};

// `name` has no extension; the program lies beside this one. Standard input is this one's, or empty. The
// arguments may ask for files as a shell does ("<file", ">file"); on posix all go through one.
program_result run_program(const std::string& name, const std::string& arguments);

} // namespace tvr
