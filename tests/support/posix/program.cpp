#include "tests/support/program.h"

#include <array>
#include <cstdio>
#include <stdexcept>
#include <sys/wait.h>

#include "common/path.h"
#include "platform/file.h"

namespace tvr {

program_result run_program(const std::string& name, const std::string& arguments) {
    const std::string program = platform::display_path(module_folder() + name);
    FILE* const pipe = popen(("'" + program + "' " + arguments + " 2>&1").c_str(), "r");
    if (!pipe)
        throw std::runtime_error("no " + name);
    program_result result;
    std::array<char, 4096> piece;
    while (const std::size_t got = std::fread(piece.data(), 1, piece.size(), pipe))
        result.text.append(piece.data(), got);
    const int status = pclose(pipe);
    result.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

} // namespace tvr
