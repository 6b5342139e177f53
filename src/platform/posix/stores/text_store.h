// Small text files of this backend: read whole, replaced whole under a lock.
#pragma once

#include <functional>
#include <optional>
#include <string>

namespace tvr::platform::posix {

// Who may have written a file that is read.
enum class writers { any, root_or_user };

// The content of a regular file of at most `limit` bytes; nothing if there is none, or others than these
// could have written it.
std::optional<std::string> read_text_file(const std::string& native, std::size_t limit,
                                          writers trusted = writers::any);

// Reads the file, lets `edit` change its text, and puts the new text in its place in one step, under a
// lock beside it that dies with its holder. `edit` returns false to leave the file as it is. The folder is
// made. False sets last_error().
bool replace_text_file(const std::string& native, std::size_t limit,
                       const std::function<bool(std::string& text)>& edit);

} // namespace tvr::platform::posix
