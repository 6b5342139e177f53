// The sorted list of atoms of one dictionary half during a transaction: plans changes into them, lets the
// oldest go, and has the changed ones written again.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "dict/atom.h"
#include "dict/dict_folder.h"
#include "msid/msid_access.h"
#include "stage/temp_folder.h"

namespace tvr {

inline constexpr std::uint32_t column_signature = 0x454A546F; // of a .col file

// Lives for one stage. Belongs to the transaction's thread.
class bye_ring : public tmpfld_holder {
public:
    // Run-wide values, set by the sorting stage: the usual size of an atom and the wanted size of a half,
    // both in messages. The counter is reset by open() and follows every change.
    static inline std::uint32_t atom_size = 666;
    static inline std::uint32_t base_limit = 666;
    static inline std::uint32_t messages_seen = 0;

    // Opens the atoms of `name` in the stage's folder. If there are none, those of `folder` (with a trailing
    // backslash) are tidied up there and linked to the stage's folder first.
    void open(std::string_view folder, std::string_view name, std::uint32_t stage);

    [[nodiscard]] std::uint32_t messages_total() const noexcept; // wraps

    // The first `usual_quota` messages of the run go by the usual atom size, the others by `calculated_size`
    // (0: all by the usual one).
    void set_atom_size(std::uint32_t usual_quota, std::uint32_t calculated_size) noexcept;
    // Gives a change to the first atom whose span reaches to `stamp` (minutes) and that has room. False if no
    // atom took it.
    bool place_in_span(std::uint64_t offset, std::uint32_t stamp, bool positive);
    // Gives an addition to an atom beside its time, or to a new one, whose file it makes. Does nothing for a
    // removal.
    void place_by_time(std::uint64_t offset, std::uint32_t stamp, bool positive);
    // Deletes the oldest atoms, with their files, while the half holds base_limit messages or more without
    // them; their spans are added to `ranges`.
    void forget_oldest(aged_out_list& ranges);

    // Writes the changed half to the folder of `stage`, with the messages read from `message_file`. Does
    // nothing if that can't be opened; an atom that can't be written is left out, with a log line.
    void finalize(std::uint32_t stage, const std::string& message_file, msid_access& msids);

    // The plan, in "<name>.col" of the stage's folder. A file that can't be opened changes nothing.
    void save_col(std::uint32_t stage);
    void load_col(std::uint32_t stage); // replaces all atoms

    [[nodiscard]] std::span<const std::unique_ptr<bye_atom>> atoms() const noexcept { return m_atoms; }

private:
    [[nodiscard]] std::uint32_t limit_in_force() const noexcept;
    [[nodiscard]] std::string col_path(std::uint32_t stage);
    void sort_atoms();

    std::vector<std::unique_ptr<bye_atom>> m_atoms;
    std::optional<dict_folder> m_files; // after open()
    std::string m_name;
    std::uint32_t m_usual_quota = 0;
    std::uint32_t m_calculated_size = 0;
};

} // namespace tvr
