#include "compiled/dict_pair.h"

#include <algorithm>
#include <array>
#include <memory>
#include <optional>
#include <vector>

#include "common/file_names.h"
#include "common/logger.h"
#include "common/minutes.h"
#include "common/path.h"
#include "compiled/atom_reader.h"
#include "compiled/grading.h"
#include "dict/optimiser.h"
#include "settings/settings.h"

namespace tvr {

namespace {

constexpr std::uint32_t no_hash = 0xFFFFFFFF;
constexpr std::uint32_t undefined_time = 0xFFFFFFFF;

// One generation: the merge of all atoms that take part.
class generation {
public:
    explicit generation(const std::string& path) : m_path(path) {
        m_run.k = current_settings()->regarding_threshold;
        m_run.header.spam_oldest = m_run.header.nonspam_oldest = undefined_time;
    }

    void open_atoms(const dict_folder& folder, bool is_spam) {
        for (const std::string& name : folder.files()) {
            auto atom = std::make_unique<atom_reader>();
            atom->open(join_path(folder.path(), name), is_spam, m_run.header);
            if (atom->has_token())
                m_atoms.push_back(std::move(atom));
        }
    }

    void merge() {
        m_list.start();
        m_groups.resize((m_atoms.size() + group_size - 1) / group_size);
        for (std::size_t i = 0; i < m_atoms.size(); ++i)
            m_groups[i / group_size].hashes[i % group_size] = m_atoms[i]->hash();
        for (group& each : m_groups)
            each.find_smallest();
        while (take_smallest_hash()) {
            if (!m_output && m_tokens.has_significant(m_run))
                create_output();
            m_tokens.flush_accum(m_output ? &*m_output : nullptr, m_run, &m_list);
        }
        m_list.finish();
        finish_output();
    }

    void log_status() const {
        const base_header& head = m_run.header;
        TVR_LOG(transact_log, "[i] base status (spam/nospam) msgs: %d/%d; tokens: %d/%d",
                static_cast<int>(head.spam_messages), static_cast<int>(head.nonspam_messages),
                static_cast<int>(head.spam_tokens), static_cast<int>(head.nonspam_tokens));
        TVR_LOG(transact_log, "[i] Spam part aging(GMT): from [%s] - [%s]",
                minutes_to_text(head.spam_oldest).c_str(), minutes_to_text(head.spam_newest).c_str());
        TVR_LOG(transact_log, "[i] Non-spam part aging(GMT): from [%s] - [%s]",
                minutes_to_text(head.nonspam_oldest).c_str(), minutes_to_text(head.nonspam_newest).c_str());
    }

private:
    // The hashes of the tokens of some atoms, side by side, since most tokens are in few of many atoms.
    static constexpr std::size_t group_size = 8;
    struct group {
        group() { hashes.fill(no_hash); }
        void find_smallest() noexcept {
            smallest = no_hash;
            for (const std::uint32_t hash : hashes)
                smallest = std::min(smallest, hash);
        }
        std::array<std::uint32_t, group_size> hashes; // no_hash: there is no such atom, or no token left
        std::uint32_t smallest = no_hash;
    };

    // Moves every token of the smallest hash to the accumulator, atom by atom. False if there was none.
    bool take_smallest_hash() {
        std::uint32_t smallest = no_hash;
        for (const group& each : m_groups)
            smallest = std::min(smallest, each.smallest);
        if (smallest == no_hash)
            return false;
        for (std::size_t i = 0; i < m_groups.size(); ++i)
            if (m_groups[i].smallest == smallest)
                take_from(i, smallest);
        return true;
    }

    void take_from(std::size_t number, std::uint32_t hash) {
        group& from = m_groups[number];
        for (std::size_t i = 0; i < group_size; ++i) {
            while (from.hashes[i] == hash) {
                atom_reader& atom = *m_atoms[number * group_size + i];
                m_tokens.accumulate_token(atom.text(), atom.occurrences(), atom.is_spam());
                from.hashes[i] = atom.next() ? atom.hash() : no_hash;
            }
        }
        from.find_smallest();
    }

    // Tried once: a file that can't be made takes the tokens all the same, so that they don't pile up.
    void create_output() {
        m_output.emplace().create_to_write(m_path);
        m_run.header.header.write(*m_output);
        m_output->write_u32(0);
        m_output->write_u32(0);
    }

    void finish_output() {
        if (!m_output)
            create_output();
        m_output->seek(static_cast<std::int64_t>(m_run.header.header.size()), platform::origin::begin);
        m_output->write_u32(m_run.records);
        m_output->write_u32(m_run.bytes);
        m_output->close();
    }

    std::string m_path;
    grading_run m_run;
    selective_list m_list;
    token_accumulator m_tokens;
    std::vector<std::unique_ptr<atom_reader>> m_atoms;
    std::vector<group> m_groups;         // of the atoms
    std::optional<file_stream> m_output; // nothing until the first significant token
};

} // namespace

dict_pair::dict_pair(std::string_view folder)
    : m_spam_folder(folder, names::spam_half), m_nspam_folder(folder, names::good_half), m_basepath(folder) {}

bool dict_pair::generate_base(const std::string& path) {
    generation run(path);
    m_spam_folder.reload_atoms(true);
    m_nspam_folder.reload_atoms(true);
    balance_halves(m_nspam_folder, m_spam_folder);
    run.open_atoms(m_spam_folder, true);
    run.open_atoms(m_nspam_folder, false);
    run.merge();
    run.log_status();
    return true;
}

} // namespace tvr
