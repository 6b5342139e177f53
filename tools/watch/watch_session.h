// The work of `tvrctl watch`: learns the mail that comes into folders by their verdict.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "client/known_messages.h"
#include "client/tokenizer.h"
#include "client/tvr_ipc.h"
#include "platform/folder_watch.h"
#include "tools/watch/watch_folder.h"
#include "tools/watch/watch_memory.h"

namespace tvr {

// One a user: its memory is a file of the working directory. Holds a handful of messages in memory, and some
// bytes for each file of the folders.
class watch_session {
public:
    // Told of what happens: a line for the user, and whether it is a fault.
    using report = std::function<void(const std::string& line, bool is_fault)>;

    watch_session(std::vector<mail_folder> folders, report told);

    // Begins to watch, and learns what has come since the last run; `all`: everything that it doesn't know as
    // learned. Returns the reason of a failure, or an empty text.
    std::string start(bool all);
    // Goes on until a stop is requested. Returns as start() does.
    std::string run();

private:
    // A folder and how it is watched.
    struct watched {
        mail_folder folder;
        std::vector<int> numbers; // of its parts, and of a Maildir itself; -1: not watched
        bool missing = false;
        bool unread = true; // its files are still to be listed
    };
    // What is to be done about a file once its folder is quiet.
    struct pending_file {
        std::string part;
        std::string name;
        bool gone = false;
        bool completed = false;
    };
    using pending_key = std::pair<std::size_t, std::uint64_t>; // folder, name
    struct arrival {
        std::size_t folder = 0;
        folder_file file;
    };
    // A message of a chunk that may have to be learned.
    struct candidate {
        std::uint64_t message = 0;
        bool was_learned = false; // with the other verdict
        bool is_known = false;    // with this one, though the memory doesn't tell
        record_batch record;
    };
    struct chunk {
        std::map<std::string, candidate> candidates; // by the ID in the cache
        std::vector<arrival> files;                  // that are known once it is done
        std::size_t bytes = 0;
        bool spam = false; // of all of them
    };

    bool watch_parts(watched& one);
    void check_folders();
    void note_changes(const std::vector<platform::folder_change>& changes);
    void note_change(std::size_t index, std::size_t part, const platform::folder_change& change);
    void take_pending(bool is_quiet);
    void read_folders(bool all);
    void take(const std::vector<arrival>& arrivals);
    bool read_mail(const arrival& mail, chunk& into);
    void learn(chunk& mails);
    void save();
    void try_later(const std::string& why);
    void hand_over(bool corrected);
    void raise_if_due();
    [[nodiscard]] std::uint32_t pause() const;
    [[nodiscard]] bool is_missing_any() const;

    std::vector<watched> m_folders;
    report m_told;
    training_client m_client;
    std::string m_cache;
    watch_memory m_memory;
    known_messages m_known;
    platform::folder_watch m_watch;
    tokenizer m_cut;

    std::map<pending_key, pending_file> m_pending;
    std::uint32_t m_first_pending = 0; // tick of the oldest one
    std::uint32_t m_checked = 0;       // tick of the last look at the folders themselves
    std::uint32_t m_failed = 0;        // tick of the last failure
    std::string m_failure;             // told last, and not overcome since
    bool m_try_again = false;          // to read the folders, some time after the failure
    std::uint32_t m_raised = 0;        // tick of the last attempt to reach the engine
    std::uint32_t m_looked = 0;        // tick of the last look whether a training is due
    unsigned m_not_reached = 0;        // such attempts in a row that failed
};

} // namespace tvr
