#include "tools/mail/mail_source.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <iostream>
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
    : m_passed(std::move(passed)), m_files(find_mail(paths, m_passed)), m_everything(paths.everything) {
    for (const mail_file& file : m_files)
        m_total += file.size;
}

bool mail_source::open_next() {
    while (m_next < m_files.size()) {
        const mail_file& file = m_files[m_next++];
        if (file.path == "-") {
            m_input = &std::cin;
        } else {
            m_file.close();
            m_file.clear();
            m_file.open(file.path, std::ios::binary);
            if (!m_file) {
                const int code = errno;
                pass(file.is_named ? passed_mail::kind::lost : passed_mail::kind::skipped, file.path,
                     std::strerror(code));
                m_done += file.size;
                continue;
            }
            m_input = &m_file;
        }
        m_number = 0;
        m_ahead = fetch_line();
        read_line();
        m_is_mbox = m_line.starts_with("From ");
        return true;
    }
    return false;
}

// A line with its end, or as much of one as fits in the buffer; empty at the end of the file.
std::string mail_source::fetch_line() {
    std::array<char, 65536> room;
    if (!m_input->good())
        return {};
    m_input->getline(room.data(), room.size());
    const bool is_cut = m_input->fail() && m_input->gcount() > 0;
    if (is_cut)
        m_input->clear();
    else if (m_input->fail())
        return {};
    const auto got = static_cast<std::size_t>(m_input->gcount());
    std::string line(room.data(), got - (is_cut || m_input->eof() ? 0 : 1));
    if (!is_cut && !m_input->eof())
        line.push_back('\n');
    return line;
}

bool mail_source::read_line() {
    m_line = std::exchange(m_ahead, {});
    if (m_is_mbox || m_number == 0)
        m_ahead = fetch_line();
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
        m_done += piece.size();
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
        std::array<char, 65536> piece;
        while (m_input->good() && (m_input->read(piece.data(), piece.size()), m_input->gcount() > 0))
            take({piece.data(), static_cast<std::size_t>(m_input->gcount())});
        m_line.clear();
    }
    item.number = m_is_mbox && (m_number > 1 || !m_line.empty()) ? m_number : 0;
    item.name = item.file + (item.number != 0 ? ", message " + std::to_string(item.number) : "");
    if (m_input->bad())
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
        if (!m_input && !open_next())
            return false;
        if (!read_message(item))
            m_input = nullptr;
        else if (accept(item)) {
            item.index = m_given++;
            return true;
        }
    }
}

} // namespace tvr
