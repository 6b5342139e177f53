// Engines that kill themselves at a change of the file system, as children of a test: "mortal_engine" waits
// for messages and events like any other, "forced_mortal_engine" begins by training what waits.
#pragma once

#include <ostream>
#include <string>
#include <string_view>

#include "platform/change_hook.h"
#include "system/engine_root.h"

namespace tvr {

struct death {
    const char* name;
    platform::change what;
    const char* path; // end of the path that is about to be changed

    // The argument of those engines.
    [[nodiscard]] std::string argument() const;

    friend std::ostream& operator<<(std::ostream& out, const death& point) { return out << point.name; }
};

// An engine trains 30 messages and dies while it trains another 20.
void die_in_second_training(engine_root& root, const death& point);

// The dictionaries and the compiled base that both trainings lead to undisturbed.
const files& undisturbed_files();

} // namespace tvr
