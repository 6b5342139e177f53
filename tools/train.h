// The training of mail, for the commands that need it.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tools/mail_source.h"

namespace tvr {

struct train_options {
    std::vector<std::string> spam;
    std::vector<std::string> ham;
    bool wait = false;
    bool later = false;
    bool manual = false;
    bool quiet = false;
    bool silent = false;                           // prints no report either
    unsigned threads = 0;                          // 0: one for each processor
    unsigned timeout = 600;                        // seconds
    std::function<bool(const mail_item&)> selects; // empty: all
};

// Reads the mail, hands it to the engine, and reports on standard output. Answers the exit code.
int train(const train_options& options);

} // namespace tvr
