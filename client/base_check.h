// Whether a published base is what the engine wrote. The reader of the base takes what a file lacks as zeros,
// so that a cut one would call all mail good.
#pragma once

#include <string>
#include <string_view>

namespace tvr {

// What is wrong with the file, for a person; empty if its size and its tokens are those that its head tells.
std::string base_defect(std::string_view path);

} // namespace tvr
