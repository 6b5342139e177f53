#include "tools/state_check.h"

#include <array>
#include <cstdio>

#include "common/bytes.h"
#include "common/path.h"
#include "msid/list_record.h"
#include "platform/file.h"
#include "stage/temp_folder.h"
#include "tools/file_view.h"
#include "tools/signatures.h"
#include "tools/text.h"
#include "tools/walks.h"

namespace tvr {

namespace {

constexpr std::uint64_t most_defects = 20; // that are told of one file
constexpr unsigned stages = 6;

std::string shown(const std::string& path) {
    return visible(platform::display_path(path));
}

std::string marker_of(const std::string& stage_folder) {
    return join_path(stage_folder, stage_marker_name);
}

bool is_folder(const std::string& path) {
    const auto attributes = platform::get_attributes(path);
    return attributes && (*attributes & platform::attribute::directory) != 0;
}

bool is_file(const std::string& path) {
    const auto attributes = platform::get_attributes(path);
    return attributes && (*attributes & platform::attribute::directory) == 0;
}

template <class Visitor>
void for_each_file(const std::string& folder, const char* pattern, Visitor&& visit) {
    platform::directory_search search;
    platform::directory_entry entry;
    for (bool more = search.first(join_path(folder, pattern), entry); more; more = search.next(entry))
        if ((entry.attributes & platform::attribute::directory) == 0)
            visit(entry.name);
}

} // namespace

// Tells the defects of one file, and holds it against others.
class file_check : public view_sink {
public:
    file_check(state_check& state, std::string path) : m_state(state), m_path(std::move(path)) {}
    ~file_check() override {
        if (m_defects > most_defects)
            m_state.defect(m_path, "and " + grouped(m_defects - most_defects) + " more defects");
    }
    file_check(const file_check&) = delete;
    file_check& operator=(const file_check&) = delete;

    void defect(std::uint64_t offset, const std::string& reason) override {
        if (++m_defects <= most_defects)
            m_state.defect(m_path, "offset " + std::to_string(offset) + ": " + reason);
    }

    // A column file points at the records of the batch beside it.
    void message_position(std::uint64_t offset, std::uint64_t position) override {
        const std::string batch = std::string(folder_part(m_path)) + "data.bys";
        std::array<std::uint8_t, 4> word{};
        if (position > ~std::uint64_t{0} / 2 ||
            platform::peek_file(batch, position, word.data(), word.size()).value_or(0) != word.size() ||
            load_u32(word.data()) != signature::message)
            defect(offset, "no record of data.bys stands at " + grouped(position));
    }

    [[nodiscard]] std::uint64_t defects() const noexcept { return m_defects; }

private:
    state_check& m_state;
    std::string m_path;
    std::uint64_t m_defects = 0;
};

namespace {

// Looks up the live records of a list in its index. The tree knows the first of those that share a key.
class index_check final : public file_check {
public:
    index_check(state_check& state, const std::string& list_path, index_view& index)
        : file_check(state, list_path), m_index(index) {}

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
    file_check check(*this, path);
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
    const std::string index_path = list_path.substr(0, list_path.size() - 4) + ".idx";
    if (!is_file(index_path))
        return; // it will be made
    index_view index(index_path);
    if (!index.is_valid())
        return; // told with the index
    file_view list(list_path);
    std::array<std::uint8_t, 12> start{};
    const auto got = platform::peek_file(list_path, 0, start.data(), start.size());
    if (got.value_or(0) == start.size() && load_u32(start.data() + 8) != index.key_count())
        return note(index_path, "doesn't fit its list; it will be made anew");
    index_check check(*this, list_path, index);
    walk_list(list, check);
}

void state_check::check_folder(const std::string& folder) {
    for_each_file(folder, "*.*", [&](const std::string& name) {
        if (name == "lock.bin")
            note(folder + name, "somebody writes to the message cache");
        else if (name != "selective.txt") // plain text of the user
            check_file(folder + name);
    });
}

bool state_check::has_batch(const std::string& folder) const {
    bool found = false;
    for_each_file(folder, "dis*.*", [&](const std::string& name) {
        std::uint8_t byte = 0;
        found = found || platform::peek_file(folder + name, 0, &byte, 1).value_or(0) == 1;
    });
    return found;
}

void state_check::check_stage(unsigned stage, const std::string& folder, bool marked) {
    if (marked)
        return check_folder(folder);
    if (m_engine_runs)
        return note(folder, "a stage without its marker; the engine may be at work on it");
    if (stage != 1)
        return defect(folder, "a stage without its marker: it was broken off");
    if (has_batch(folder))
        return defect(folder, "a batch without its marker: its messages will be lost");
    note(folder, "an empty stage without its marker");
}

void state_check::check_stages() {
    const std::string transact = m_working + "base\\transact\\";
    std::array<bool, stages + 1> marked{};
    std::array<std::string, stages + 1> folders;
    for (unsigned stage = 1; stage <= stages; ++stage) {
        folders[stage] = transact + "000" + std::to_string(stage) + "\\";
        marked[stage] = is_file(marker_of(folders[stage]));
        if (is_folder(folders[stage]))
            check_stage(stage, folders[stage], marked[stage]);
    }
    if (marked[1] && !has_batch(folders[1]))
        defect(marker_of(folders[1]), "the engine is stuck: the marked batch isn't there");
    if (marked[2] && !is_file(folders[2] + "data.bys"))
        defect(marker_of(folders[2]), "the messages of the stage, data.bys, aren't there");
    if (marked[3] && !marked[2] && !marked[4])
        defect(marker_of(folders[3]), "the engine is stuck: stage 3 is marked without 2 and 4");
}

void state_check::run() {
    for (const char* name : {"stat.bin", "~stat.bin", "settings.cfg"})
        if (is_file(m_working + name))
            check_file(m_working + name);
    check_folder(m_working + "base\\");
    check_folder(m_working + "base\\transact\\");
    check_stages();
}

} // namespace tvr
