#include "tools/repair/repair_plan.h"

#include <algorithm>
#include <cstdint>
#include <ostream>
#include <set>

#include "common/bytes.h"
#include "common/file_names.h"
#include "common/file_stream.h"
#include "common/files.h"
#include "common/path.h"
#include "platform/clock.h"
#include "platform/error.h"
#include "platform/file.h"
#include "stage/temp_folder.h"
#include "tools/formats/signatures.h"
#include "tools/text.h"

namespace tvr {

using namespace stage_number;

namespace {

constexpr std::uint64_t count_size = 4; // bytes before the records of a cache

std::string not_changed(const std::string& path) {
    return failure(path, "can't be changed");
}

std::string move(const std::string& from, const std::string& to) {
    return move_durably(from, to) ? std::string() : not_changed(from);
}

// The first reason of a failure among operations that follow each other.
template <class... Operations>
std::string in_turn(Operations&&... operations) {
    std::string why;
    static_cast<void>(((why = operations()).empty() && ...));
    return why;
}

std::string set_marker(const std::string& folder) {
    make_folders(folder);
    const std::string path = join_path(folder, names::stage_marker);
    platform::file marker;
    const bool done =
        marker.open(path, platform::access::write, platform::share::read, platform::creation::open_always) &&
        marker.write(stage_marker_text.data(), stage_marker_text.size()) && marker.set_end() &&
        marker.flush() && platform::make_durable({join_path(folder, ""), folder_of(path)});
    return done ? std::string() : not_changed(path);
}

std::string write_time_mark(repair_folder& folder, const std::string& path) {
    const std::string made = folder.unfinished(names::base_mark);
    file_stream file;
    const std::uint64_t now = platform::system_time();
    const bool written = file.create_to_write(made) && file.write_u32(static_cast<std::uint32_t>(now)) &&
                         file.write_u32(static_cast<std::uint32_t>(now >> 32));
    return file.close() && written ? folder.replace(made, path) : not_changed(made);
}

// Goes on with putting the finished half of a stage in place. It may have been begun: then the base holds a
// first part of the new atoms and none of the old ones.
std::string publish_half(repair_folder& folder, const stage_state& state, unsigned stage, bool generate) {
    const std::string half = half_of_stage(stage);
    const std::string source = state.folder(stage);
    const std::string target = state.base();
    const std::string list = half + names::list_ending, index = half + names::index_ending;
    if (is_file(source + list)) {
        if (std::string why = in_turn([&] { return folder.set_aside(target + index); },
                                      [&] { return folder.replace(source + list, target + list); });
            !why.empty())
            return why;
    }
    if (is_file(source + index))
        if (std::string why = folder.replace(source + index, target + index); !why.empty())
            return why;
    const std::string pattern = half + names::any_atom;
    const std::vector<std::string> made = file_names(source, pattern.c_str());
    const std::vector<std::string> old = file_names(target, pattern.c_str());
    // New atoms come in the order of their names. One that stands in the base after the first of those still
    // to come is an old one, and so are all. Otherwise an atom that is only there may be new, and stays.
    if (!made.empty() && !old.empty() && old.back() >= made.front())
        for (const bool has_successor : {false, true})
            for (const std::string& name : old)
                if (std::binary_search(made.begin(), made.end(), name) == has_successor)
                    if (std::string why = folder.set_aside(target + name); !why.empty())
                        return why;
    for (const std::string& name : made)
        if (std::string why = move(source + name, target + name); !why.empty())
            return why;
    // The next stage is marked before this one goes.
    return in_turn([&] { return generate ? set_marker(state.folder(generate_rgd)) : std::string(); },
                   [&] { return folder.set_aside(source); });
}

class planner {
public:
    explicit planner(repair_folder& folder)
        : m_folder(folder), m_state(folder.working()), m_none(nullptr),
          m_check(folder.working(), false, m_none) {}

    std::vector<repair_step> make() {
        m_check.run();
        plan_sorted_again();
        for (const stage_problem& problem : m_state.problems(false))
            plan_for(problem);
        for (const file_finding& finding : m_check.findings())
            plan_for(finding);
        return std::move(m_steps);
    }

private:
    using operation = std::function<std::string()>;

    void add(std::string text, operation run) { m_steps.push_back({std::move(text), std::move(run)}); }
    void add_aside(const std::string& path) {
        add("set aside " + shown(path),
            [this_folder = &m_folder, path] { return this_folder->set_aside(path); });
    }
    void set_aside(const std::string& path) {
        if (m_gone.insert(path).second)
            add_aside(path);
    }
    void add_time_mark(const std::string& path) {
        add("write " + shown(path) + " again",
            [this_folder = &m_folder, path] { return write_time_mark(*this_folder, path); });
    }
    // An unmarked folder with nothing in it is only taken away.
    void set_folder_aside(unsigned stage) {
        const std::string path = m_state.folder(stage);
        if (!m_gone.insert(path).second)
            return;
        platform::directory_search search;
        platform::directory_entry entry;
        bool empty = true;
        for (bool more = search.first(path + "*.*", entry); more; more = search.next(entry))
            empty = empty && (entry.name == "." || entry.name == "..");
        if (empty)
            add("remove " + shown(path) + ", which is empty",
                [path] { return platform::remove_directory(path) ? std::string() : not_changed(path); });
        else
            add_aside(path);
    }
    void regenerate() {
        if (m_state.marked(generate_rgd) || m_regenerates)
            return;
        m_regenerates = true;
        const std::string path = m_state.folder(generate_rgd);
        m_gone.insert(path); // so that it stays
        add("mark stage 6, so that the engine generates the compiled base again at its next start",
            [path] { return set_marker(path); });
    }
    [[nodiscard]] bool is_gone(const std::string& path) const {
        return m_gone.contains(path) || m_gone.contains(std::string(folder_part(path)));
    }

    // Gives the batch back to stage 1, whose work begins again.
    void plan_batch_back() {
        const std::string messages = m_state.folder(sorted) + names::sorted_messages;
        const std::string target = m_state.folder(entered);
        add("give the messages of stage 2 back to stage 1, so that they are sorted again",
            [=, this_folder = &m_folder] {
                make_folders(target);
                const std::string batch = target + names::entered_prefix + "0.tmp";
                return in_turn([&] { return this_folder->set_aside(batch); },
                               [&] { return move(messages, batch); }, [&] { return set_marker(target); });
            });
    }

    // Damage in stage 2, while its work is still needed: all of it is done again.
    void plan_sorted_again() {
        const std::string folder = m_state.folder(sorted);
        const std::string messages = folder + names::sorted_messages;
        if (!m_state.marked(sorted) || !is_file(messages))
            return;
        bool damaged = false;
        for (const file_finding& finding : m_check.findings())
            damaged = damaged ||
                      (folder_part(finding.path) == folder && is_input(finding) && !is_count_only(finding));
        const bool both_ready = m_state.marked(ready_spam) && m_state.marked(ready_good);
        if (damaged && both_ready)
            return set_folder_aside(sorted);
        for (const unsigned stage : {ready_good, ready_spam})
            if (m_state.exists(stage) && !both_ready && (damaged || has_damage(stage)))
                set_folder_aside(stage);
        if (both_ready && (has_damage(ready_spam) || has_damage(ready_good)))
            for (const unsigned stage : {ready_good, ready_spam})
                set_folder_aside(stage);
        if (!damaged)
            return;
        if (m_state.has_batch()) {
            set_folder_aside(sorted);
            return;
        }
        const std::string marker = m_state.marker(sorted);
        m_gone.insert(folder);
        add("take the marker of stage 2 away", [marker] {
            return platform::delete_file(marker) && platform::make_durable({folder_of(marker)})
                       ? std::string()
                       : not_changed(marker);
        });
        plan_batch_back();
        add_aside(folder);
        m_gone.insert(m_state.folder(entered));
    }
    // The maps in stage 2 are copied there by each stage that works on them.
    static bool is_input(const file_finding& finding) {
        return finding.kind != file_kind::list && finding.kind != file_kind::index &&
               finding.kind != file_kind::stage_mark;
    }
    static bool is_count_only(const file_finding& finding) {
        return finding.kind == file_kind::cache && finding.only_totals;
    }
    [[nodiscard]] bool has_damage(unsigned stage) const {
        const std::string folder = m_state.folder(stage);
        return std::any_of(m_check.findings().begin(), m_check.findings().end(), [&](const auto& finding) {
            return folder_part(finding.path) == folder && finding.kind != file_kind::stage_mark;
        });
    }

    void plan_for(const stage_problem& problem) {
        const std::string folder = problem.stage != 0 ? m_state.folder(problem.stage) : std::string();
        if (m_gone.contains(folder))
            return;
        switch (problem.fault) {
        case stage_fault::batch_missing:
        case stage_fault::broken_off:
        case stage_fault::half_out_of_turn:
        case stage_fault::messages_missing:
            return set_folder_aside(problem.stage);
        case stage_fault::batch_moved_on:
            plan_batch_back();
            m_gone.insert(m_state.folder(entered));
            return;
        case stage_fault::batch_unmarked:
            return add("mark stage 1, so that its messages are learned",
                       [folder] { return set_marker(folder); });
        case stage_fault::half_alone:
            return plan_publishing({problem.stage});
        case stage_fault::publishing_cut_off:
            return plan_publishing({ready_good, ready_spam});
        case stage_fault::merge_broken_off:
            return plan_merge();
        case stage_fault::base_missing:
        case stage_fault::generation_unmarked:
            return regenerate();
        case stage_fault::time_mark_missing:
            return add_time_mark(problem.path);
        case stage_fault::copy_left:
            return;
        }
    }

    void plan_publishing(std::vector<unsigned> halves) {
        for (const unsigned stage : halves) {
            const bool last = stage == halves.back();
            m_gone.insert(m_state.folder(stage));
            add("put the " + std::string(stage == ready_spam ? "spam" : "good") + " half of stage " +
                    std::to_string(stage) + " in place",
                [this_folder = &m_folder, state = m_state, stage, last] {
                    return publish_half(*this_folder, state, stage, last);
                });
        }
        m_gone.insert(m_state.folder(generate_rgd));
        m_regenerates = true;
    }

    // The merge writes "~~", puts it in the place of "~", and deletes the cache that is in it.
    void plan_merge() {
        const std::string cache = m_state.transact() + names::cache;
        const std::string snapshot = m_state.transact() + names::snapshot;
        const std::string merged = m_state.transact() + names::merged_snapshot;
        m_gone.insert(merged);
        const bool in_place = begins_with_file(snapshot, merged, 0) && begins_with_file(merged, snapshot, 0);
        const bool complete = !is_file(snapshot) || in_place;
        if (complete && ends_with_file(merged, cache, count_size)) // they are in the merged file
            set_aside(cache);
        if (is_file(snapshot))
            add_aside(merged);
        else
            add("make " + shown(merged) + " the snapshot", [=] { return move(merged, snapshot); });
    }

    void plan_for(const file_finding& finding) {
        const std::string& path = finding.path;
        if (is_gone(path))
            return;
        switch (finding.kind) {
        case file_kind::atom:
            if (folder_part(path) == m_state.base() && !file_part(path).starts_with('_'))
                regenerate();
            return finding.only_totals ? plan_totals(finding) : set_aside(path);
        case file_kind::base:
            if (path == m_state.base() + names::base)
                regenerate();
            return set_aside(path);
        case file_kind::time_mark:
            return add_time_mark(path);
        case file_kind::list:
        case file_kind::index:
            return plan_map(path);
        case file_kind::cache:
            return finding.only_totals ? plan_totals(finding) : plan_cache(path);
        case file_kind::statistic:
            return plan_statistic(path);
        case file_kind::stage_mark:
            return add("write " + shown(path) + " again",
                       [folder = std::string(folder_part(path))] { return set_marker(folder); });
        default:
            return set_aside(path);
        }
    }

    void plan_totals(const file_finding& finding) {
        std::string texts;
        for (const auto& [offset, word] : finding.totals)
            texts += (texts.empty() ? "" : ", ") + grouped(word) + " at offset " + std::to_string(offset);
        add("set the totals of " + shown(finding.path) + " by its content: " + texts,
            [this_folder = &m_folder, path = finding.path, words = finding.totals] {
                const std::string made = this_folder->unfinished(file_part(path));
                return in_turn([&] { return write_patched(path, words, made); },
                               [&] { return this_folder->replace(made, path); });
            });
    }

    void plan_map(const std::string& path) {
        const bool named = path.ends_with(names::list_ending) || path.ends_with(names::index_ending);
        if (folder_part(path) == m_state.folder(sorted) || !named)
            return set_aside(path);
        const std::string list = path.substr(0, path.size() - 4) + names::list_ending;
        if (!m_gone.insert(list).second)
            return;
        if (!is_file(list))
            return set_aside(path);
        std::uint64_t ids = 0;
        const std::string why = visit_ids(list, m_folder, [&](std::string_view, std::uint32_t) { ++ids; });
        std::string what = "set aside " + shown(list) + " with its index: no ID of it can be read";
        if (ids != 0 || !why.empty())
            what = "make " + shown(list) + " and its index again" +
                   (why.empty() ? ", of " + grouped(ids) + " message IDs that can be read" : "");
        add(what, [this_folder = &m_folder, list] { return remake_map(list, *this_folder); });
    }

    void plan_cache(const std::string& path) {
        cache_scan scan = scan_cache(path);
        if (scan.records == 0)
            return set_aside(path);
        std::string text = "keep " + grouped(scan.records) + " messages of " + shown(path) + "; " +
                           grouped(scan.lost) + " bytes between or behind them are damaged";
        add(std::move(text), [this_folder = &m_folder, path, scan = std::move(scan)] {
            const std::string made = this_folder->unfinished(file_part(path));
            return in_turn([&] { return write_cache(path, scan, made); },
                           [&] { return this_folder->replace(made, path); });
        });
    }

    void plan_statistic(const std::string& path) {
        std::array<std::uint8_t, 4> word{};
        if (platform::peek_file(path, 0, word.data(), word.size()).value_or(0) != word.size() ||
            load_u32(word.data()) != signature::statistic)
            return set_aside(path);
        add("keep the whole entries of " + shown(path), [this_folder = &m_folder, path] {
            const std::string made = this_folder->unfinished(file_part(path));
            return in_turn([&] { return write_statistic(path, made); },
                           [&] { return this_folder->replace(made, path); });
        });
    }

    repair_folder& m_folder;
    stage_state m_state;
    std::ostream m_none; // where the check tells its findings
    state_check m_check;
    std::vector<repair_step> m_steps;
    std::set<std::string> m_gone; // files and folders that steps deal with already
    bool m_regenerates = false;
};

} // namespace

std::vector<repair_step> plan_repair(repair_folder& folder) {
    return planner(folder).make();
}

} // namespace tvr
