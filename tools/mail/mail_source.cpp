#include "tools/mail/mail_source.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <utility>

#include "client/tokenizer.h"
#include "common/text.h"
#include "platform/fnv.h"
#include "tools/text.h"

namespace tvr {

namespace {

// Calls visit(line) for each line of the header; a continuation is a line of its own.
template <class Visitor>
void for_each_header_line(std::string_view raw, Visitor visit) {
    while (!raw.empty()) {
        const std::size_t end = std::min(raw.find('\n'), raw.size() - 1) + 1;
        const std::string_view line = trim(raw.substr(0, end), "\r\n");
        if (line.empty())
            return;
        visit(line);
        raw.remove_prefix(end);
    }
}

// Whether a line begins with "Name:".
bool is_field(std::string_view line) noexcept {
    std::size_t at = 0;
    while (at < line.size() && line[at] > ' ' && line[at] < 127 && line[at] != ':')
        ++at;
    return at != 0 && at < line.size() && line[at] == ':';
}

// The value of a header line of that name; empty if it is another.
std::string_view value_of(std::string_view line, std::string_view name) {
    if (line.size() <= name.size() || line[name.size()] != ':' || !starts_with_ignoring_case(line, name))
        return {};
    return trim(line.substr(name.size() + 1));
}

// Whether the mail program has marked a message of an mbox as deleted: it goes when the mbox is next cleaned.
bool is_expunged(std::string_view raw) {
    constexpr std::uint32_t mozilla_expunged = 8;
    bool found = false;
    for_each_header_line(raw, [&](std::string_view line) {
        const std::string_view bits = value_of(line, "X-Mozilla-Status");
        std::uint32_t number = 0;
        std::from_chars(bits.data(), bits.data() + bits.size(), number, 16);
        found = found || (number & mozilla_expunged) != 0 ||
                value_of(line, "Status").find('D') != std::string_view::npos ||
                value_of(line, "X-Status").find('D') != std::string_view::npos;
    });
    return found;
}

} // namespace

bool is_mbox_line(std::string_view line) noexcept {
    if (!line.starts_with("From "))
        return false;
    constexpr std::array<std::string_view, 7> days = {" Mon ", " Tue ", " Wed ", " Thu ",
                                                      " Fri ", " Sat ", " Sun "};
    constexpr std::array<std::string_view, 12> months = {"Jan ", "Feb ", "Mar ", "Apr ", "May ", "Jun ",
                                                         "Jul ", "Aug ", "Sep ", "Oct ", "Nov ", "Dec "};
    for (const std::string_view day : days) {
        const std::size_t at = line.find(day, 5);
        if (at == std::string_view::npos)
            continue;
        const std::string_view rest = line.substr(at + day.size());
        if (std::any_of(months.begin(), months.end(),
                        [&](std::string_view month) { return rest.starts_with(month); }) &&
            rest.find(':') != std::string_view::npos)
            return true;
    }
    return false;
}

std::uint64_t mail_key(std::string_view raw) {
    constexpr std::array<std::string_view, 4> names = {"Message-ID", "Date", "From", "Subject"};
    std::array<std::string_view, 4> values;
    for_each_header_line(raw, [&](std::string_view line) {
        for (std::size_t i = 0; i < names.size(); ++i)
            if (values[i].empty())
                values[i] = value_of(line, names[i]);
    });
    if (values[0].empty())
        return fnv_64(raw);
    std::string all;
    for (const std::string_view value : values)
        all.append(value).push_back('\n');
    return fnv_64(all);
}

mail_source::mail_source(const mail_paths& paths, pass_report passed)
    : m_passed(std::move(passed)), m_files(find_mail(paths, m_passed)), m_everything(paths.everything) {}

std::uint64_t mail_source::done() const {
    if (!m_input.is_open())
        return m_next * part;
    std::error_code error;
    const std::uintmax_t size = std::filesystem::file_size(m_files[m_next - 1].path, error);
    const std::uint64_t whole = error || size < m_read || size == 0 ? m_read : size;
    return (m_next - 1) * part + (whole != 0 ? m_read * part / whole : 0);
}

bool line_reader::open(const std::string& path) {
    m_begin = m_end = 0;
    m_file.reset(path == "-" ? stdin : std::fopen(path.c_str(), "rb"));
    if (m_file)
        std::setvbuf(m_file.get(), nullptr, _IONBF, 0);
    return m_file != nullptr;
}

bool line_reader::fill() {
    if (m_begin != 0)
        std::memmove(m_buffer.get(), m_buffer.get() + m_begin, m_end - m_begin);
    m_end -= std::exchange(m_begin, 0);
    const std::size_t got = std::fread(m_buffer.get() + m_end, 1, room - m_end, m_file.get());
    m_end += got;
    return got != 0;
}

void line_reader::next_line(std::string& line) {
    for (std::size_t searched = 0;;) {
        const char* const start = m_buffer.get() + m_begin;
        const void* const end = std::memchr(start + searched, '\n', m_end - m_begin - searched);
        const std::size_t size =
            end ? static_cast<std::size_t>(static_cast<const char*>(end) - start) + 1 : m_end - m_begin;
        if (!end && size < room && fill()) {
            searched = size;
            continue;
        }
        line.assign(m_buffer.get() + m_begin, size);
        m_begin += size;
        return;
    }
}

std::string_view line_reader::next_block() {
    if (m_begin == m_end && !fill())
        return {};
    const std::size_t start = std::exchange(m_begin, m_end);
    return {m_buffer.get() + start, m_end - start};
}

bool mail_source::open_next() {
    while (m_next < m_files.size()) {
        const mail_file& file = m_files[m_next++];
        if (!m_input.open(file.path)) {
            const int code = errno;
            pass(file.is_named ? passed_mail::kind::lost : passed_mail::kind::skipped, file.path,
                 std::strerror(code));
            continue;
        }
        m_number = 0;
        m_read = 0;
        m_input.next_line(m_ahead);
        read_line();
        m_is_mbox = m_line.starts_with("From ");
        return true;
    }
    return false;
}

bool mail_source::read_line() {
    m_line.swap(m_ahead);
    if (m_is_mbox || m_number == 0)
        m_input.next_line(m_ahead);
    else
        m_ahead.clear();
    return !m_line.empty();
}

// Some programs write no date; then a header has to follow.
bool mail_source::begins_message() const {
    return is_mbox_line(m_line) || (m_line.starts_with("From ") && is_field(m_ahead));
}

// Reads to the end of the file, or to the next line that begins a message.
bool mail_source::read_message(mail_item& item) {
    const mail_file& file = m_files[m_next - 1];
    if (m_number != 0 && m_line.empty())
        return false;
    ++m_number;
    item.spam = file.spam;
    item.file = file.path == "-" ? "standard input" : file.path;
    item.raw.clear();
    item.size = 0;
    const auto take = [&](std::string_view piece) {
        m_read += piece.size();
        item.size += piece.size();
        item.raw.append(piece.substr(0, largest - std::min(largest, item.raw.size())));
    };
    take(m_line);
    if (m_is_mbox) {
        bool blank = false; // the line before
        bool whole = true;  // the line before had its end
        while (read_line() && !(blank && begins_message())) {
            blank = whole && m_line.find_first_not_of("\r\n") == std::string::npos;
            whole = m_line.ends_with('\n');
            take(m_line);
        }
    } else {
        take(m_ahead);
        for (std::string_view block = m_input.next_block(); !block.empty(); block = m_input.next_block())
            take(block);
        m_line.clear();
    }
    item.number = m_is_mbox && (m_number > 1 || !m_line.empty()) ? m_number : 0;
    item.name = item.file + (item.number != 0 ? ", message " + std::to_string(item.number) : "");
    if (m_input.failed())
        pass(file.is_named ? passed_mail::kind::lost : passed_mail::kind::skipped, item.name,
             "can't be read to its end");
    return true;
}

bool mail_source::accept(const mail_item& item) {
    if (item.raw.find_first_not_of(" \t\r\n") == std::string::npos)
        pass(passed_mail::kind::skipped, item.name, "empty");
    else if (!looks_like_mail(item.raw))
        pass(passed_mail::kind::skipped, item.name, "no mail: it doesn't begin with a header");
    else if (m_is_mbox && !m_everything && is_expunged(item.raw))
        pass(passed_mail::kind::thrown_away, item.name, "marked as deleted");
    else
        return true;
    return false;
}

void mail_source::pass(passed_mail::kind what, const std::string& name, const char* why) {
    const std::string& path = m_files[m_next - 1].path;
    const bool is_one_of_many = m_number != 0 && m_is_mbox;
    m_passed(
        {what, name, is_one_of_many ? path : (std::filesystem::path(path).parent_path() / "").string(), why});
}

bool mail_source::next(mail_item& item) {
    for (;;) {
        if (!m_input.is_open() && !open_next())
            return false;
        if (!read_message(item))
            m_input.close();
        else if (accept(item)) {
            item.index = m_given++;
            return true;
        }
    }
}

} // namespace tvr
