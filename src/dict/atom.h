// One atom of a dictionary half: a file with the token counts of a batch of messages from one span of time,
// and the changes that a transaction plans for it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "common/fileheader.h"
#include "common/pool.h"
#include "msid/msidmap.h"

namespace tvr {

class dword_map;
class file_stream;
class msid_access;
class message_reader;

// The head of an atom file (.bye).
struct atom_head {
    static constexpr std::uint32_t signature = 0x19780702;

    atom_head();
    atom_head(const atom_head&) = delete;
    atom_head& operator=(const atom_head&) = delete;

    // Reads the head at the stream's position, or at the start of `memory` (`behind`: the offset after it).
    // After false all values are 0.
    bool read(file_stream& file);
    bool read(std::span<const std::uint8_t> memory, std::size_t& behind);
    // The same of a file, which stays as free for others as it was.
    bool peek(std::string_view path);

    // Made by a division: its tokens belong to no messages that are known.
    [[nodiscard]] bool is_ordinal() const noexcept { return oldest != 0 && oldest == newest; }

    std::uint32_t messages = 0;
    std::uint32_t tokens = 0;      // distinct ones
    std::uint32_t occurrences = 0; // the sum of all counts; wraps
    std::uint32_t oldest = 0;      // minutes since 1601, of the first message
    std::uint32_t newest = 0;      // minutes; 0 if that is the same time
    fileheader header;
};

// The order of atoms in all lists: by `oldest`, among equals the one with more messages first, then by name.
bool atom_is_before(const atom_head& a, std::string_view a_name, const atom_head& b, std::string_view b_name);

// Belongs to the transaction's thread. Planning changes nothing on disk.
class bye_atom : public atom_head {
public:
    // A message to be added (or taken out), by its position in the message file.
    struct change {
        std::uint64_t offset = 0;
        bool positive = false;
    };

    bye_atom();
    ~bye_atom();

    // Takes the path and reads the head. A file that can't be opened leaves all values 0.
    void open(std::string_view path);

    // Records a change and counts it in `messages`, the stamps and bye_ring::messages_seen. A stamp (minutes)
    // from the future becomes now. An ordinal atom takes no addition.
    void add_message(std::uint64_t offset, std::uint32_t stamp, bool positive);
    // The same if the atom has room (less than `limit` messages) or something to give. False if it hasn't.
    bool try_add(std::uint64_t offset, std::uint32_t stamp, bool positive, std::uint32_t limit);

    // Adds the token counts of all changes, with their signs, to `final`, and brings the message IDs up to
    // date. A change whose record can't be read is passed over.
    void apply_changes(dword_map& final, message_reader& reader, msid_access& msids);
    // Writes the atom with the differences of `final` to `folder`: a link if they change nothing, no file if
    // no token is left. `strict`: takes the differences as they are and clears `final`; otherwise no count
    // falls below 0, and `final` keeps what could not be taken out. False if a file can't be opened, linked
    // or written whole; in the last case the atom stands there as it was.
    bool rewrite(dword_map& final, std::string_view folder, bool strict);
    // Dissolves the atom: its span and message IDs go to `target` (may be null), its changes and all its
    // tokens to `final`. The file stays.
    void fold(dword_map& final, message_reader& reader, msid_access& msids, bye_atom* target);

    void remove_file() const;                            // if it has a name
    void mark_to_merge() noexcept { m_to_merge = true; } // deliberate: no caller here
    [[nodiscard]] bool to_merge() const noexcept { return m_to_merge; }

    [[nodiscard]] const std::string& path() const noexcept { return m_path; }
    [[nodiscard]] std::span<const change> changes() const noexcept { return m_changes; }

    // The record of a .col file. A loaded atom has no message IDs of its own. False if path or head can't be
    // read; what else is cut off counts as not there.
    bool save_record(file_stream& file) const;
    bool load_record(file_stream& file);

private:
    msidmap* msids();
    void give_span_to(bye_atom& target);
    // Moves the differences to the counts. True if that changed any.
    bool take_differences(dword_map& final, dword_map& counts, bool strict);
    bool take_all(dword_map& final, dword_map& counts);
    bool write_file(const std::string& target, dword_map& counts, bool in_order); // as flush_ordered() has it

    std::vector<change> m_changes;
    std::string m_path;
    bool m_to_merge = false;
    bool m_has_msids = false; // opened from its file, and so with the message IDs of that
    std::unique_ptr<msidmap, pool_deleter> m_msids;
};

} // namespace tvr
