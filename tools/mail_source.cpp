#include "tools/mail_source.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <system_error>

#include "client/tokenizer.h"

namespace tvr {

namespace fs = std::filesystem;

namespace {

bool is_maildir(const fs::path& folder) {
    std::error_code error;
    return fs::is_directory(folder / "cur", error) && fs::is_directory(folder / "new", error);
}

} // namespace

bool is_mail_store_file(std::string_view name) noexcept {
    constexpr std::array<std::string_view, 4> starts = {"dovecot", "maildirfolder", "courierimap",
                                                        "subscriptions"};
    return std::any_of(starts.begin(), starts.end(),
                       [&](std::string_view start) { return name.starts_with(start); });
}

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

void mail_source::add(const std::string& path, bool spam) {
    if (path == "-") {
        m_entries.push_back({path, 0, spam});
        return;
    }
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (fs::is_directory(status))
        add_folder(path, spam);
    else if (fs::exists(status))
        add_file(path, spam);
    else
        m_skipped(path, error ? error.message() : "no such file or folder");
}

void mail_source::add_folder(const std::string& path, bool spam) {
    std::error_code error;
    std::vector<fs::path> inside;
    for (fs::directory_iterator it(path, error), end; !error && it != end; it.increment(error))
        inside.push_back(it->path());
    if (error)
        m_skipped(path, error.message());
    std::sort(inside.begin(), inside.end());
    const bool maildir = is_maildir(path);
    for (const fs::path& item : inside) {
        const std::string name = item.filename().string();
        const bool link = fs::is_symlink(fs::symlink_status(item, error));
        if (fs::is_directory(item, error)) {
            // Folders of a Maildir begin with a dot. Links to folders could lead round in circles.
            if (!link && !(maildir && name == "tmp") && (maildir || name[0] != '.'))
                add_folder(item.string(), spam);
        } else if (name[0] != '.' && !is_mail_store_file(name)) {
            if (fs::is_regular_file(item, error))
                add_file(item.string(), spam);
            else
                m_skipped(item.string(), "not a file");
        }
    }
}

void mail_source::add_file(const std::string& path, bool spam) {
    std::error_code error;
    const std::uintmax_t size = fs::is_regular_file(path, error) ? fs::file_size(path, error) : 0;
    m_entries.push_back({path, error ? 0 : size, spam});
    m_total += m_entries.back().size;
}

bool mail_source::open_next() {
    while (m_next < m_entries.size()) {
        const entry& file = m_entries[m_next++];
        if (file.path == "-") {
            m_input = &std::cin;
        } else {
            m_file.close();
            m_file.clear();
            m_file.open(file.path, std::ios::binary);
            if (!m_file) {
                m_skipped(file.path, std::strerror(errno));
                m_done += file.size;
                continue;
            }
            m_input = &m_file;
        }
        m_number = 0;
        read_line();
        m_is_mbox = is_mbox_line(m_line);
        return true;
    }
    return false;
}

// A line with its end, or as much of one as fits in the buffer.
bool mail_source::read_line() {
    std::array<char, 65536> room;
    m_line.clear();
    if (!m_input->good())
        return false;
    m_input->getline(room.data(), room.size());
    const bool is_cut = m_input->fail() && m_input->gcount() > 0;
    if (is_cut)
        m_input->clear();
    else if (m_input->fail())
        return false;
    const auto got = static_cast<std::size_t>(m_input->gcount());
    m_line.assign(room.data(), got - (is_cut || m_input->eof() ? 0 : 1));
    if (!is_cut && !m_input->eof())
        m_line.push_back('\n');
    return !m_line.empty();
}

// Reads to the end of the file, or to the next line that begins a message.
bool mail_source::read_message(mail_item& item) {
    const entry& file = m_entries[m_next - 1];
    if (m_number != 0 && m_line.empty())
        return false;
    ++m_number;
    item.spam = file.spam;
    item.name = file.path == "-" ? "standard input" : file.path;
    item.raw.clear();
    const auto take = [&](std::string_view piece) {
        m_done += piece.size();
        if (item.raw.size() <= largest)
            item.raw.append(piece);
    };
    take(m_line);
    if (m_is_mbox) {
        bool blank = false; // the line before
        bool whole = true;  // the line before had its end
        while (read_line() && !(blank && is_mbox_line(m_line))) {
            blank = whole && m_line.find_first_not_of("\r\n") == std::string::npos;
            whole = m_line.ends_with('\n');
            take(m_line);
        }
    } else {
        std::array<char, 65536> piece;
        while (m_input->good() && (m_input->read(piece.data(), piece.size()), m_input->gcount() > 0))
            take({piece.data(), static_cast<std::size_t>(m_input->gcount())});
        m_line.clear();
    }
    if (m_input->bad())
        m_skipped(item.name, "can't be read to its end");
    if (m_is_mbox && (m_number > 1 || !m_line.empty()))
        item.name += ", message " + std::to_string(m_number);
    return true;
}

bool mail_source::accept(const mail_item& item) {
    if (item.raw.find_first_not_of(" \t\r\n") == std::string::npos)
        m_skipped(item.name, "empty");
    else if (item.raw.size() > largest)
        m_skipped(item.name, "larger than 64 MiB");
    else if (!looks_like_mail(item.raw))
        m_skipped(item.name, "no mail: it doesn't begin with a header");
    else
        return true;
    return false;
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
