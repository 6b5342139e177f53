#include "tools/watch/watch_folder.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "platform/fnv.h"
#include "tools/mail/mail_folders.h"
#include "tools/text.h"

namespace tvr {

namespace fs = std::filesystem;

namespace {

std::string absolute_path(const std::string& path) {
    std::error_code error;
    fs::path whole = fs::canonical(path, error);
    if (error)
        whole = fs::absolute(path, error).lexically_normal();
    return (whole.has_filename() ? whole : whole.parent_path()).string(); // without a slash at the end
}

std::string_view file_name(std::string_view path) {
    return path.substr(path.rfind('/') + 1);
}

} // namespace

std::optional<bool> verdict_of_folder(std::string_view path) {
    const std::string name = fs::path(absolute_path(std::string(path))).filename().string();
    return verdict_of_name(
        std::string_view(name).substr(name.rfind('.') + 1)); // a Maildir's folders have parts
}

mail_folder::mail_folder(const std::string& path, bool spam)
    : m_path(absolute_path(path)), m_spam(spam), m_key(fnv_64(m_path)) {
    if (tvr::is_maildir(m_path))
        m_parts = {m_path + "/new", m_path + "/cur"};
    else
        m_parts = {m_path};
}

bool mail_folder::is_message_name(std::string_view name) {
    return !name.empty() && name[0] != '.' && !is_mail_store_file(name);
}

std::uint64_t mail_folder::name_key(std::string_view name) const {
    return fnv_64(is_maildir() ? name.substr(0, name.find(':')) : name);
}

std::optional<folder_file> mail_folder::look_at(const std::string& part, const std::string& name) const {
    const std::string path = part + "/" + name;
    std::error_code error;
    if (!fs::is_regular_file(path, error) || (is_maildir() && is_thrown_away(name)))
        return std::nullopt;
    folder_file file{.path = path, .name = name_key(name)};
    if (is_maildir())
        return file;
    const std::uintmax_t size = fs::file_size(path, error);
    const auto changed = error ? fs::file_time_type() : fs::last_write_time(path, error);
    if (error)
        return std::nullopt;
    const std::uint64_t both =
        fnv_64(std::to_string(size) + " " + std::to_string(changed.time_since_epoch().count()));
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
