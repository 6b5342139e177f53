#include "compiled/selective_list.h"

#include "common/file_names.h"
#include "common/files.h"
#include "common/path.h"
#include "common/text_stream.h"
#include "platform/file.h"
#include "settings/settings.h"

namespace tvr {

namespace {

constexpr std::string_view opening = R"~~((?x-i)[\r\t\s\,\;\:\/\=\\\"\(\)\{\}\[\]\']()~~";
constexpr std::string_view closing = R"~~()[\r\t\s\,\;\:\/\=\\\"\(\)\{\}\[\]\'])~~";
constexpr std::string_view escaped_bytes = ".,~!@#$%^&*-+|<>\xBB\x96";
constexpr std::size_t longest_line = 40000; // bytes of alternatives, before the escaping of the last one

std::string list_path(std::string_view name) {
    return join_path(join_path(current_settings()->working_directory.expanded, "base"), name);
}

// Empty for a text that can't stand in a pattern.
std::string escape(std::string_view body) {
    std::string escaped;
    for (const char byte : body) {
        if (escaped_bytes.find(byte) != std::string_view::npos)
            escaped += '\\';
        else if (static_cast<unsigned char>(byte) > 127)
            return {};
        escaped += byte;
    }
    return escaped;
}

} // namespace

void selective_list::start() {
    m_enabled = current_settings()->export_selective_download != 0;
    m_pending.clear();
    if (m_enabled)
        m_output.create_to_write(list_path(names::new_selective));
}

void selective_list::add_token(std::string_view text, std::uint32_t count) {
    if (!m_enabled || count < current_settings()->selective_download_spam_threshold ||
        !text.starts_with("H ") || text.starts_with("H h "))
        return;
    const std::string_view body = text.substr(2);
    if (m_pending.size() + body.size() > longest_line)
        write_line();
    const std::string escaped = escape(body);
    if (escaped.empty())
        return;
    if (!m_pending.empty())
        m_pending += '|';
    m_pending += escaped;
}

void selective_list::write_line() {
    for (const std::string_view part :
         {opening, std::string_view(m_pending), closing, std::string_view("\n")})
        write_text(m_output, part);
    m_pending.clear();
}

void selective_list::finish() {
    if (!m_enabled)
        return;
    if (!m_pending.empty())
        write_line();
    m_output.close();
    const std::string written = list_path(names::new_selective);
    if (link_or_copy(written, list_path(names::selective), false))
        platform::delete_file(written);
}

} // namespace tvr
