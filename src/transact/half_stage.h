// What tells the stages of the two halves apart.
#pragma once

#include "transact/transaction.h"

namespace tvr {

struct transaction::half_stage {
    const char* dictionary;
    std::uint32_t target; // the stage that holds the recalculated half
    const char* entry_line;
    const char* stage_line;
    const char* end_line;
    const char* publish_line;
};

} // namespace tvr
