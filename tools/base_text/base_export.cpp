#include <algorithm>
#include <array>
#include <optional>
#include <span>
#include <vector>

#include "common/bytes.h"
#include "common/file_names.h"
#include "common/fileheader.h"
#include "common/path.h"
#include "common/text.h"
#include "common/token_hash.h"
#include "msid/list_record.h"
#include "platform/file.h"
#include "tools/base_text/base_lines.h"
#include "tools/base_text/base_text.h"
#include "tools/formats/file_view.h"
#include "tools/formats/signatures.h"

namespace tvr {

namespace {

constexpr std::size_t atom_values = atom_value_names.size();

std::string_view text_of(const std::uint8_t* bytes, std::size_t size) {
    return {reinterpret_cast<const char*>(bytes), size};
}

using record_visitor = std::function<void(std::string_view text, std::uint32_t value)>;

// Calls `visit` for the live records of a list that begins at the file's position. False if it is damaged.
bool walk_list(file_view& file, const record_visitor& visit) {
    if (!file.has(1))
        return true; // a list without anything
    if (!file.has(8))
        return false;
    const auto head = file.ahead(8);
    const std::uint32_t values = load_u32(head.data() + 4);
    if (load_u32(head.data()) != signature::list || values > fileheader::limit ||
        !file.has(8 + 4 * std::size_t{values}))
        return false;
    file.skip(8 + 4 * std::size_t{values});
    while (file.has(1)) {
        const auto bytes = file.ahead(255 + list_record::overhead);
        list_record record;
        if (!read_record(bytes, 0, record)) {
            // The room after the last record is zeros.
            return text_of(bytes.data(), bytes.size()).find_first_not_of('\0') == std::string_view::npos;
        }
        if (record.is_live())
            visit(record.id, record.value);
        file.skip(record.size);
    }
    return !file.failed();
}

struct atom_values_view {
    std::array<std::uint32_t, atom_values> values{};
    std::optional<std::uint64_t> ids; // how many message IDs of its own; nothing without such a part
    bool is_fresh = false;            // a name without any content
};

// The reason of a failure, or an empty text.
std::string walk_atom(file_view& file, atom_values_view& atom, const record_visitor& token,
                      const record_visitor& id) {
    constexpr std::size_t head_size = 8 + 4 * atom_values;
    file.go_to(0);
    const auto head = file.ahead(head_size);
    if (file.failed())
        return "can't be read";
    if (head.size() < 8 || load_u32(head.data()) != signature::atom)
        return "is no atom";
    if (load_u32(head.data() + 4) == 3)
        return "has the older form; the engine brings it up to date at its next training";
    if (load_u32(head.data() + 4) != atom_values || head.size() < head_size)
        return "has a damaged head";
    for (std::size_t i = 0; i < atom_values; ++i)
        atom.values.at(i) = load_u32(head.data() + 8 + 4 * i);
    file.skip(head_size);
    if (!file.has(1)) {
        atom.is_fresh = true;
        for (const std::uint32_t value : atom.values)
            if (value != 0)
                return "is cut off behind its head";
        return {};
    }
    if (!file.has(8))
        return "is cut off behind its head";
    const std::uint32_t count = load_u32(file.ahead(8).data());
    std::uint64_t left = load_u32(file.ahead(8).data() + 4);
    file.skip(8);
    if (count != atom.values[1])
        return "tells two numbers of tokens";
    std::uint32_t last_hash = 0;
    for (std::uint32_t i = 0; i < count; ++i) {
        const std::size_t length = file.has(1) ? file.ahead(1)[0] : 0;
        const auto entry = file.ahead(length + 5);
        if (entry.size() < length + 5 || left < length + 5)
            return "is cut off in token " + std::to_string(i + 1);
        const std::string_view text = text_of(entry.data() + 1, length);
        const std::uint32_t hash = order_hash(text);
        if (hash < last_hash)
            return "has its tokens out of order, at token " + std::to_string(i + 1);
        last_hash = hash;
        token(text, load_u32(entry.data() + 1 + length));
        left -= length + 5;
        file.skip(length + 5);
    }
    if (left != 0)
        return "has bytes behind its last token";
    if (!file.has(1))
        return file.failed() ? "can't be read" : "";
    atom.ids = 0;
    const bool whole = walk_list(file, [&](std::string_view text, std::uint32_t value) {
        ++*atom.ids;
        id(text, value);
    });
    return whole ? "" : "has damaged message IDs";
}

class exporter {
public:
    exporter(const std::function<bool(std::string_view)>& write, base_text_sum& sum)
        : m_write(write), m_sum(sum) {}

    std::string run(const std::string& folder) {
        line(std::string(base_text_start));
        for (const base_half& each : base_halves) {
            platform::directory_search search;
            platform::directory_entry entry;
            for (bool more = search.first(folder + each.name + names::any_atom, entry); more;
                 more = search.next(entry))
                if (!(entry.attributes & platform::attribute::directory))
                    if (std::string why = atom(folder + entry.name, each.name); !why.empty())
                        return why;
            file_view list(folder + each.name + names::list_ending);
            if (!file_exists(list.path()))
                continue;
            const bool whole = walk_list(list, [&](std::string_view id, std::uint32_t value) {
                record("message", each.name, value, id);
                ++m_sum.messages;
            });
            if (!whole)
                return platform::display_path(list.path()) + ": damaged, or can't be read";
        }
        verdict(std::string(folder_part(folder.substr(0, folder.size() - 1))));
        if (m_failed)
            return "the text can't be written";
        line("end\t" + std::to_string(m_sum.lines));
        return m_failed ? "the text can't be written" : "";
    }

private:
    // Pieces of zeros are left out.
    void verdict(const std::string& working) {
        verdict_state state;
        const std::string path = verdict_path(working);
        const verdict_file_result found = load_verdict(path, state);
        if (found == verdict_file_result::missing)
            return;
        if (found != verdict_file_result::loaded) {
            m_sum.remark = platform::display_path(path) + ": damaged, or can't be read; it was left out";
            return;
        }
        const std::vector<std::uint8_t> bytes = verdict_bytes(state);
        for (std::size_t at = 0, size = 0; at < bytes.size(); at += size) {
            size = verdict_piece_at(at);
            const auto piece = std::span(bytes).subspan(at, size);
            if (at < verdict_messages_at &&
                std::ranges::all_of(piece, [](std::uint8_t byte) { return byte == 0; }))
                continue;
            std::string text = "verdict\t" + std::to_string(at) + "\t";
            for (const std::uint8_t byte : piece)
                text += to_hex(byte, 2);
            line(text);
        }
    }
    std::string atom(const std::string& path, std::string_view dictionary) {
        const std::string shown = platform::display_path(path);
        std::string_view stem = file_part(path);
        stem.remove_suffix(4);
        if (!is_atom_stem(stem, dictionary))
            return shown + ": has a name that no atom has";
        file_view file(path);
        atom_values_view facts;
        const auto nothing = [](std::string_view, std::uint32_t) {};
        // Once to see that it is whole, once to tell.
        if (const std::string why = walk_atom(file, facts, nothing, nothing); !why.empty())
            return shown + ": " + why;
        if (facts.is_fresh)
            return {};
        ++m_sum.atoms;
        std::string text = "atom\t" + std::string(stem);
        for (std::size_t i = 0; i < atom_values; ++i)
            text += std::string("\t") + atom_value_names.at(i) + "=" + std::to_string(facts.values.at(i));
        line(text + "\tids=" + (facts.ids ? std::to_string(*facts.ids) : "-"));
        atom_values_view again;
        const std::string why = walk_atom(
            file, again,
            [&](std::string_view token, std::uint32_t count) {
                record("token", stem, count, token);
                ++m_sum.tokens;
            },
            [&](std::string_view id, std::uint32_t value) { record("atom-id", stem, value, id); });
        if (!why.empty() || again.values != facts.values || again.ids != facts.ids)
            return shown + ": has changed meanwhile";
        return m_failed ? "the text can't be written" : "";
    }
    void record(const char* kind, std::string_view owner, std::uint32_t value, std::string_view text) {
        line(std::string(kind) + "\t" + std::string(owner) + "\t" + std::to_string(value) + "\t" +
             escape_text(text));
    }
    void line(std::string text) {
        ++m_sum.lines;
        text += '\n';
        m_failed = m_failed || !m_write(text);
    }

    const std::function<bool(std::string_view)>& m_write;
    base_text_sum& m_sum;
    bool m_failed = false;
};

} // namespace

std::string export_base(const std::string& folder, const std::function<bool(std::string_view)>& write,
                        base_text_sum& sum) {
    return exporter(write, sum).run(folder);
}

} // namespace tvr
