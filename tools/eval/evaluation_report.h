// The report of an evaluation, as text and as a page with plots.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "tools/eval/evaluation.h"

namespace tvr {

struct learning_point {
    std::uint64_t trained = 0; // messages
    double accuracy = 0;       // 0 to 1
};

struct evaluation_result {
    std::string title;                                              // a sentence
    std::vector<std::pair<std::string, std::string>> circumstances; // name and value: the rule, the paths
    double spam_threshold = 0, unsure_threshold = 0;                // the last ones in force
    std::vector<judged_mail> mails;
    std::vector<std::string> names; // of the mails, in the same order

    std::vector<learning_point> curve;
    std::size_t block = 0; // of a stream, in messages; 0: it is none
};

// Lines for a terminal.
[[nodiscard]] std::string report_text(const evaluation_result& result);
// A page of HTML with nothing outside itself and no script.
[[nodiscard]] std::string report_page(const evaluation_result& result);

} // namespace tvr
