#include "dict/atom.h"

#include <array>

#include "common/bytes.h"
#include "common/file_stream.h"
#include "common/files.h"
#include "common/logger.h"
#include "common/minutes.h"
#include "common/path.h"
#include "dict/hashmap.h"
#include "dict/message_reader.h"
#include "dict/ring.h"
#include "msid/msid_access.h"
#include "platform/file.h"

namespace tvr {

namespace {

constexpr std::uint32_t too_small = 10000; // minutes; a stamp below is logged, and used as it is

void add_to_value(std::uint8_t* value, std::uint32_t difference) {
    if (value)
        store_u32(value, load_u32(value) + difference);
}

// Opens an atom's file and stops before the token block.
bool open_behind_head(file_stream& file, const std::string& path) {
    if (!file.open_to_read(path)) {
        TVR_LOG(transact_log, "[i] .bye opening failed (%s)", path.c_str());
        return false;
    }
    atom_head head;
    head.read(file);
    return true;
}

} // namespace

atom_head::atom_head() : header(signature) {
    header.add(messages, 0).add(tokens, 0).add(occurrences, 0).add(oldest, 0).add(newest, 0);
}

bool atom_head::read(file_stream& file) {
    messages = tokens = occurrences = oldest = newest = 0;
    return header.read(file);
}

bool atom_head::read(std::span<const std::uint8_t> memory, std::size_t& behind) {
    messages = tokens = occurrences = oldest = newest = 0;
    behind = 0;
    return header.read(memory, behind);
}

bool atom_head::peek(std::string_view path) {
    std::array<std::uint8_t, 8 + 4 * fileheader::limit> start;
    const auto got = platform::peek_file(path, 0, start.data(), start.size()).value_or(0);
    std::size_t behind = 0;
    return read(std::span<const std::uint8_t>(start).first(got), behind);
}

bool atom_is_before(const atom_head& a, std::string_view a_name, const atom_head& b,
                    std::string_view b_name) {
    if (a.oldest != b.oldest)
        return a.oldest < b.oldest;
    if (a.messages != b.messages)
        return a.messages > b.messages;
    return a_name < b_name;
}

bye_atom::bye_atom() = default;
bye_atom::~bye_atom() = default;

void bye_atom::open(std::string_view path) {
    m_path = path;
    m_has_msids = true;
    peek(path);
}

// Made on the first use, as in most runs nobody asks: a temporary map costs two files.
msidmap* bye_atom::msids() {
    if (m_has_msids && !m_msids) {
        file_stream file;
        m_has_msids = file.open_to_read(m_path);
        if (m_has_msids) {
            atom_head head;
            head.read(file);
            hashmap_impl::skip(file);
            m_msids.reset(pool_new<msidmap>(file));
        }
    }
    return m_msids.get();
}

void bye_atom::add_message(std::uint64_t offset, std::uint32_t stamp, bool positive) {
    if (positive && is_ordinal())
        return;
    if (stamp < too_small)
        TVR_LOG(transact_log, "[i] timestamp is too small (%d)", static_cast<int>(stamp));
    const std::uint32_t now = now_minutes();
    if (stamp > now) {
        TVR_LOG(transact_log, "[i] timestamp is from future. Correcting (from %d to %d)",
                static_cast<int>(stamp), static_cast<int>(now));
        stamp = now;
    }
    m_changes.push_back({offset, positive});
    const std::uint32_t step = positive ? 1U : ~0U;
    messages += step;
    bye_ring::messages_seen += step;
    if (oldest == 0)
        oldest = stamp;
    if (newest < stamp && stamp != oldest)
        newest = stamp;
    if (newest == oldest)
        newest = 0; // or the atom would look like an ordinal one
}

bool bye_atom::try_add(std::uint64_t offset, std::uint32_t stamp, bool positive, std::uint32_t limit) {
    if (positive ? is_ordinal() || messages >= limit : messages == 0)
        return false;
    add_message(offset, stamp, positive);
    return true;
}

void bye_atom::apply_changes(dword_map& final, message_reader& reader, msid_access& msids) {
    for (const change& planned : m_changes) {
        if (!reader.read(planned.offset))
            continue;
        msidmap* const own = this->msids();
        if (planned.positive) {
            if (own)
                own->insert(reader.head.msid, reader.head.time);
            msids.add(reader.head.msid, reader.head.time);
        } else {
            if (own)
                own->remove(reader.head.msid);
            msids.remove(reader.head.msid);
        }
        const std::uint32_t sign = planned.positive ? 1U : ~0U;
        reader.tokens.for_each([&](std::string_view token, std::uint32_t count) {
            add_to_value(final.get_or_add(token), sign * count);
        });
    }
}

// A new atom's counts are the differences themselves. False, with nothing done, for what can't be taken so:
// an empty token stays behind, and a difference of 0 is none.
bool bye_atom::take_all(dword_map& final, dword_map& counts) {
    std::uint32_t sum = 0;
    std::string_view token;
    std::uint8_t* value = nullptr;
    for (final.rewind(); final.next(token, value);) {
        if (token.empty() || load_u32(value) == 0)
            return false;
        sum += load_u32(value);
    }
    occurrences += sum;
    counts.swap(final);
    return true;
}

bool bye_atom::take_differences(dword_map& final, dword_map& counts, bool strict) {
    if (strict && counts.count() == 0 && take_all(final, counts))
        return counts.count() != 0;
    bool changed = false;
    std::string_view token;
    std::uint8_t* rest = nullptr;
    for (final.rewind(); final.next(token, rest);) {
        std::uint8_t* const value = counts.get_or_add(token);
        if (!value)
            continue;
        const std::uint32_t current = load_u32(value);
        std::uint32_t difference = load_u32(rest);
        if (!strict && static_cast<std::int32_t>(current + difference) < 0)
            difference = 0U - current;
        occurrences += difference;
        if (difference == 0)
            continue;
        store_u32(value, current + difference);
        store_u32(rest, load_u32(rest) - difference);
        changed = true;
    }
    return changed;
}

bool bye_atom::rewrite(dword_map& final, std::string_view folder, bool strict) {
    dword_map counts;
    {
        file_stream original_bye;
        if (!open_behind_head(original_bye, m_path))
            return false;
        counts.init_from_file(original_bye); // a damaged block counts as empty
    }
    const auto merged = strict && counts.count() != 0 ? counts.add_in_order(final) : std::nullopt;
    bool changed = false;
    if (merged) {
        changed = merged->any;
        occurrences += merged->sum;
    } else {
        counts.expect(final.count());
        changed = take_differences(final, counts, strict);
        if (strict) {
            final.compact();
            if (final.count() != 0)
                TVR_LOG(transact_log, "[-] when touching ordinal dictionary %d tokens was ignored",
                        static_cast<int>(final.count()));
        }
    }
    if (strict)
        final.clear();
    const std::string target = join_path(folder, file_part(m_path));
    if (!changed)
        return link_or_copy(m_path, target, false);
    if (!merged) {
        counts.compact();
        final.compact();
    }
    tokens = counts.count();
    if (tokens == 0) {
        platform::delete_file(target);
        return true;
    }
    return write_file(target, counts, merged.has_value());
}

bool bye_atom::write_file(const std::string& target, dword_map& counts, bool in_order) {
    file_stream file;
    if (!file.create_to_write(target)) {
        TVR_LOG(transact_log, "[i] .bye opening for writing failed (%s)", target.c_str());
        return false;
    }
    bool whole = header.write(file) && (in_order ? counts.flush(file) : counts.flush_ordered(file));
    if (msidmap* const own = msids()) {
        own->write_out(file);
        m_msids.reset();
    }
    whole = file.close() && whole;
    if (whole)
        return true;
    // A cut atom would take the place of a good one: what was there stays, without the changes.
    TVR_LOG(transact_log, "[-] .bye writing failed (%s)", target.c_str());
    platform::delete_file(target);
    link_or_copy(m_path, target, false);
    return false;
}

void bye_atom::give_span_to(bye_atom& target) {
    if (target.oldest == 0 || oldest < target.oldest)
        target.oldest = oldest;
    // deliberate: `oldest` is compared on this side, so that an overlapping span leaves the target's end
    // alone.
    if (target.newest == 0 || oldest > target.newest)
        target.newest = newest;
    msidmap* const own = msids();
    if (msidmap* const its = own ? target.msids() : nullptr)
        its->merge(own->list_path());
}

void bye_atom::fold(dword_map& final, message_reader& reader, msid_access& msids, bye_atom* target) {
    if (target)
        give_span_to(*target);
    apply_changes(final, reader, msids);
    file_stream file;
    if (!open_behind_head(file, m_path))
        return;
    dword_map counts;
    counts.init_from_file(file);
    std::string_view token;
    std::uint8_t* value = nullptr;
    for (counts.rewind(); counts.next(token, value);)
        add_to_value(final.get_or_add(token), load_u32(value));
}

void bye_atom::remove_file() const {
    if (!m_path.empty())
        platform::delete_file(m_path);
}

} // namespace tvr
