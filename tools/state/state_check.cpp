#include "tools/state/state_check.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>
#include <sstream>

#include "common/bytes.h"
#include "common/file_names.h"
#include "common/path.h"
#include "compiled/base_header.h"
#include "dict/atom.h"
#include "msid/list_record.h"
#include "platform/file.h"
#include "platform/process.h"
#include "stage/temp_folder.h"
#include "tools/formats/signatures.h"
#include "tools/formats/walks.h"
#include "tools/progress.h"
#include "tools/state/stage_state.h"
#include "tools/text.h"

namespace tvr {

// Tells the defects of one file, and holds it against others.
class file_check : public view_sink {
public:
    file_check(state_check& state, std::string path, file_kind kind)
        : m_state(state), m_path(std::move(path)), m_finding{.path = m_path, .kind = kind} {}
    ~file_check() override {
        if (const std::string rest = m_defects.rest(); !rest.empty())
            m_state.defect(m_path, rest);
        if (m_defects.all() != 0)
            m_state.m_findings.push_back(std::move(m_finding));
    }
    file_check(const file_check&) = delete;
    file_check& operator=(const file_check&) = delete;

    void defect(std::uint64_t offset, const std::string& reason) override {
        m_finding.only_totals = false;
        tell(offset, reason);
    }
    void wrong_total(std::uint64_t offset, const std::string& reason, std::uint32_t right) override {
        m_finding.totals.emplace_back(offset, right);
        tell(offset, reason);
    }

    // A column file points at the records of the batch beside it.
    void message_position(std::uint64_t offset, std::uint64_t position) override {
        const std::string batch = std::string(folder_part(m_path)) + names::sorted_messages;
        std::array<std::uint8_t, 4> word{};
        if (position > ~std::uint64_t{0} / 2 ||
            platform::peek_file(batch, position, word.data(), word.size()).value_or(0) != word.size() ||
            load_u32(word.data()) != signature::message)
            defect(offset, "no record of data.bys stands at " + grouped(position));
    }

    [[nodiscard]] std::uint64_t defects() const noexcept { return m_defects.all(); }

private:
    void tell(std::uint64_t offset, const std::string& reason) {
        if (m_defects.tells_next())
            m_state.defect(m_path, "offset " + std::to_string(offset) + ": " + reason);
    }

    state_check& m_state;
    std::string m_path;
    file_finding m_finding;
    defect_count m_defects;
};

namespace {

// Looks up the live records of a list in its index. The tree knows the first of those that share a key.
class index_check final : public file_check {
public:
    index_check(state_check& state, const std::string& list_path, index_view& index)
        : file_check(state, list_path, file_kind::list), m_index(index) {}

    void list_record(std::uint64_t offset, std::string_view id, std::uint32_t value) override {
        if (value == 0) {
            m_in_chain = false;
            return;
        }
        const key11 key = key11::of(id);
        if (!m_in_chain || key != m_key)
            m_chain = offset;
        m_in_chain = true;
        m_key = key;
        // What else has a value goes at the next making of the index.
        if (!is_live_id(id, value))
            return;
        const auto found = m_index.find(key);
        if (!found)
            defect(offset, "the index is damaged on the way to " + visible(id));
        else if (*found == 0)
            defect(offset, "the index doesn't know " + visible(id));
        else if (*found != m_chain)
            defect(offset, "the index has another place for " + visible(id) + ": " + grouped(*found));
    }

private:
    index_view& m_index;
    key11 m_key;
    std::uint64_t m_chain = 0; // the first record of the key
    bool m_in_chain = false;
};

struct atom_view {
    std::string name;
    std::unique_ptr<atom_head> head;
};

// Those of a half that have a head, in the order of all lists.
std::vector<atom_view> atoms_of(const std::string& base, const std::string& half) {
    std::vector<atom_view> atoms;
    for (const std::string& name : file_names(base, (half + names::any_atom).c_str())) {
        auto head = std::make_unique<atom_head>();
        if (head->peek(base + name))
            atoms.push_back({name, std::move(head)});
    }
    std::ranges::stable_sort(atoms, [](const atom_view& a, const atom_view& b) {
        return atom_is_before(*a.head, a.name, *b.head, b.name);
    });
    return atoms;
}

// As the head of a list tells it; 0 if there is none.
std::uint32_t list_records(const std::string& path) {
    std::array<std::uint8_t, 12> start{};
    const auto got = platform::peek_file(path, 0, start.data(), start.size()).value_or(0);
    return got == start.size() ? load_u32(start.data() + 8) : 0;
}

} // namespace

state_check::state_check(std::string working_directory, bool engine_runs, std::ostream& out)
    : m_working(std::move(working_directory)), m_engine_runs(engine_runs), m_out(out) {}

void state_check::defect(const std::string& path, const std::string& reason) {
    ++m_defects;
    m_out << shown(path) << ": " << reason << "\n";
}

void state_check::note(const std::string& path, const std::string& reason) {
    m_out << "note: " << shown(path) << ": " << reason << "\n";
}

void state_check::check_file(const std::string& path) {
    file_view file(path);
    file_kind kind = kind_of_name(file_part(path));
    if (kind == file_kind::unknown)
        kind = kind_of(file);
    if (kind == file_kind::unknown && !file.failed())
        return note(path, "no file of the engine");
    ++m_files;
    file_check check(*this, path, kind);
    if (!file.failed())
        walk_file(kind, file, check);
    if (!file.failed()) {
        if (kind == file_kind::list && check.defects() == 0)
            check_index(path);
    } else if (is_file(path)) { // or it went away meanwhile
        check.defect(file.position(), "can't be read");
    }
}

void state_check::check_index(const std::string& list_path) {
    const std::string index_path = list_path.substr(0, list_path.size() - 4) + names::index_ending;
    if (!is_file(index_path))
        return; // it will be made
    index_view index(index_path);
    if (!index.is_valid())
        return; // told with the index
    file_view list(list_path);
    std::array<std::uint8_t, 12> start{};
    const auto got = platform::peek_file(list_path, 0, start.data(), start.size());
    if (got.value_or(0) == start.size() && load_u32(start.data() + 8) != index.key_count())
        return note(index_path, "doesn't fit its list; it will be made again");
    index_check check(*this, list_path, index);
    walk_list(list, check);
}

void state_check::check_folder(const std::string& folder) {
    for (const std::string& name : file_names(folder)) {
        if (name == names::lock)
            note(folder + name, "somebody writes to the message cache");
        else if (name != names::selective && name != names::new_selective) // plain text
            check_file(folder + name);
        if (m_progress)
            m_progress(++m_seen, m_total);
    }
}

void state_check::check_stages() {
    const stage_state state(m_working);
    for (unsigned stage = 1; stage <= stage_state::stages; ++stage)
        if (state.marked(stage)) {
            if (stage == stage_number::generate_rgd) // what it holds is made again from the start
                check_file(state.marker(stage));
            else
                check_folder(state.folder(stage));
        }
    for (const stage_problem& problem : state.problems(m_engine_runs)) {
        // What was broken off is begun again.
        if (problem.fault == stage_fault::copy_left || problem.fault == stage_fault::broken_off)
            note(problem.path, problem.reason);
        else
            defect(problem.path, problem.reason);
    }
}

void state_check::loss(const std::string& path, const std::string& reason) {
    m_losses_count ? defect(path, reason) : note(path, reason);
}

void state_check::check_half(const std::string& name, std::uint32_t messages, std::uint32_t tokens) {
    const std::string base = m_working + names::base_folder;
    std::vector<atom_view> atoms = atoms_of(base, name);
    std::uint32_t all_messages = 0;
    std::uint32_t all_tokens = 0;
    for (const atom_view& atom : atoms) {
        all_messages += atom.head->messages;
        all_tokens += atom.head->tokens;
    }
    const std::uint64_t ids = list_records(base + name + names::list_ending);
    if (all_messages != 0 && ids == 0)
        loss(base + name + names::list_ending,
             "the message IDs of " + grouped(all_messages) + " messages are missing");
    // The engine leaves atoms of the larger half out of the base: divided ones first, then the oldest.
    std::stable_partition(atoms.begin(), atoms.end(),
                          [](const atom_view& atom) { return atom.head->is_ordinal(); });
    const std::string told = grouped(messages) + " messages and " + grouped(tokens) + " tokens";
    const std::string found = grouped(all_messages) + " and " + grouped(all_tokens);
    for (const atom_view& atom : atoms) {
        if (all_messages == messages && all_tokens == tokens)
            return;
        all_messages -= atom.head->messages;
        all_tokens -= atom.head->tokens;
    }
    if (messages != 0 || tokens != 0)
        loss(base + name + names::any_atom,
             "the base was made of " + told + ", the atoms hold " + found + ": atoms are missing");
}

// The halves as the base tells of them, and their message IDs. Meanwhile nothing may be under way.
void state_check::check_halves() {
    const std::string base = m_working + names::base_folder;
    const auto is_under_way = [&] {
        const stage_state state(m_working);
        for (unsigned stage = 1; stage <= stage_state::stages; ++stage)
            if (state.exists(stage))
                return true;
        return false;
    };
    std::array<std::uint8_t, 256> start;
    const auto got = platform::peek_file(base + names::base, 0, start.data(), start.size()).value_or(0);
    base_header head;
    std::size_t behind = 0;
    if (m_engine_runs || is_under_way() || !head.header.read({start.data(), got}, behind))
        return;
    if (file_names(base, "*spamdict*").empty()) {
        if (head.spam_messages + head.nonspam_messages != 0)
            note(base, "all training was forgotten; the base stays in use until the next one");
        return;
    }
    check_half(names::spam_half, head.spam_messages, head.spam_tokens);
    check_half(names::good_half, head.nonspam_messages, head.nonspam_tokens);
}

void state_check::run() {
    const stage_state state(m_working);
    m_total = file_names(state.base()).size() + file_names(state.transact()).size();
    for (unsigned stage = 1; stage <= stage_state::stages; ++stage)
        m_total += state.marked(stage) ? file_names(state.folder(stage)).size() : 0;
    for (const char* name : {names::statistic, names::new_statistic, names::settings, names::verdict})
        if (is_file(m_working + name))
            check_file(m_working + name);
    check_folder(m_working + names::base_folder);
    check_folder(m_working + names::transact_path);
    check_stages();
    check_halves();
}

bool tell_state(const std::string& working_directory, bool engine_runs, std::ostream& out,
                bool losses_count) {
    std::ostringstream lines; // apart from the bar
    state_check check(working_directory, engine_runs, lines);
    if (!losses_count)
        check.let_losses_pass();
    {
        progress bar("Checking", !platform::is_terminal(stderr));
        check.on_progress([&](std::uint64_t done, std::uint64_t total) {
            bar.show(done, total, grouped(done) + " files");
        });
        check.run();
    }
    out << lines.str() << grouped(check.files()) << " files, " << grouped(check.defects()) << " defects\n";
    return check.defects() == 0;
}

} // namespace tvr
