// The files with token blocks: atoms, the compiled base, the message cache; and the plans that name them.

#include <algorithm>
#include <bit>

#include "common/bytes.h"
#include "common/token_hash.h"
#include "tools/formats/signatures.h"
#include "tools/formats/walks.h"
#include "tools/text.h"

namespace tvr {

namespace {

constexpr std::size_t overhead = 5; // bytes of an entry without its token

struct token {
    std::string_view text;
    std::uint32_t value = 0;
};

struct token_sums {
    std::uint64_t entries = 0;
    std::uint64_t bytes = 0;
    std::uint32_t values = 0; // wraps, as the sums in the headers do
};

// Reads entries and tells each of them to `visit`. False after a defect that leaves nothing to go on with.
class token_reader {
public:
    token_reader(file_view& file, view_sink& sink, bool ordered)
        : m_file(file), m_sink(sink), m_ordered(ordered) {}

    template <class Visitor>
    bool read(std::uint64_t count, Visitor&& visit) {
        for (; sums.entries < count; ++sums.entries) {
            token entry;
            if (!next(entry))
                return false;
            check_order(entry.text);
            visit(entry);
            sums.values += entry.value;
            const std::size_t size = entry.text.size() + overhead;
            sums.bytes += size;
            m_file.skip(size);
        }
        return true;
    }

    token_sums sums;
    std::uint64_t limit = ~std::uint64_t{0}; // no token leads past it

private:
    bool next(token& entry) {
        auto bytes = m_file.ahead(1);
        const std::size_t length = bytes.empty() ? 0 : bytes[0];
        bytes = m_file.ahead(length + overhead);
        if (bytes.size() < length + overhead) {
            cut_short(m_file, m_sink, "token " + grouped(sums.entries + 1));
            return false;
        }
        if (length + overhead > limit - std::min(limit, m_file.position())) {
            m_sink.defect(m_file.position(),
                          "token " + grouped(sums.entries + 1) + " leads out of its record");
            return false;
        }
        if (length == 0) {
            m_sink.defect(m_file.position(), "token " + grouped(sums.entries + 1) + " has no bytes");
            return false; // the engine stops there
        }
        entry.text = {reinterpret_cast<const char*>(bytes.data() + 1), length};
        entry.value = load_u32(bytes.data() + 1 + length);
        return true;
    }

    // One disorder is told; what follows it may be in order again.
    void check_order(std::string_view text) {
        if (!m_ordered)
            return;
        const std::uint32_t hash = order_hash(text);
        if (sums.entries != 0 && hash < m_hash && !m_told) {
            m_told = true;
            m_sink.defect(m_file.position(),
                          "token " + grouped(sums.entries + 1) + " is out of order: " + visible_start(text));
        }
        if (sums.entries != 0 && text == m_last)
            m_sink.defect(m_file.position(), "the token stands twice: " + visible_start(text));
        m_hash = hash;
        m_last = text;
    }

    file_view& m_file;
    view_sink& m_sink;
    bool m_ordered;
    bool m_told = false;
    std::uint32_t m_hash = 0;
    std::string m_last;
};

// A whole block. The count of its head goes to `count`.
template <class Visitor>
bool walk_block(file_view& file, view_sink& sink, token_reader& reader, std::uint32_t& count,
                Visitor&& visit) {
    if (!file.has(8)) {
        cut_short(file, sink, "the head of the tokens");
        return false;
    }
    const auto head = file.ahead(8);
    count = load_u32(head.data());
    const std::uint32_t bytes = load_u32(head.data() + 4);
    const std::uint64_t head_at = file.position();
    file.skip(8);
    if (!reader.read(count, visit))
        return false;
    if (reader.sums.bytes == bytes)
        return true;
    sink.defect(head_at + 4, "the head tells " + grouped(bytes) + " bytes of tokens, there are " +
                                 grouped(reader.sums.bytes));
    return false;
}

void compare(view_sink& sink, std::uint64_t offset, const char* what, std::uint64_t told,
             std::uint64_t found) {
    if (told != found)
        sink.wrong_total(offset,
                         "the header tells " + grouped(told) + " " + what + ", there are " + grouped(found),
                         static_cast<std::uint32_t>(found));
}

void show_token(view_sink& sink, const token& entry) {
    if (sink.wants_entry())
        sink.entry({{"token", std::string(entry.text)}, {"count", std::uint64_t{entry.value}}});
}

void show_head(view_sink& sink, const atom_head& head) {
    sink.field("messages", std::uint64_t{head.messages});
    sink.field("tokens", std::uint64_t{head.tokens});
    sink.field("occurrences", std::uint64_t{head.occurrences});
    sink.field("oldest", moment(head.oldest));
    sink.field("newest", moment(head.newest));
    sink.field("divided", head.is_ordinal());
}

} // namespace

void walk_atom(file_view& file, view_sink& sink) {
    atom_head head;
    if (!take_header(file, sink, head.header))
        return;
    show_head(sink, head);
    if (head.messages == 0 && head.tokens == 0 && !file.has(1))
        return; // a fresh name
    sink.list("token list");
    token_reader reader(file, sink, true);
    const auto visit = [&](const token& entry) { show_token(sink, entry); };
    std::uint32_t count = head.tokens;
    // The oldest form has no block head.
    const bool whole = head.header.filecount() > 3 ? walk_block(file, sink, reader, count, visit)
                                                   : reader.read(head.tokens, visit);
    if (!whole)
        return;
    compare(sink, 12, "tokens", head.tokens, count);
    compare(sink, 16, "occurrences", head.occurrences, reader.sums.values);
    if (!file.has(1))
        return;
    sink.list("message ids");
    walk_list(file, sink);
}

void walk_base(file_view& file, view_sink& sink) {
    constexpr float lowest = 0.01F;
    constexpr float highest = 0.99F;
    base_header head;
    if (file.has(4) && load_u32(file.ahead(4).data()) == signature::old_base)
        head.header.signature = signature::old_base;
    if (!take_header(file, sink, head.header))
        return;
    sink.field("old form", head.header.signature == signature::old_base);
    sink.field("spam messages", std::uint64_t{head.spam_messages});
    sink.field("ham messages", std::uint64_t{head.nonspam_messages});
    sink.field("spam tokens", std::uint64_t{head.spam_tokens});
    sink.field("ham tokens", std::uint64_t{head.nonspam_tokens});
    sink.field("spam oldest", moment(head.spam_oldest));
    sink.field("spam newest", moment(head.spam_newest));
    sink.field("ham oldest", moment(head.nonspam_oldest));
    sink.field("ham newest", moment(head.nonspam_newest));
    if (file.has(4))
        sink.field("tokens", std::uint64_t{load_u32(file.ahead(4).data())});
    sink.list("token list");
    token_reader reader(file, sink, true);
    std::uint32_t count = 0;
    const bool whole = walk_block(file, sink, reader, count, [&](const token& entry) {
        const auto value = std::bit_cast<float>(entry.value);
        if (!(value >= lowest && value <= highest)) // also if it is no number
            sink.defect(file.position() + 1 + entry.text.size(),
                        "no probability from 0.01 to 0.99: " + visible_start(entry.text));
        if (sink.wants_entry())
            sink.entry({{"token", std::string(entry.text)}, {"probability", double{value}}});
    });
    if (whole)
        expect_end(file, sink);
}

void walk_cache(file_view& file, view_sink& sink) {
    if (!file.has(4)) {
        cut_short(file, sink, "the number of records");
        return;
    }
    const std::uint32_t told = load_u32(file.ahead(4).data());
    file.skip(4);
    sink.field("records", std::uint64_t{told});
    sink.list("messages");
    std::uint64_t records = 0;
    for (; file.has(1); ++records) {
        message_head head;
        const std::uint64_t start = file.position();
        if (!take_header(file, sink, head.header) || !take_short_text(file, sink, head.msid))
            return;
        if (sink.wants_entry())
            sink.entry({{"at", start},
                        {"id", head.msid},
                        {"spam", (head.flags & message_flag::spam) != 0},
                        {"deleted", (head.flags & message_flag::deleted) != 0},
                        {"by hand", (head.flags & message_flag::manual) != 0},
                        {"marked", (head.flags & message_flag::marked) != 0},
                        {"size", std::uint64_t{head.size}},
                        {"time", moment(head.time)},
                        {"tokens", std::uint64_t{file.has(4) ? load_u32(file.ahead(4).data()) : 0}}});
        token_reader reader(file, sink, false);
        reader.limit = start + head.length;
        std::uint32_t count = 0;
        const bool whole = walk_block(file, sink, reader, count, [&](const token& entry) {
            if (sink.wants_details())
                show_token(sink, entry);
        });
        if (whole && file.position() - start != head.length)
            sink.defect(start + 8, "the record tells a length of " + grouped(head.length) +
                                       " bytes, it has " + grouped(file.position() - start));
        if (head.length == 0)
            return; // the engine stops there
        if (file.position() != start + head.length)
            file.go_to(start + head.length); // as the engine goes on, whatever stands in the record
    }
    compare(sink, 0, "records", told, records);
}

void walk_columns(file_view& file, view_sink& sink) {
    std::uint32_t atoms = 0;
    fileheader header(signature::columns);
    header.add(atoms, 0);
    if (!take_header(file, sink, header))
        return;
    sink.field("atoms", std::uint64_t{atoms});
    sink.list("plans");
    for (std::uint32_t i = 0; i < atoms; ++i) {
        const std::uint64_t start = file.position();
        std::string path;
        atom_head head;
        if (!take_short_text(file, sink, path) || !take_header(file, sink, head.header))
            return;
        if (!file.has(5)) {
            cut_short(file, sink, "atom " + grouped(i + 1));
            return;
        }
        const auto rest = file.ahead(5);
        const std::uint8_t merge = rest[0];
        const std::uint32_t changes = load_u32(rest.data() + 1);
        file.skip(5);
        if (merge > 1)
            sink.defect(file.position() - 5, "the mark of a merger is neither 0 nor 1");
        if (sink.wants_entry())
            sink.entry({{"at", start},
                        {"atom", path},
                        {"messages", std::uint64_t{head.messages}},
                        {"oldest", moment(head.oldest)},
                        {"newest", moment(head.newest)},
                        {"to merge", merge != 0},
                        {"changes", std::uint64_t{changes}}});
        for (std::uint32_t change = 0; change < changes; ++change) {
            if (!file.has(9)) {
                cut_short(file, sink, "the changes of atom " + grouped(i + 1));
                return;
            }
            const auto bytes = file.ahead(9);
            const auto position = load_le<std::uint64_t>(bytes.data());
            const std::uint8_t add = bytes[8];
            if (add > 1)
                sink.defect(file.position() + 8, "the direction of a change is neither 0 nor 1");
            sink.message_position(file.position(), position);
            if (sink.wants_details() && sink.wants_entry())
                sink.entry({{"message at", position}, {"add", add != 0}});
            file.skip(9);
        }
    }
    expect_end(file, sink);
}

} // namespace tvr
