#include "common/text_stream.h"

#include <algorithm>

#include "common/file_stream.h"
#include "platform/file.h"

namespace tvr {

namespace {

constexpr char end_mark = 26;

bool translates() {
    return platform::line_end().size() > 1;
}

bool read_byte(file_stream& file, char& c) {
    return file.read_exact(&c, 1) && !(c == end_mark && translates());
}

} // namespace

bool write_text(file_stream& file, std::string_view text) {
    const std::string_view end = platform::line_end();
    bool written = true;
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        written = file.write(line.data(), line.size()) && written;
        if (line.size() < text.size())
            written = file.write(end.data(), end.size()) && written;
        text.remove_prefix(std::min(text.size(), line.size() + 1));
    }
    return written;
}

bool read_text_line(file_stream& file, std::string& line) {
    const std::size_t start = line.size();
    char c = 0;
    if (!read_byte(file, c))
        return false;
    while (c != '\n') {
        line += c;
        if (!read_byte(file, c))
            return true;
    }
    if (translates() && line.size() > start && line.back() == '\r')
        line.pop_back();
    return true;
}

} // namespace tvr
