#include "platform/profile.h"

#include <charconv>
#include <string>
#include <strings.h>

#include "platform/posix/errors.h"
#include "platform/posix/paths.h"
#include "platform/posix/stores/text_store.h"

namespace tvr::platform {

using namespace posix;

namespace {

constexpr std::size_t ini_limit = std::size_t{1} << 20; // bytes

std::string_view trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t\r");
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

bool same(std::string_view a, std::string_view b) {
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

// Where a key stands, or would stand, in the text of an ini file.
struct place {
    bool section_found = false;
    bool key_found = false;
    std::size_t line = 0;     // offset of the key's line, or of the end of the section
    std::size_t line_end = 0; // offset after that line, without its end
    std::string_view key;     // as the line has it
    std::string_view value;
};

place find_key(std::string_view text, std::string_view section, std::string_view key) {
    place result;
    bool inside = false;
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = std::min(text.find('\n', start), text.size());
        const std::string_view line = trimmed(text.substr(start, end - start));
        if (line.starts_with('[')) {
            if (inside)
                break;
            inside = same(trimmed(line.substr(1, line.find(']') - 1)), section);
            result.section_found = result.section_found || inside;
        } else if (const std::size_t equals = line.find('='); inside && equals != std::string_view::npos) {
            if (same(trimmed(line.substr(0, equals)), key)) {
                result.key_found = true;
                result.line = start;
                result.line_end = end > start && text[end - 1] == '\r' ? end - 1 : end;
                result.key = trimmed(line.substr(0, equals));
                result.value = trimmed(line.substr(equals + 1));
                return result;
            }
        }
        start = std::min(end + 1, text.size());
        if (inside && !line.empty())
            result.line = result.line_end = start;
    }
    return result;
}

} // namespace

std::int32_t profile_int(std::string_view section, std::string_view key, std::int32_t fallback,
                         std::string_view path) {
    const auto text = read_text_file(native_path(path), ini_limit);
    if (!text)
        return fallback;
    const place found = find_key(*text, section, key);
    if (!found.key_found)
        return fallback;
    std::int32_t number = 0;
    std::from_chars(found.value.data(), found.value.data() + found.value.size(), number);
    return number;
}

bool write_profile_string(std::string_view section, std::string_view key, std::string_view value,
                          std::string_view path) {
    return replace_text_file(native_path(path), ini_limit, [&](std::string& text) {
        place found = find_key(text, section, key);
        if (!found.key_found && !text.empty() && text.back() != '\n') {
            text += '\n';
            found = find_key(text, section, key);
        }
        const std::string line = std::string(found.key_found ? found.key : key).append("=").append(value);
        if (found.key_found) {
            text.replace(found.line, found.line_end - found.line, line);
        } else if (found.section_found) {
            text.insert(found.line, line + "\n");
        } else {
            text += "[" + std::string(section) + "]\n" + line + "\n";
        }
        return true;
    });
}

} // namespace tvr::platform
