// A folder of mail that is watched: what its name says, which messages lie in it, and how they are known.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tvr {

// The verdict (true for spam) that the last part of a folder's name tells, as verdict_of_name() does: also as
// ".Spam" or ".INBOX.Spam" in a Maildir.
[[nodiscard]] std::optional<bool> verdict_of_folder(std::string_view path);

// A message file as it lies there.
struct folder_file {
    std::string path;
    std::uint64_t name = 0;  // the key of its name, in a Maildir without the flags
    std::uint32_t stamp = 0; // of its size and the time of its last change; 0 in a Maildir
    bool certain = true;     // nobody is known to be still writing it
};

class mail_folder {
public:
    mail_folder(const std::string& path, bool spam); // one that exists

    [[nodiscard]] const std::string& path() const noexcept { return m_path; } // absolute, without links
    [[nodiscard]] bool spam() const noexcept { return m_spam; }
    [[nodiscard]] bool is_maildir() const noexcept { return m_parts.size() == 2; }
    [[nodiscard]] std::uint64_t key() const noexcept { return m_key; }

    // The folders in which its messages lie: "new" and "cur" of a Maildir, otherwise itself.
    [[nodiscard]] const std::vector<std::string>& parts() const noexcept { return m_parts; }

    // False for hidden names and for what mail programs keep beside the messages.
    [[nodiscard]] static bool is_message_name(std::string_view name);
    [[nodiscard]] std::uint64_t name_key(std::string_view name) const;
    // The file of that name; nothing if it isn't there, is no file, or is thrown away by its owner.
    [[nodiscard]] std::optional<folder_file> look_at(const std::string& part, const std::string& name) const;
    // All messages in it, by name. Nothing if it can't be read to its end.
    [[nodiscard]] std::optional<std::vector<folder_file>> list() const;

private:
    std::string m_path;
    bool m_spam;
    std::vector<std::string> m_parts;
    std::uint64_t m_key;
};

} // namespace tvr
