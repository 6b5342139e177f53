// Shows what the filter thinks of single tokens.
#pragma once

#include <string_view>

namespace tvr {

// Asks the engine in the client library for the score of each line of the input, and writes the results to a
// file named like the input, with the extension "out". All failures are told there; without an output nothing
// happens at all. The library lies beside the
// executable, or where an installation has its libraries.
void dump_scores(std::string_view input, std::string_view library = "tvr_ipc.dll");

} // namespace tvr
