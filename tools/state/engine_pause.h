// Keeps the engine away while its files are changed.
#pragma once

#include <string>

#include "platform/presence.h"

namespace tvr {

// Takes the engine's place among the processes, so that none starts while the object lives. Clients go on:
// what they append waits in the cache.
class engine_pause {
public:
    // The reason of a failure, or an empty text: an engine runs, or one that was told to stop doesn't end,
    // or too few files can be open at a time.
    std::string begin();
    // The same for the folder of the user, which is found or made: `working`, with a trailing backslash.
    std::string begin(std::string& working);

private:
    platform::presence m_presence;
};

} // namespace tvr
