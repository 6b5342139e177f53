#include "server/log_merge.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "common/file_stream.h"
#include "common/path.h"
#include "common/text_stream.h"
#include "platform/file.h"

namespace tvr {

namespace {

constexpr std::array<std::string_view, 19> log_names = {
    "tvr_ipc.log",  "tvr_srv.log",     "oe_mail.log",   "ol_mail.log",  "oe_mydb.log",
    "tb_mail.log",  "ol_gui.log",      "oe_scan.log",   "ol_scan.log",  "oe_train.log",
    "ol_train.log", "oe_sink_old.log", "memlog.log",    "transact.log", "selection.log",
    "enum.log",     "expiredmail.log", "unit_test.log", "profiler.log"};

constexpr std::size_t longest_line = 4096; // bytes; the rest of a longer one comes as a line of its own
constexpr std::size_t stamp_size = 19;     // a stamp with its date
constexpr std::size_t head_size = 20;      // what stays before the mark
constexpr std::size_t mark_size = 7;
constexpr std::string_view line_ends = "\r\n";

std::size_t end_of_line(std::string_view text, std::size_t start) {
    return std::min(text.find_first_of(line_ends, start), text.size());
}

// A log and its current line, which is empty once there are no more.
class source_log {
public:
    explicit source_log(std::string path) : m_path(std::move(path)) { read_line(); }

    // The file is opened for each line, so that those who write the log are not kept from it.
    void read_line() {
        std::array<char, longest_line + 1> _buf;
        const std::string_view text = read_text(_buf);
        const std::size_t start = std::min(text.find_first_not_of(line_ends), text.size());
        std::size_t end = end_of_line(text, start);
        // deliberate: a letter at the start of a line, no matter of which word, makes it belong to this one.
        std::size_t next = 0;
        while ((next = text.find_first_not_of(line_ends, end)) != std::string_view::npos && text[next] == 'r')
            end = end_of_line(text, next);
        m_line = text.substr(start, end - start);
        m_offset += end;
    }

    [[nodiscard]] const std::string& line() const { return m_line; }
    [[nodiscard]] std::string_view stamp() const { return std::string_view(m_line).substr(0, stamp_size); }
    [[nodiscard]] std::string_view mark() const { return file_part(m_path).substr(0, mark_size); }

private:
    // The text at the offset, up to a zero byte.
    std::string_view read_text(std::array<char, longest_line + 1>& buffer) const {
        platform::file file;
        std::size_t got = 0;
        if (file.open(m_path, platform::access::read, platform::share::read,
                      platform::creation::open_existing) &&
            file.seek(static_cast<std::int64_t>(m_offset), platform::origin::begin))
            file.read(buffer.data(), longest_line, got);
        buffer[got] = '\0';
        return buffer.data();
    }

    std::string m_path;
    std::uint64_t m_offset = 0;
    std::string m_line;
};

// The log whose line is the oldest; among equal ones, the first. Null when all are at their end.
source_log* oldest(std::vector<source_log>& logs) {
    source_log* cur_elem = nullptr;
    for (source_log& log : logs)
        if (!log.line().empty() && (!cur_elem || log.stamp() < cur_elem->stamp()))
            cur_elem = &log;
    return cur_elem;
}

} // namespace

void merge_logs(std::string_view folder) {
    std::vector<source_log> logs;
    logs.reserve(log_names.size());
    for (const std::string_view name : log_names)
        logs.emplace_back(join_path(folder, name));

    file_stream os;
    os.open(join_path(folder, "common.log"), platform::access::write, platform::share::read_write,
            platform::creation::create_always);
    while (source_log* const cur_elem = oldest(logs)) {
        std::string line = cur_elem->line();
        const std::string mark = " " + std::string(cur_elem->mark());
        if (line.size() > head_size)
            line.insert(head_size, mark + " ");
        else
            line += mark;
        line += '\n';
        write_text(os, line);
        cur_elem->read_line();
    }
}

} // namespace tvr
