#include <algorithm>
#include <array>
#include <charconv>
#include <memory>
#include <optional>
#include <vector>

#include "common/bytes.h"
#include "common/file_names.h"
#include "common/file_stream.h"
#include "common/files.h"
#include "common/path.h"
#include "common/text.h"
#include "common/token_hash.h"
#include "dict/atom.h"
#include "msid/list_record.h"
#include "msid/msidmap.h"
#include "platform/error.h"
#include "platform/file.h"
#include "stage/temp_folder.h"
#include "tools/base_text/base_lines.h"
#include "tools/base_text/base_text.h"
#include "tools/formats/signatures.h"

namespace tvr {

namespace {

constexpr std::size_t longest_line = 4096; // bytes
constexpr std::size_t list_head = 16;      // bytes
constexpr std::uint64_t list_count_at = 8;

std::optional<std::uint32_t> number_of(std::string_view text) {
    std::uint32_t value = 0;
    const auto got = std::from_chars(text.data(), text.data() + text.size(), value);
    return got.ec == std::errc() && got.ptr == text.data() + text.size() ? std::optional(value)
                                                                         : std::nullopt;
}

std::optional<std::uint32_t> named_number(std::string_view text, std::string_view name) {
    if (!text.starts_with(name) || text.substr(name.size(), 1) != "=")
        return std::nullopt;
    return number_of(text.substr(name.size() + 1));
}

class importer {
public:
    importer(tmpfld_holder& holder, base_text_sum& sum) : m_holder(holder), m_sum(sum) {}

    // Both return the reason of a failure, or an empty text.
    std::string take(std::string_view line) {
        if (m_ended)
            return "something follows the line \"end\"";
        ++m_sum.lines;
        if (m_sum.lines == 1)
            return line == base_text_start
                       ? ""
                       : "this is no token base: its first line must be \"tessivar-base\", 1";
        const std::vector<std::string_view> fields = split(line);
        const std::string_view kind = fields[0];
        if (kind == "token" || kind == "atom-id" || kind == "message") {
            if (fields.size() != 4)
                return "has not four fields";
            const auto value = number_of(fields[2]);
            if (!value)
                return "its third field is no number";
            if (!unescape_text(fields[3], m_text) || m_text.size() > 255)
                return "its text is wrongly escaped or too long";
            return kind == "token"     ? take_token(fields[1], *value)
                   : kind == "atom-id" ? take_atom_id(fields[1], *value)
                                       : take_message(fields[1], *value);
        }
        if (kind == "atom")
            return take_atom(fields);
        if (kind == "verdict")
            return take_verdict(fields);
        if (kind == "end")
            return take_end(fields);
        return "begins with no word that is known";
    }
    std::string finish() {
        if (!m_ended)
            return "the line \"end\" is missing: the text is cut off";
        return m_sum.atoms == 0 ? "it holds no atoms" : "";
    }

    // What the text holds of a verdict; null if nothing.
    [[nodiscard]] const verdict_state* verdict() const { return m_state ? &*m_state : nullptr; }

private:
    static std::vector<std::string_view> split(std::string_view line) {
        std::vector<std::string_view> fields;
        for (;;) {
            const std::size_t end = line.find('\t');
            fields.push_back(line.substr(0, end));
            if (end == std::string_view::npos)
                return fields;
            line.remove_prefix(end + 1);
        }
    }

    std::string take_atom(const std::vector<std::string_view>& fields) {
        if (std::string why = close_atom(); !why.empty())
            return why;
        if (fields.size() != 8)
            return "has not eight fields";
        const std::string_view stem = fields[1];
        std::size_t place = m_half;
        while (place < base_halves.size() && !is_atom_stem(stem, base_halves.at(place).name))
            ++place;
        if (place == base_halves.size())
            return "has no atom's name, or stands in the wrong half";
        if (place == m_half && (m_map || stem <= m_stem))
            return "is out of order";
        if (std::string why = enter(place); !why.empty())
            return why;
        m_stem = stem;
        const auto messages = named_number(fields[2], "messages");
        const auto tokens = named_number(fields[3], "tokens");
        const auto occurrences = named_number(fields[4], "occurrences");
        const auto oldest = named_number(fields[5], "oldest");
        const auto newest = named_number(fields[6], "newest");
        m_ids = named_number(fields[7], "ids");
        if (!messages || !tokens || !occurrences || !oldest || !newest || (!m_ids && fields[7] != "ids=-"))
            return "has a field that is wrong";
        m_head.messages = *messages;
        m_head.tokens = *tokens;
        m_head.occurrences = *occurrences;
        m_head.oldest = *oldest;
        m_head.newest = *newest;
        m_count = m_bytes = 0;
        m_id_count = m_last_hash = 0;
        m_path = folder() + m_stem + names::atom_ending;
        const bool opened = m_file.create_to_write(m_path) && m_head.header.write(m_file);
        m_block = m_file.position();
        ++m_sum.atoms;
        return opened && m_file.write_u32(0) && m_file.write_u32(0) ? "" : write_failure();
    }
    std::string take_token(std::string_view stem, std::uint32_t count) {
        if (!m_file.is_open() || stem != m_stem || m_id_count != 0)
            return "stands outside its atom";
        const std::uint32_t hash = order_hash(m_text);
        if (hash < m_last_hash)
            return "is out of order";
        if (m_count == m_head.tokens)
            return "is one token more than its atom tells";
        m_last_hash = hash;
        ++m_count;
        m_bytes += m_text.size() + 5;
        ++m_sum.tokens;
        return write_short_string(m_file, m_text) && m_file.write_u32(count) ? "" : write_failure();
    }
    std::string take_atom_id(std::string_view stem, std::uint32_t value) {
        if (!m_file.is_open() || stem != m_stem || !m_ids || m_id_count == *m_ids)
            return "stands outside its atom, or is one more than that tells";
        if (!is_live_id(m_text, value))
            return "is no message ID with a time";
        if (m_id_count++ == 0 && !write_list_head())
            return write_failure();
        return write_short_string(m_file, m_text) && m_file.write_u32(value) ? "" : write_failure();
    }
    std::string take_message(std::string_view dictionary, std::uint32_t value) {
        if (std::string why = close_atom(); !why.empty())
            return why;
        std::size_t place = m_half;
        while (place < base_halves.size() && dictionary != base_halves.at(place).name)
            ++place;
        if (place == base_halves.size())
            return "stands in the wrong half";
        if (std::string why = enter(place); !why.empty())
            return why;
        m_path = folder() + base_halves.at(m_half).name + names::list_ending;
        if (!m_map)
            m_map = std::make_unique<msidmap>(folder(), base_halves.at(m_half).name);
        if (!is_live_id(m_text, value))
            return "is no message ID with a time";
        if (m_map->search(m_text) != 0)
            return "has a message ID that stood there before";
        if (!m_map->insert(m_text, value))
            return write_failure();
        ++m_sum.messages;
        return {};
    }
    // Each piece after those before it; what is left out is zeros. Whether all is right is seen at the end.
    std::string take_verdict(const std::vector<std::string_view>& fields) {
        if (std::string why = close_atom(); !why.empty())
            return why;
        const auto at = fields.size() == 3 ? number_of(fields[1]) : std::nullopt;
        if (!at || *at < m_verdict.size() || *at > largest_verdict - verdict_message_size)
            return "has a field that is wrong, or is out of order";
        m_verdict.resize(*at);
        for (std::size_t i = 0; i < fields[2].size(); i += 2) {
            const auto byte = from_hex(fields[2], i);
            if (!byte)
                return "its text is wrongly escaped or too long";
            m_verdict.push_back(*byte);
        }
        return {};
    }
    std::string take_end(const std::vector<std::string_view>& fields) {
        if (std::string why = close_atom() + close_list(); !why.empty())
            return why;
        m_ended = true;
        if (!m_verdict.empty()) {
            m_verdict.resize(std::max(m_verdict.size(), verdict_messages_at));
            if (!parse_verdict(m_verdict, m_state.emplace()))
                return "the lines \"verdict\" in front of it make no whole file";
        }
        if (fields.size() != 2 || number_of(fields[1]) != m_sum.lines - 1)
            return "tells another number of lines than there are: some are missing, or too many";
        return {};
    }

    std::string enter(std::size_t place) {
        if (place == m_half)
            return {};
        std::string why = close_list();
        m_stem.clear();
        m_half = place;
        return why;
    }
    // Its head counts the IDs. That of the last one is the only one that no other follows.
    std::string close_list() {
        if (!m_map)
            return {};
        const std::uint32_t count = m_map->records();
        m_path = m_map->list_path();
        m_map.reset();
        std::array<std::uint8_t, 4> told{};
        const auto got = platform::peek_file(m_path, list_count_at, told.data(), told.size());
        return got == told.size() && load_u32(told.data()) == count ? std::string() : write_failure();
    }
    // Corrects the block's head, which could not be known before.
    std::string close_atom() {
        if (!m_file.is_open())
            return {};
        if (m_count != m_head.tokens || (m_ids && m_id_count != *m_ids))
            return "comes too early: lines of the atom " + m_stem + " are missing";
        if (m_bytes > 0xFFFFFFFFU)
            return "the atom " + m_stem + " is too large";
        const bool done = (!m_ids || m_id_count != 0 || write_list_head()) &&
                          m_file.seek(static_cast<std::int64_t>(m_block), platform::origin::begin) &&
                          m_file.write_u32(static_cast<std::uint32_t>(m_count)) &&
                          m_file.write_u32(static_cast<std::uint32_t>(m_bytes)) && m_file.raw().flush();
        return m_file.close() && done ? std::string() : write_failure();
    }
    bool write_list_head() {
        return m_file.write_u32(signature::list) && m_file.write_u32(2) &&
               m_file.write_u32(m_ids.value_or(0)) && m_file.write_u32(0);
    }
    std::string folder() { return m_holder.folder().path(base_halves.at(m_half).stage); }
    [[nodiscard]] std::string write_failure() const {
        return platform::display_path(m_path) + " can't be written (error " +
               std::to_string(platform::last_error()) + ")";
    }

    tmpfld_holder& m_holder;
    base_text_sum& m_sum;
    std::string m_text;
    std::vector<std::uint8_t> m_verdict;
    std::optional<verdict_state> m_state;
    bool m_ended = false;
    std::size_t m_half = 0;
    std::unique_ptr<msidmap> m_map; // of the half, once a message was there
    std::string m_stem;             // of the last atom of the half
    // The open atom.
    file_stream m_file;
    std::string m_path;
    atom_head m_head;
    std::optional<std::uint32_t> m_ids;
    std::uint64_t m_block = 0; // where its token block begins
    std::uint64_t m_count = 0;
    std::uint64_t m_bytes = 0;
    std::uint32_t m_id_count = 0;
    std::uint32_t m_last_hash = 0;
};

// Hands all lines to the importer.
std::string take_lines(importer& into, std::istream& in) {
    std::vector<char> room(longest_line);
    std::uint64_t number = 0;
    const auto at = [&](const std::string& why) { return "line " + std::to_string(number) + ": " + why; };
    for (;;) {
        in.getline(room.data(), static_cast<std::streamsize>(room.size()));
        std::string_view line(room.data(), static_cast<std::size_t>(in.gcount()));
        if (in.bad())
            return at("the text can't be read on");
        if (in.eof() && line.empty())
            break;
        ++number;
        if (in.fail())
            return at("is too long");
        if (!in.eof())
            line.remove_suffix(1); // the line's end
        if (in.eof() && line.front() != '#' && !line.starts_with("end\t"))
            return at("is cut off");
        if (!line.empty() && line.front() != '#')
            if (const std::string why = into.take(line); !why.empty())
                return at(why);
        if (in.eof())
            break;
    }
    const std::string why = into.finish();
    return why.empty() ? why : at(why);
}

} // namespace

bool is_empty_base(const std::string& folder) {
    for (const base_half& each : base_halves) {
        platform::directory_search search;
        platform::directory_entry entry;
        if (search.first(folder + each.name + names::any_atom, entry))
            return false;
        const std::uint32_t size = file_size(folder + each.name + names::list_ending);
        if (size != no_file_size && size > list_head)
            return false;
    }
    return true;
}

std::string import_base(const std::string& folder, std::istream& in,
                        const std::function<std::string()>& may_commit, base_text_sum& sum) {
    make_folders(folder + "transact");
    tmpfld_holder holder;
    holder.init(folder);
    for (const base_half& each : base_halves)
        holder.folder().prepare(each.stage);
    std::string why;
    {
        importer into(holder, sum);
        why = take_lines(into, in);
        if (why.empty())
            why = may_commit();
        const std::string working(folder_part(folder.substr(0, folder.size() - 1)));
        if (why.empty() && into.verdict() && !replace_verdict(working, into.verdict()))
            why = platform::display_path(verdict_path(working)) + ": can't be written (error " +
                  std::to_string(platform::last_error()) + ")";
    }
    if (why.empty()) {
        for (const base_half& each : base_halves)
            holder.folder().make_durable(each.stage);
        // Both marks must stand, or the engine throws both halves away.
        for (const base_half& each : base_halves)
            holder._mark_prepared(each.stage);
        for (const base_half& each : base_halves)
            if (file_size(holder.folder().path_of(each.stage, names::stage_marker)) !=
                stage_marker_text.size())
                why = platform::display_path(holder.folder().path(each.stage)) + ": can't be written";
    }
    if (!why.empty())
        for (const base_half& each : base_halves)
            holder.folder().remove(each.stage);
    return why;
}

} // namespace tvr
