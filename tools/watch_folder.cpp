#include "tools/watch_folder.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <system_error>

#include "common/text.h"
#include "tools/mail_source.h"
#include "tools/watch_memory.h"

namespace tvr {

namespace fs = std::filesystem;

namespace {

std::string absolute_path(const std::string& path) {
    std::error_code error;
    fs::path whole = fs::canonical(path, error);
    if (error)
        whole = fs::absolute(path, error).lexically_normal();
    std::string text = whole.string();
    while (text.size() > 1 && text.back() == '/')
        text.pop_back();
    return text;
}

std::string_view file_name(std::string_view path) {
    return path.substr(path.rfind('/') + 1);
}

template <std::size_t size>
bool is_one_of(std::string_view word, const std::array<std::string_view, size>& words) {
    return std::find(words.begin(), words.end(), word) != words.end();
}

} // namespace

std::optional<bool> verdict_of_folder(std::string_view path) {
    constexpr std::array<std::string_view, 6> spam_names = {"spam",       "junk",      "junk e-mail",
                                                            "junk email", "junk mail", "bulk mail"};
    constexpr std::array<std::string_view, 8> ham_names = {"ham",     "inbox",    "maildir", "good",
                                                           "notspam", "not spam", "notjunk", "not junk"};
    std::string name = fs::path(absolute_path(std::string(path))).filename().string();
    name = to_lower(name.substr(name.rfind('.') + 1)); // the separator of a Maildir's folders
    std::replace(name.begin(), name.end(), '_', ' ');
    if (is_one_of(name, spam_names))
        return true;
    if (is_one_of(name, ham_names))
        return false;
    return std::nullopt;
}

mail_folder::mail_folder(const std::string& path, bool spam)
    : m_path(absolute_path(path)), m_spam(spam), m_key(watch_key(m_path)) {
    std::error_code error;
    if (fs::is_directory(m_path + "/cur", error) && fs::is_directory(m_path + "/new", error))
        m_parts = {m_path + "/new", m_path + "/cur"};
    else
        m_parts = {m_path};
}

bool mail_folder::is_message_name(std::string_view name) {
    return !name.empty() && name[0] != '.' && !is_mail_store_file(name);
}

std::uint64_t mail_folder::name_key(std::string_view name) const {
    return watch_key(is_maildir() ? name.substr(0, name.find(':')) : name);
}

std::optional<folder_file> mail_folder::look_at(const std::string& part, const std::string& name) const {
    const std::string path = part + "/" + name;
    std::error_code error;
    if (!fs::is_regular_file(path, error))
        return std::nullopt;
    folder_file file{.path = path, .name = name_key(name)};
    if (is_maildir())
        return file;
    const std::uintmax_t size = fs::file_size(path, error);
    const auto changed = error ? fs::file_time_type() : fs::last_write_time(path, error);
    if (error)
        return std::nullopt;
    const std::uint64_t both =
        watch_key(std::to_string(size) + " " + std::to_string(changed.time_since_epoch().count()));
    file.stamp = static_cast<std::uint32_t>(both ^ both >> 32);
    return file;
}

std::optional<std::vector<folder_file>> mail_folder::list() const {
    std::vector<folder_file> files;
    for (const std::string& part : m_parts) {
        std::error_code error;
        for (fs::directory_iterator it(part, error), end; it != end && !error; it.increment(error)) {
            const std::string name = it->path().filename().string();
            if (!is_message_name(name))
                continue;
            if (auto file = look_at(part, name))
                files.push_back(std::move(*file));
        }
        if (error)
            return std::nullopt;
    }
    std::sort(files.begin(), files.end(), [](const folder_file& a, const folder_file& b) {
        return file_name(a.path) < file_name(b.path);
    });
    return files;
}

} // namespace tvr
