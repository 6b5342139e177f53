#include "tools/settings/setting_file.h"

#include <algorithm>
#include <filesystem>

#include "client/user_folder.h"
#include "common/file_stream.h"
#include "common/files.h"
#include "common/path.h"
#include "common/text.h"
#include "platform/error.h"
#include "platform/file.h"
#include "settings/settings.h"

namespace tvr {

namespace {

// The line with a new value; what follows the old one stays if the line still means the value.
std::optional<std::string> changed_line(std::string_view line, std::string_view key, std::string_view value) {
    const std::string start = std::string(line.substr(0, line.find('='))) + "=";
    std::string_view rest = line.substr(start.size());
    const std::size_t begin = std::min(rest.find_first_not_of(" \t"), rest.size());
    const std::string blanks(rest.substr(0, begin));
    rest.remove_prefix(begin);
    std::string_view comment;
    if (rest.starts_with('"')) {
        const std::size_t end = rest.find('"', 1);
        comment = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
    } else if (const std::size_t end = rest.find(';'); end != std::string_view::npos) {
        const std::size_t last = rest.substr(0, end).find_last_not_of(" \t");
        comment = rest.substr(last == std::string_view::npos ? 0 : last + 1);
    }
    for (const std::string_view behind : {comment, std::string_view()}) {
        std::string made = start + blanks + "\"" + std::string(value) + "\"" + std::string(behind);
        const auto parsed = parse_setting_line(made);
        if (parsed && equals_ignoring_case(parsed->name, key) && parsed->value == value)
            return made;
    }
    return std::nullopt;
}

} // namespace

std::string read_setting_file(const std::string& path, std::string& text) {
    text.clear();
    const std::string shown = platform::display_path(path);
    file_stream file;
    if (!file.open_to_read(path)) {
        const std::uint32_t code = platform::last_error();
        if (code == platform::error::file_not_found || code == platform::error::path_not_found)
            return {};
        return shown + ": can't be read (error " + std::to_string(code) + ")";
    }
    const std::uint64_t size = file.size().value_or(0);
    if (size > largest_setting_file)
        return shown + ": larger than 1 MiB; the engine doesn't read it";
    text.resize(static_cast<std::size_t>(size));
    std::size_t got = 0;
    if (!file.read(text.data(), text.size(), got))
        return shown + ": can't be read";
    text.resize(got);
    return {};
}

std::string write_setting_file(const std::string& path, const std::string& text) {
    namespace fs = std::filesystem;
    const std::string shown = platform::display_path(path);
    const auto refuse = [&] {
        return shown + ": " + reason_text(platform::last_error()) +
               "; without the right to write there, a root of your own can be registered: "
               "\"tvrctl config root FOLDER\"";
    };
    // Not by rewrite_durably(): others may write the file at the same time, and its rights are kept.
    const auto beside = platform::make_temp_file(folder_part(path), "set");
    if (!beside)
        return refuse();
    const auto write = [&] {
        platform::file file;
        return file.open(*beside, platform::access::write, platform::share::none,
                         platform::creation::create_always) &&
               file.write(text.data(), text.size());
    };
    if (write()) {
        std::error_code error;
        if (const auto old = fs::status(shown, error); !error && fs::exists(old))
            fs::permissions(platform::display_path(*beside), old.permissions(), error);
        if (replace_durably(*beside, path))
            return {};
    }
    std::string why = refuse();
    platform::delete_file(*beside);
    return why;
}

std::optional<std::string> with_setting(std::string_view text, std::string_view key, std::string_view value) {
    if (value.find_first_of(std::string_view("\r\n\0", 3)) != std::string_view::npos)
        return std::nullopt;
    const std::size_t first_end = text.find('\n');
    const bool dos = first_end != std::string_view::npos && first_end != 0 && text[first_end - 1] == '\r';
    std::size_t found = std::string_view::npos;
    std::size_t found_size = 0;
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = std::min(text.find('\n', start), text.size());
        std::string_view line = text.substr(start, end - start);
        if (line.ends_with('\r'))
            line.remove_suffix(1);
        const auto parsed = parse_setting_line(line);
        if (parsed && equals_ignoring_case(parsed->name, key)) {
            found = start;
            found_size = line.size();
        }
        start = end + 1;
    }
    if (found != std::string_view::npos) {
        const auto line = changed_line(text.substr(found, found_size), key, value);
        return line ? std::optional(std::string(text).replace(found, found_size, *line)) : std::nullopt;
    }
    const auto line = changed_line(std::string(key) + "=", key, value);
    if (!line)
        return std::nullopt;
    const char* const line_end = dos ? "\r\n" : "\n";
    std::string result(text);
    if (!result.empty() && result.back() != '\n')
        result += line_end;
    return result.append(*line).append(line_end);
}

} // namespace tvr
