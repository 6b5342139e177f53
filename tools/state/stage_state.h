// What stands in the working folders of a user's training, and what is wrong with how it stands there.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "common/file_names.h"
#include "stage/temp_folder.h"

namespace tvr {

enum class stage_fault {
    batch_missing,       // stage 1 is marked
    batch_moved_on,      // to stage 2, which was not marked any more
    batch_unmarked,      // in stage 1
    messages_missing,    // stage 2 is marked
    half_alone,          // stage 3 or 4 is marked, without the other and without stage 2
    half_out_of_turn,    // stage 4 is marked without 3
    publishing_cut_off,  // both halves are marked, but part of one is in the base already
    generation_unmarked, // both halves are in place
    broken_off,          // a stage without its marker
    merge_broken_off,    // of the snapshot with new messages
    base_missing,        // the compiled one
    time_mark_missing,   // of the compiled base
    copy_left,           // no fault: a stage that the engine begins again
};

struct stage_problem {
    stage_fault fault;
    unsigned stage; // 0: none
    std::string path;
    std::string reason;
};

// The markers and what they stand for, as they are when the object is made. Holds no file.
class stage_state {
public:
    static constexpr unsigned stages = 6;

    explicit stage_state(const std::string& working_directory); // with a trailing backslash

    [[nodiscard]] bool exists(unsigned stage) const { return m_exists.at(stage); }
    [[nodiscard]] bool marked(unsigned stage) const { return m_marked.at(stage); }
    [[nodiscard]] std::string folder(unsigned stage) const; // with a trailing backslash
    [[nodiscard]] std::string marker(unsigned stage) const;
    [[nodiscard]] const std::string& base() const { return m_base; }
    [[nodiscard]] const std::string& transact() const { return m_transact; }
    // The file that the engine takes as the batch of stage 1, or an empty text.
    [[nodiscard]] const std::string& batch() const { return m_batch; }
    [[nodiscard]] bool has_batch() const { return m_has_batch; } // and there is something in it

    // In the order in which they are to be repaired. `quiet`: the engine runs, so that much may be
    // unfinished.
    [[nodiscard]] std::vector<stage_problem> problems(bool quiet) const;

private:
    void add_half_problems(std::vector<stage_problem>& found) const;
    void add_batch_problems(std::vector<stage_problem>& found) const;
    void add_base_problems(std::vector<stage_problem>& found) const;
    [[nodiscard]] bool publishing_cut_off() const;

    std::string m_base, m_transact;
    std::array<bool, stages + 1> m_exists{}, m_marked{};
    std::string m_batch;
    bool m_has_batch = false;
    bool m_has_messages = false; // data.bys in stage 2
};

// True if `whole` begins with `part`, or ends with it, the first `skipped` bytes of `part` (and, where they
// begin alike, those of `whole`) left aside. A missing or empty part is no part.
[[nodiscard]] bool begins_with_file(const std::string& whole, const std::string& part, std::uint64_t skipped);
[[nodiscard]] bool ends_with_file(const std::string& whole, const std::string& part, std::uint64_t skipped);

struct base_half {
    const char* name;
    std::uint32_t stage; // whose folder holds the half before it is put in place
};
// In the order of the text; also that in which they are marked as ready: the engine throws the first one away
// if the second isn't.
constexpr std::array<base_half, 2> base_halves = {
    {{names::good_half, stage_number::ready_good}, {names::spam_half, stage_number::ready_spam}}};

// The half whose atoms a stage holds: "spamdict" for 3, "nspamdict" for 4.
[[nodiscard]] std::string half_of_stage(unsigned stage);

} // namespace tvr
