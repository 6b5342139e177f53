// The plots of an evaluation, as SVG.
#pragma once

#include <string>

#include "tools/eval/evaluation_report.h"

namespace tvr {

// How many messages have a score.
[[nodiscard]] std::string score_plot(const evaluation_result& result);
// The spam that is found, over the false positives that it costs.
[[nodiscard]] std::string roc_plot(const evaluation_result& result);
// The part of spam that was seen, over the one that the scores said.
[[nodiscard]] std::string reliability_plot(const evaluation_result& result);
// What was right, over the messages trained; empty for less than two points.
[[nodiscard]] std::string learning_plot(const evaluation_result& result);
// The errors of each block of a stream; empty if it is none.
[[nodiscard]] std::string block_plot(const evaluation_result& result);

} // namespace tvr
