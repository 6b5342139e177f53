#include "settings/settings.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <memory>

#include "common/file_stream.h"
#include "common/text.h"
#include "settings/field_access.h"

namespace tvr {

namespace {

constexpr std::uint32_t basic = 0;
constexpr std::uint32_t advanced = 1;

std::unique_ptr<settings> the_settings;

// The lines of a text, without their ends.
template <class Action>
void for_each_line(std::string_view text, Action&& action) {
    while (!text.empty()) {
        std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(text.size(), line.size() + 1));
        if (line.ends_with('\r'))
            line.remove_suffix(1);
        action(line);
    }
}

// Reals in the form of the C locale, whatever the locale is: with six digits, as streams write them.
std::string real_text(double value) {
    std::array<char, 32> text{};
    const auto end =
        std::to_chars(text.data(), text.data() + text.size(), value, std::chars_format::general, 6);
    return {text.data(), end.ptr};
}

// The number that the text begins with, 0 if it is none.
double real_value(std::string_view text) {
    text.remove_prefix(std::min(text.size(), text.find_first_not_of(" \t\r\n\f\v")));
    if (text.starts_with('+') && !text.starts_with("+-"))
        text.remove_prefix(1);
    double value = 0;
    std::from_chars(text.data(), text.data() + text.size(), value);
    return value;
}

constexpr std::uint64_t text_limit = std::uint64_t{1} << 20; // bytes; a larger settings file is not read

} // namespace

void base_settings::schema(schema_mode mode) {
    if (mode == schema_mode::declare)
        declare(basic, field_type::path, &working_directory.expanded, "working directory",
                &working_directory.raw);
    else if (mode == schema_mode::basic_defaults)
        working_directory.expanded = "c:\\"; // deliberate: does not survive the next expansion
}

void base_settings::declare(std::uint32_t group, field_type type, void* member, const char* key,
                            std::string* raw) {
    m_fields.push_back({member, raw, key, type, group});
}

void base_settings::expand_all() {
    for (const field_descriptor& field : m_fields)
        expand(field);
}

std::uint32_t base_settings::load(const std::string* binary_file, const std::string* text_file,
                                  std::uint32_t which) {
    std::uint32_t failed = 0;
    if (which & store_binary && (!binary_file || !load_binary(*binary_file)))
        failed |= store_binary;
    if (which & store_text) {
        schema(schema_mode::advanced_defaults);
        if (!text_file || text_file->empty() || !read_text(*text_file, advanced))
            failed |= store_text;
    }
    return failed;
}

std::uint32_t base_settings::save(const std::string* binary_file, const std::string* text_file,
                                  std::uint32_t which) {
    std::uint32_t failed = 0;
    if (which & store_binary && (!binary_file || !save_binary(*binary_file)))
        failed |= store_binary;
    if (which & store_text && (!text_file || text_file->empty() || !write_text(*text_file, advanced)))
        failed |= store_text;
    return failed;
}

bool base_settings::read_text(std::string_view file, std::uint32_t group) {
    file_stream in;
    if (!in.open_to_read(file))
        return false;
    const std::uint64_t size = in.size().value_or(0);
    if (size > text_limit)
        return false;
    std::string text(static_cast<std::size_t>(size), '\0');
    std::size_t got = 0;
    in.read(text.data(), text.size(), got);
    text.resize(got);
    for_each_line(text, [&](std::string_view line) {
        const auto parsed = parse_setting_line(line);
        if (!parsed)
            return;
        // deliberate: names are lowered and keys are not, so that a key with capitals is never found.
        const std::string name = to_lower(parsed->name);
        for (const field_descriptor& field : m_fields) {
            if (field.group == group && name == field.key) {
                assign_text(field, parsed->value);
                break;
            }
        }
    });
    return true;
}

bool base_settings::write_text(std::string_view file, std::uint32_t group) {
    file_stream out;
    if (!out.create_to_write(file))
        return false;
    for (const field_descriptor& field : m_fields) {
        if (field.group != group)
            continue;
        const std::string line = std::string(field.key) + "=\"" + value_text(field) + "\"\n";
        out.write(line.data(), line.size());
    }
    out.raw().flush(); // the old ones are gone
    return out.close();
}

std::string base_settings::value_text(const field_descriptor& field) {
    switch (field.type) {
    case field_type::string:
        return text_of(field);
    case field_type::path:
        return *field.raw;
    case field_type::flag:
        return flag_of(field) ? "1" : "0";
    case field_type::real:
        return real_text(real_of(field));
    default:
        return std::to_string(number_of(field));
    }
}

void base_settings::assign_text(const field_descriptor& field, std::string_view value) {
    const std::string text(value);
    switch (field.type) {
    case field_type::string:
        text_of(field) = text;
        break;
    case field_type::path:
        *field.raw = text;
        expand(field);
        break;
    case field_type::flag:
        flag_of(field) = std::strtol(text.c_str(), nullptr, 10) != 0 ? 1 : 0;
        break;
    case field_type::real:
        real_of(field) = real_value(value);
        break;
    default:
        number_of(field) = static_cast<std::uint32_t>(std::strtoul(text.c_str(), nullptr, 10));
        break;
    }
}

settings* current_settings() noexcept {
    return the_settings.get();
}

settings& make_current_settings() {
    if (!the_settings)
        the_settings = std::make_unique<settings>();
    return *the_settings;
}

} // namespace tvr
