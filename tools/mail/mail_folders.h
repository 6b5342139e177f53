// Which files are meant by the paths that a user names: files, mbox files, Maildirs, folders of messages.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tvr {

struct mail_paths {
    std::vector<std::string> spam = {};
    std::vector<std::string> ham = {};
    bool recursive = false;  // with the other folders of a Maildir
    bool everything = false; // whatever its names and flags say
};

// What is not given out, and why.
struct passed_mail {
    enum class kind {
        lost,       // a path that was named by itself, and can't be read
        skipped,    // no mail, or what can't be read
        left_out,   // a mailbox whose name speaks against the verdict
        thrown_away // by its owner: trashed, a draft, or marked as deleted
    };
    kind what = kind::skipped;
    std::string name;   // the path, and the number of the message in an mbox
    std::string place;  // the folder, or the mbox
    std::string reason; // for the user
};

using pass_report = std::function<void(const passed_mail&)>;

struct mail_file {
    std::string path; // "-" is standard input
    bool spam = false;
    bool is_named = false; // by itself, not by a folder
};

// The files in a fixed order: as the paths were added, spam first, folders by name. A Maildir is one mailbox:
// the folders in it are others. A plain folder stands for all below it. A file belongs to the nearest path
// that is named. Mailboxes below a path whose names tell of another verdict, of Trash, Drafts and their like
// are left out, as is what its owner has thrown away.
[[nodiscard]] std::vector<mail_file> find_mail(const mail_paths& paths, const pass_report& passed);

// Why these paths can't be learned together, the same one being given for both verdicts; or an empty text.
[[nodiscard]] std::string path_conflict(const mail_paths& paths);

[[nodiscard]] bool is_maildir(const std::string& folder);
// True for a name of a Maildir's file with the flags T (trashed) or D (draft).
[[nodiscard]] bool is_thrown_away(std::string_view maildir_name) noexcept;
// True for the names of what mail programs keep beside the messages of a folder.
[[nodiscard]] bool is_mail_store_file(std::string_view name) noexcept;

// The verdict (true for spam) that a folder's name tells: "Spam", "Junk", "Junk E-mail" and others; "Ham",
// "Inbox", "Maildir" and others; in any case.
[[nodiscard]] std::optional<bool> verdict_of_name(std::string_view name);
// Why a mailbox of this name isn't learned with this verdict when it is only met, or null if it is. The names
// of a Maildir's folders begin with a dot, and have one before each part.
[[nodiscard]] const char* objection_to(std::string_view name, bool spam);

} // namespace tvr
