// Years of mail in one run of one engine.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace tvr::long_life {

// By name: bytes on disk ("atoms", "lists", ...) and of memory, numbers of files and handles, and the
// milliseconds from the request to the new base.
using sample = std::map<std::string, double>;

struct form {
    unsigned transactions = 0;
    unsigned messages = 0;     // of each transaction
    unsigned words = 0;        // of each message
    bool small_limits = false; // of the base, in place of the defaults
    bool all_costs = false;    // looks at the memory as well, and prints what the lists of message IDs cost
};

struct result {
    std::vector<sample> samples;      // one for each transaction
    std::vector<std::string> defects; // what has grown and should not, and what else went wrong
};

// Starts a real tvr_srv in a root of its own, and needs some seconds to an hour. Once the limits are reached,
// nothing may grow but the lists of message IDs, which are never purged.
[[nodiscard]] result run(const form& wanted);

} // namespace tvr::long_life
