// Small helpers around files.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace tvr {

class file_stream;

inline constexpr std::uint32_t no_file_size = 0xFFFFFFFF;

// The size in bytes (low 32 bits), or no_file_size for an empty path or a file that can't be opened.
std::uint32_t file_size(std::string_view path);

// One length byte, then that many bytes. False if the length byte can't be read (the text stays as it
// was) or the bytes are cut short.
bool read_short_string(file_stream& file, std::string& text);
// Writes the low byte of the length and all bytes of the text.
bool write_short_string(file_stream& file, std::string_view text);

// Makes the content of a new file durable, renames it in place of `path` in one step, and makes that durable.
bool replace_durably(const std::string& made, const std::string& path);
enum class rewritten { done, not_written, not_replaced };
// Writes a file beside `path` by `write`, and puts it in place by replace_durably(). A failure sets
// last_error(), leaves the old file, and takes what was written away.
rewritten rewrite_durably(const std::string& path, const std::function<bool(file_stream&)>& write);
// Renames a file or folder, and brings the names in both folders to the disk.
bool move_durably(const std::string& from, const std::string& to);
// The folder of a path, for platform::make_durable().
[[nodiscard]] std::string folder_of(std::string_view path);

// Makes `target` a hard link of `source`, or a copy where that isn't possible. An existing target is
// replaced unless `fail_if_exists` is set. The result is that of the last step. The content of a copy is
// durable; what is linked should be.
bool link_or_copy(std::string_view source, std::string_view target, bool fail_if_exists);

} // namespace tvr
