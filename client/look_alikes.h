// Local words that are written with Latin look-alikes, brought to one spelling.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "client/tvr_ipc_export.h"

namespace tvr {

class settings;

// Partial transliteration of the words of a mail, by "spam transliteration table" and "local user alphabet".
// Any thread.
class TVR_IPC_EXPORT look_alikes {
public:
    // A table and an alphabet in UTF-8 go by their characters, others by their bytes.
    explicit look_alikes(std::shared_ptr<const settings> set);

    // By the user's settings, read once in a process, and without making a folder. Null unless "use
    // partically translitting" is set.
    static std::shared_ptr<const look_alikes> of_user();

    // The plain spelling of a word that has a letter of the alphabet, in `room`; of others, as they are.
    [[nodiscard]] std::string_view plain(std::string_view word, std::string& room) const;

private:
    [[nodiscard]] bool has_letter(std::string_view word) const;

    std::shared_ptr<const settings> m_set;
    std::vector<std::string> m_alphabet; // characters
    std::vector<std::string> m_entries;  // characters, of the codes from 32 on; empty where bytes count
};

} // namespace tvr
