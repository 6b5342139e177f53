// What is to be done about what is wrong with the files of a user.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tools/repair/repair_files.h"
#include "tools/state/stage_state.h"
#include "tools/state/state_check.h"

namespace tvr {

struct repair_step {
    std::string text;                 // what it does, with the file
    std::function<std::string()> run; // returns the reason of a failure, or an empty text
};

// The steps for the state as it is now, in their order. Whoever is stopped between two of them, or within
// one, leaves a state that the engine can go on from, or that the next plan takes up; some steps bring up
// what only the next plan can tell. No step is left for a sound state. The engine must not run, and lock.bin
// is to be held while the steps are run. The folder must outlive the steps.
[[nodiscard]] std::vector<repair_step> plan_repair(repair_folder& folder);

} // namespace tvr
