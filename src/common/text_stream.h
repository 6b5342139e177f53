// Text files in the form of the platform's text streams, on top of a file_stream.
#pragma once

#include <string>
#include <string_view>

namespace tvr {

class file_stream;

// Writes a text in which each line feed becomes the platform's line end. False as file_stream::write().
bool write_text(file_stream& file, std::string_view text);
// Adds the next line, without its end, to `line`. False if there is nothing left to read. Where a line end
// has two bytes, a carriage return without a line feed stays, and the character 26 ends the file.
bool read_text_line(file_stream& file, std::string& line);

} // namespace tvr
