// The two dictionary halves together, and the compiled base that is generated from them.
#pragma once

#include <string>
#include <string_view>

#include "compiled/hashreg.h"
#include "dict/dict_folder.h"

namespace tvr {

// Made for one run. Belongs to the transaction's thread. deliberate: of the map and the header that it
// inherits nothing is used.
class dict_pair : public hashreg {
public:
    explicit dict_pair(std::string_view folder); // of the dictionaries, with a trailing backslash

    // Tidies both dictionaries up (empty atoms are deleted, old ones divided), chooses the atoms that take
    // part, merges them and writes every graded token to a new file at `path`. True; a failed write isn't
    // noticed. Also writes the selective list.
    bool generate_base(const std::string& path);

private:
    dict_folder m_spam_folder;
    dict_folder m_nspam_folder;
    std::string m_basepath;
};

} // namespace tvr
