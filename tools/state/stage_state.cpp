#include "tools/state/stage_state.h"

#include <algorithm>
#include <cstdint>

#include "common/file_names.h"
#include "common/path.h"
#include "dict/dict_folder.h"
#include "platform/file.h"
#include "stage/temp_folder.h"
#include "tools/formats/file_view.h"

namespace tvr {

namespace {

constexpr std::uint64_t count_size = 4; // bytes before the records of a cache

bool has_content(const std::string& path) {
    std::uint8_t byte = 0;
    return platform::peek_file(path, 0, &byte, 1).value_or(0) == 1;
}

std::uint64_t size_of(const std::string& path) {
    platform::file probe; // with no rights: hinders nobody
    if (!probe.open(path, platform::access::none, platform::share::read_write,
                    platform::creation::open_existing))
        return 0;
    return probe.size().value_or(0);
}

bool equal_bytes(const std::string& a, std::uint64_t a_at, const std::string& b, std::uint64_t b_at,
                 std::uint64_t size) {
    file_view left(a);
    file_view right(b);
    left.go_to(a_at);
    right.go_to(b_at);
    while (size != 0) {
        const auto x = left.ahead(1);
        const auto y = right.ahead(1);
        const std::size_t common =
            static_cast<std::size_t>(std::min<std::uint64_t>(size, std::min(x.size(), y.size())));
        if (common == 0 || !std::equal(x.begin(), x.begin() + static_cast<std::ptrdiff_t>(common), y.begin()))
            return false;
        left.skip(common);
        right.skip(common);
        size -= common;
    }
    return true;
}

} // namespace

bool begins_with_file(const std::string& whole, const std::string& part, std::uint64_t skipped) {
    const std::uint64_t size = size_of(part);
    return size > skipped && size <= size_of(whole) &&
           equal_bytes(whole, skipped, part, skipped, size - skipped);
}

bool ends_with_file(const std::string& whole, const std::string& part, std::uint64_t skipped) {
    const std::uint64_t size = size_of(part);
    const std::uint64_t all = size_of(whole);
    return size > skipped && size <= all &&
           equal_bytes(whole, all - (size - skipped), part, skipped, size - skipped);
}

std::string half_of_stage(unsigned stage) {
    return base_halves.at(base_halves[0].stage == stage ? 0 : 1).name;
}

stage_state::stage_state(const std::string& working_directory)
    : m_base(working_directory + names::base_folder), m_transact(m_base + names::transact_folder) {
    for (unsigned stage = 1; stage <= stages; ++stage) {
        m_exists.at(stage) = is_folder(folder(stage));
        m_marked.at(stage) = is_file(marker(stage));
    }
    const auto batches = file_names(folder(1), (std::string(names::entered_prefix) + "*.*").c_str());
    if (!batches.empty())
        m_batch = folder(1) + batches.front();
    m_has_batch = !m_batch.empty() && has_content(m_batch);
    m_has_messages = is_file(folder(2) + names::sorted_messages);
}

std::string stage_state::folder(unsigned stage) const {
    return m_transact + names::stage_folder(stage);
}

std::string stage_state::marker(unsigned stage) const {
    return join_path(folder(stage), names::stage_marker);
}

// The first files to leave a stage are those of the message IDs of the half that was made last; nothing
// leaves before folder 6 was made.
bool stage_state::publishing_cut_off() const {
    return marked(3) && marked(4) && exists(6) && !marked(6) && !is_file(folder(4) + names::good_list);
}

void stage_state::add_half_problems(std::vector<stage_problem>& found) const {
    if (marked(2) && !m_has_messages)
        found.push_back({stage_fault::messages_missing, 2, marker(2),
                         "the messages of the stage, data.bys, aren't there"});
    if (marked(3) && !marked(2) && !marked(4))
        found.push_back({stage_fault::half_alone, 3, marker(3),
                         "the engine is stuck: stage 3 is marked without 2 and 4"});
    if (marked(4) && !marked(3))
        found.push_back({marked(2) ? stage_fault::half_out_of_turn : stage_fault::half_alone, 4, marker(4),
                         "stage 4 is marked without 3: its work will be lost, and a batch that waits too"});
    if (publishing_cut_off())
        found.push_back(
            {stage_fault::publishing_cut_off, 4, folder(4),
             "putting the halves in place was broken off: what is in place already will be lost"});
}

void stage_state::add_batch_problems(std::vector<stage_problem>& found) const {
    const bool moved_on = !marked(2) && m_has_messages && !m_has_batch && !marked(3) && !marked(4);
    if (marked(1) && !m_has_batch)
        found.push_back({moved_on ? stage_fault::batch_moved_on : stage_fault::batch_missing, 1, marker(1),
                         "the engine is stuck: the marked batch isn't there"});
    else if (exists(1) && !marked(1) && m_has_batch) {
        if (begins_with_file(m_transact + names::snapshot, m_batch, count_size))
            found.push_back({stage_fault::copy_left, 1, folder(1), "a copy of the snapshot, not marked yet"});
        else
            found.push_back({stage_fault::batch_unmarked, 1, folder(1),
                             "a batch without its marker: its messages will be lost"});
    } else if (exists(1) && !marked(1)) {
        found.push_back({stage_fault::copy_left, 1, folder(1), "an empty stage without its marker"});
    }
    const bool publishes = publishing_cut_off() || (!marked(2) && marked(3) != marked(4));
    for (unsigned stage = 2; stage <= stages; ++stage) {
        const bool holds_batch = stage == 2 && moved_on;
        if (!exists(stage) || marked(stage) || (stage == 6 && publishes) || (holds_batch && marked(1)))
            continue;
        if (stage == 6 && !marked(3) && !marked(4))
            found.push_back({stage_fault::generation_unmarked, stage, folder(stage),
                             "both halves are in place, but no compiled base was made of them"});
        else
            found.push_back({holds_batch ? stage_fault::batch_moved_on : stage_fault::broken_off, stage,
                             folder(stage),
                             "a stage without its marker: it was broken off, and begins again"});
    }
}

void stage_state::add_base_problems(std::vector<stage_problem>& found) const {
    if (is_file(m_transact + names::merged_snapshot))
        found.push_back({stage_fault::merge_broken_off, 0, m_transact + names::merged_snapshot,
                         "left of a merge of waiting messages that was broken off"});
    const auto has_atoms = [this](const std::string& half) {
        return !file_names(m_base, (half + names::any_atom).c_str()).empty();
    };
    const bool generates = exists(6) || (marked(3) && marked(4)) || marked(2);
    if (is_file(m_base + names::base)) {
        if (!generates && !is_file(m_base + names::base_mark))
            found.push_back({stage_fault::time_mark_missing, 0, m_base + names::base_mark,
                             "the compiled base has no time mark: nobody notices it"});
    } else if (!generates && (has_atoms(names::spam_half) || has_atoms(names::good_half))) {
        found.push_back({stage_fault::base_missing, 0, m_base + names::base,
                         "the compiled base is missing, and there are atoms"});
    }
}

std::vector<stage_problem> stage_state::problems(bool quiet) const {
    std::vector<stage_problem> found;
    add_half_problems(found);
    add_batch_problems(found);
    if (!quiet) {
        add_base_problems(found);
        return found;
    }
    std::erase_if(
        found, [](const stage_problem& problem) { return problem.fault == stage_fault::publishing_cut_off; });
    for (stage_problem& problem : found)
        if (problem.fault == stage_fault::broken_off || problem.fault == stage_fault::batch_unmarked ||
            problem.fault == stage_fault::generation_unmarked ||
            (problem.fault == stage_fault::batch_moved_on && problem.stage == 2)) {
            problem.fault = stage_fault::copy_left;
            problem.reason = "a stage without its marker; the engine may be at work on it";
        }
    return found;
}

} // namespace tvr
