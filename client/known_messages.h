// Which messages the user's engine knows already: those that its halves have learned, and those that wait.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>

#include "client/tvr_ipc_export.h"

namespace tvr {

// The halves that know a message. What waits with a verdict will have that one alone.
struct known_as {
    bool ham = false;
    bool spam = false;
    bool waits = false; // for the next training, or for the end of one that is under way

    explicit operator bool() const noexcept { return ham || spam; }
    [[nodiscard]] bool as(bool is_spam) const noexcept { return is_spam ? spam : ham; }
};

// By the message ID of a cache record (see make_msid() and mail_facts). Reads the lists of both halves, the
// cache, and what a training under way has taken of it; takes no lock, and hinders nobody. One thread.
// A message is forgotten by the engine as it ages; then it is not known here either.
class TVR_IPC_EXPORT known_messages {
public:
    static constexpr std::size_t most = std::size_t{1} << 20; // messages of a file that are looked at

    explicit known_messages(std::string_view working_directory); // with a backslash at the end; knows nothing

    // Reads the files as they are now; what note() was told is in them. A file that is missing or damaged
    // counts as far as it can be read.
    void load();
    [[nodiscard]] known_as find(std::string_view msid) const;
    // Whether to learn the message as `spam` would count it twice. A verdict by the user's own hand
    // (`manual`) counts again where both halves know the message: nobody can tell which of them was the last.
    [[nodiscard]] bool is_learned(std::string_view msid, bool spam, bool manual) const;
    // The message has been appended to the cache.
    void note(std::string_view msid, bool spam);

private:
    using verdicts = std::unordered_map<std::string, known_as>;

    static void read_list(const std::string& path, const std::string& stage_path, bool spam, verdicts& into);
    static verdicts read_records(const std::string& path);

    std::string m_base; // folder
    verdicts m_waiting;
    verdicts m_learned;
};

} // namespace tvr
