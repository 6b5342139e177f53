#include "tools/mail/mail_folders.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <set>
#include <system_error>

#include "common/text.h"

namespace tvr {

namespace fs = std::filesystem;

namespace {

template <std::size_t size>
bool is_one_of(std::string_view word, const std::array<std::string_view, size>& words) {
    return std::find(words.begin(), words.end(), word) != words.end();
}

// In lower case, with blanks for underscores.
std::string plain_name(std::string_view name) {
    std::string plain = to_lower(name);
    std::replace(plain.begin(), plain.end(), '_', ' ');
    return plain;
}

// Without links; as far as it exists.
fs::path real_path(const fs::path& path) {
    std::error_code error;
    fs::path real = fs::weakly_canonical(path, error);
    if (error)
        real = fs::absolute(path, error).lexically_normal();
    return real.has_filename() ? real : real.parent_path(); // without a slash at the end
}

class search {
public:
    search(const mail_paths& paths, const pass_report& passed) : m_paths(paths), m_passed(passed) {
        for (const auto* half : {&paths.spam, &paths.ham})
            for (const std::string& path : *half)
                if (path != "-")
                    m_named.insert(real_path(path));
    }

    void add(const std::string& path, bool spam) {
        if (path == "-") {
            m_files.push_back({path, spam, true});
            return;
        }
        const fs::path real = real_path(path);
        if (!m_taken.insert(real).second)
            return;
        std::error_code error;
        const fs::file_status status = fs::status(path, error);
        if (fs::is_directory(status))
            add_folder(path, real, spam, true);
        else if (fs::exists(status))
            m_files.push_back({path, spam, true});
        else
            pass(passed_mail::kind::lost, path, error ? error.message() : "no such file or folder");
    }

    std::vector<mail_file> take() { return std::move(m_files); }

private:
    void add_folder(const fs::path& path, const fs::path& real, bool spam, bool is_named) {
        const bool maildir = is_maildir(path.string());
        std::error_code error;
        std::vector<fs::directory_entry> inside;
        for (fs::directory_iterator it(path, error), end; !error && it != end; it.increment(error))
            inside.push_back(*it);
        if (error)
            pass(is_named ? passed_mail::kind::lost : passed_mail::kind::skipped, path, error.message());
        std::sort(inside.begin(), inside.end());
        const bool has_flags = path.filename() == "cur";
        for (const fs::directory_entry& item : inside) {
            const fs::path real_item = real / item.path().filename();
            if (m_named.contains(real_item))
                continue; // it belongs to the nearer path
            // Links to folders could lead round in circles.
            if (!item.is_directory(error))
                add_met_file(item, maildir, spam, has_flags);
            else if (!item.is_symlink(error))
                add_met_folder(item.path(), real_item, maildir, spam);
        }
    }

    void add_met_folder(const fs::path& path, const fs::path& real, bool in_maildir, bool spam) {
        const std::string name = path.filename().string();
        if (is_mail_store_file(name))
            return;
        if (in_maildir && (name == "cur" || name == "new")) {
            add_folder(path, real, spam, false);
            return;
        }
        if (in_maildir ? !m_paths.recursive || name == "tmp" : name[0] == '.')
            return;
        if (const char* const why = m_paths.everything ? nullptr : objection_to(name, spam))
            pass(passed_mail::kind::left_out, path, why);
        else
            add_folder(path, real, spam, false);
    }

    void add_met_file(const fs::directory_entry& item, bool in_maildir, bool spam, bool has_flags) {
        const fs::path& path = item.path();
        const std::string name = path.filename().string();
        std::error_code error;
        if (in_maildir || name[0] == '.' || is_mail_store_file(name))
            return; // the messages of a Maildir lie in its folders
        if (!item.is_regular_file(error))
            pass(passed_mail::kind::skipped, path, "not a file");
        else if (const char* const why = m_paths.everything ? nullptr : objection_to(name, spam))
            pass(passed_mail::kind::left_out, path, why);
        else if (has_flags && !m_paths.everything && is_thrown_away(name))
            pass(passed_mail::kind::thrown_away, path, "thrown away");
        else
            m_files.push_back({path.string(), spam, false});
    }

    void pass(passed_mail::kind what, const fs::path& path, const std::string& why) {
        m_passed({what, path.string(), path.parent_path().string(), why});
    }

    const mail_paths& m_paths;
    const pass_report& m_passed;
    std::set<fs::path> m_named;
    std::set<fs::path> m_taken; // of those
    std::vector<mail_file> m_files;
};

} // namespace

std::vector<mail_file> find_mail(const mail_paths& paths, const pass_report& passed) {
    search all(paths, passed);
    for (const std::string& path : paths.spam)
        all.add(path, true);
    for (const std::string& path : paths.ham)
        all.add(path, false);
    return all.take();
}

std::string path_conflict(const mail_paths& paths) {
    std::set<fs::path> spam;
    for (const std::string& path : paths.spam)
        spam.insert(path == "-" ? fs::path(path) : real_path(path));
    for (const std::string& path : paths.ham)
        if (spam.contains(path == "-" ? fs::path(path) : real_path(path)))
            return path + ": given both as spam and as ham";
    return {};
}

bool is_maildir(const std::string& folder) {
    std::error_code error;
    return fs::is_directory(fs::path(folder) / "cur", error) &&
           fs::is_directory(fs::path(folder) / "new", error);
}

bool is_thrown_away(std::string_view name) noexcept {
    const std::size_t flags = name.rfind(":2,");
    return flags != std::string_view::npos && name.find_first_of("TD", flags + 3) != std::string_view::npos;
}

bool is_mail_store_file(std::string_view name) noexcept {
    constexpr std::array<std::string_view, 4> starts = {"dovecot", "maildirfolder", "courierimap",
                                                        "subscriptions"};
    return std::any_of(starts.begin(), starts.end(),
                       [&](std::string_view start) { return name.starts_with(start); });
}

std::optional<bool> verdict_of_name(std::string_view name) {
    constexpr std::array<std::string_view, 6> spam_names = {"spam",       "junk",      "junk e-mail",
                                                            "junk email", "junk mail", "bulk mail"};
    constexpr std::array<std::string_view, 8> ham_names = {"ham",     "inbox",    "maildir", "good",
                                                           "notspam", "not spam", "notjunk", "not junk"};
    const std::string plain = plain_name(name);
    if (is_one_of(plain, spam_names))
        return true;
    if (is_one_of(plain, ham_names))
        return false;
    return std::nullopt;
}

const char* objection_to(std::string_view name, bool spam) {
    constexpr std::array<std::string_view, 18> not_received = {
        "trash",         "deleted",   "deleted items", "deleted messages", "bin",    "wastebasket",
        "drafts",        "draft",     "templates",     "outbox",           "sent",   "sent items",
        "sent messages", "sent mail", "sent-mail",     "unsent messages",  "unsent", "rubbish bin"};
    constexpr std::array<std::string_view, 3> extensions = {".mbox", ".mbx", ".sbd"};
    if (name.starts_with(".INBOX.")) // where all of them lie, for some servers
        name.remove_prefix(6);
    const bool has_parts = name.starts_with('.');
    if (!has_parts)
        for (const std::string_view extension : extensions)
            if (name.ends_with(extension))
                name.remove_suffix(extension.size());
    for (std::size_t at = has_parts ? 1 : 0; at <= name.size();) {
        const std::size_t end = has_parts ? std::min(name.find('.', at), name.size()) : name.size();
        const std::string_view part = name.substr(at, end - at);
        if (is_one_of(plain_name(part), not_received))
            return "left out by its name; it is taken only if it is named itself";
        if (const auto tells = verdict_of_name(part); tells && *tells != spam)
            return spam ? "left out, as its name tells of good mail" : "left out, as its name tells of spam";
        at = end + 1;
    }
    return nullptr;
}

} // namespace tvr
