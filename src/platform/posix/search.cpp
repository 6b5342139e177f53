#include "platform/file.h"

#include <algorithm>
#include <bitset>
#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <vector>

#include "platform/ascii.h"
#include "platform/error.h"
#include "platform/posix/errors.h"
#include "platform/posix/file_state.h"
#include "platform/posix/paths.h"

namespace tvr::platform {

namespace {

constexpr std::size_t longest_pattern = 511;

// A pattern of names. All its positions that a name may have reached are followed at once, so that no
// pattern takes long.
class name_pattern {
public:
    explicit name_pattern(std::string_view text) : m_text(text == "*.*" ? "*" : text) {
        for (char& c : m_text)
            c = lower(c);
    }

    [[nodiscard]] bool matches(std::string_view name) const {
        positions at;
        at.set(0);
        skip(at, name.empty() || name[0] == '.', name.empty());
        for (std::size_t i = 0; i < name.size(); ++i) {
            at = step(at, lower(name[i]));
            skip(at, i + 1 == name.size() || name[i + 1] == '.', i + 1 == name.size());
        }
        return at.test(m_text.size());
    }

private:
    using positions = std::bitset<longest_pattern + 1>;

    [[nodiscard]] positions step(const positions& at, char c) const {
        positions next;
        for (std::size_t i = 0; i < m_text.size(); ++i) {
            if (!at.test(i))
                continue;
            if (m_text[i] == '*')
                next.set(i);
            else if (m_text[i] == '?' || m_text[i] == c)
                next.set(i + 1);
        }
        return next;
    }

    // What takes no character: any "*", a "?" before a dot or the end, and at the end the dot in
    // front of a "*" or "?", so that "name*.*" finds names without a dot.
    void skip(positions& at, bool before_dot, bool at_end) const {
        for (std::size_t i = 0; i < m_text.size(); ++i) {
            const char c = m_text[i];
            const bool wild_follows = i + 1 < m_text.size() && (m_text[i + 1] == '*' || m_text[i + 1] == '?');
            if (at.test(i) && (c == '*' || (c == '?' && before_dot) || (c == '.' && at_end && wild_follows)))
                at.set(i + 1);
        }
    }

    std::string m_text;
};

bool is_dots(std::string_view name) {
    return name == "." || name == "..";
}

bool comes_first(const std::string& a, const std::string& b) {
    return is_dots(a) != is_dots(b) ? is_dots(a) : a < b;
}

} // namespace

struct directory_search::state {
    std::unique_ptr<DIR, int (*)(DIR*)> folder{nullptr, closedir};
    std::vector<std::string> names; // all matches of the moment when the search began
    std::size_t next = 0;

    bool collect(const name_pattern& pattern) {
        errno = 0;
        while (const dirent* found = readdir(folder.get())) {
            const std::string_view name = found->d_name;
            // A backslash in a name would lead to another place.
            if (name.find('\\') == std::string_view::npos && pattern.matches(name))
                names.emplace_back(name);
            errno = 0;
        }
        std::sort(names.begin(), names.end(), comes_first);
        return errno == 0 || posix::fail_errno();
    }

    void take(directory_entry& entry) {
        entry.name = names[next++];
        struct stat info {};
        // deliberate: a link counts as a file, so that whoever cleans a folder doesn't follow it
        if (fstatat(dirfd(folder.get()), entry.name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0 ||
            S_ISLNK(info.st_mode))
            entry.attributes = attribute::archive;
        else
            entry.attributes = (S_ISDIR(info.st_mode) ? attribute::directory : attribute::archive) |
                               (posix::is_read_only(info.st_mode) ? attribute::read_only : 0);
    }
};

directory_search::directory_search() noexcept = default;
directory_search::~directory_search() = default;

bool directory_search::first(std::string_view pattern, directory_entry& entry) {
    close();
    const std::size_t cut = pattern.rfind('\\') + 1;
    const std::string_view name = pattern.substr(cut);
    const bool has_drive_alone = cut == 0 && pattern.size() >= 2 && pattern[1] == ':';
    const std::string folder =
        cut == 0 && !has_drive_alone ? "." : posix::native_path(pattern.substr(0, cut));
    if (name.size() > longest_pattern || has_drive_alone)
        return posix::fail(error::invalid_name);
    auto search = std::make_unique<state>();
    search->folder.reset(opendir(folder.c_str()));
    if (!search->folder)
        return errno == ENOENT ? posix::fail(error::path_not_found) : posix::fail_errno();
    if (name.empty())
        return posix::fail(error::file_not_found);
    if (!search->collect(name_pattern(name)))
        return false;
    if (search->names.empty())
        return posix::fail(error::file_not_found);
    m_state = std::move(search);
    m_state->take(entry);
    return true;
}

bool directory_search::next(directory_entry& entry) {
    if (!m_state)
        return posix::fail(error::invalid_handle);
    if (m_state->next == m_state->names.size())
        return posix::fail(error::no_more_files);
    m_state->take(entry);
    return true;
}

void directory_search::close() noexcept {
    m_state.reset();
}

} // namespace tvr::platform
