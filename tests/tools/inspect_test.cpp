// What is shown of the engine's files, and what is found wrong with them.

#include <bit>
#include <cmath>
#include <sstream>

#include "client/verdict/verdict_file.h"
#include "msid/msidmap.h"
#include "platform/file.h"
#include "support/atom_bytes.h"
#include "support/test.h"
#include "tools/formats/inspection.h"
#include "tools/state/state_check.h"

namespace tvr {
namespace {

using std::string_literals::operator""s;

constexpr std::uint32_t time_1 = 213'000'000; // minutes; 2005-12-25 16:00

std::uint32_t real(float value) {
    return std::bit_cast<std::uint32_t>(value);
}

// "Aa" goes before "Ba" by its hash.
const std::string tokens = block_bytes(2, counted("Aa", 2) + counted("Ba", 3));
const std::string atom = le(0x19780702, 5, 4, 2, 5, time_1, 0) + tokens;
const std::string list = le(0x4449536E, 2, 2, 9) + counted("<1>", time_1) + counted("\0\0\0\0"s, 0);
const std::string base = le(0x4A534144, 8, 1, 2, 3, 4, time_1, time_1, 0, 0) +
                         block_bytes(2, counted("Aa", real(0.5F)) + counted("Ba", real(0.99F)));
const std::string time_mark = std::string("\0\x80\x3E\xD5\xDE\xB1\x9D\1", 8); // 1970-01-01

std::string record(const std::string& id, const std::string& token_block, std::uint32_t flags = 2) {
    return record_bytes(flags, 700, time_1, id, token_block);
}
const std::string cache = le(2) + record("<1>", tokens) + record("<2>", block_bytes(0, ""), 5);

std::string columns(std::uint64_t position) {
    return le(0x454A546F, 1, 1) + pascal("\\x\\spamdict0000.bye") + atom.substr(0, 28) + "\1"s +
           le(1, position, 0) + "\1";
}

// An index of one leaf page with the key of "<1>".
std::string index(std::uint32_t offset, std::uint32_t keys = 2) {
    std::string bytes = le(0x12351237, 3, 512, 1024, keys);
    bytes.resize(512);
    bytes += le(offset) + "\2\3<1>       "s;
    bytes.resize(1024);
    return bytes;
}

std::string learned() {
    verdict_state state{.judged = 3, .trust = 0.5, .recent_ham = 1, .ham_scores = {0}};
    state.messages.push_back({.time = time_1,
                              .spam = true,
                              .what = {.by_base = {.spam_messages = 4, .ham_messages = 5}, .by_all = {}}});
    state.memory.weights().make_all()[9] = -1;
    state.seen.add(std::vector{token_key{9}}, true);
    const auto bytes = verdict_bytes(state);
    return {bytes.begin(), bytes.end()};
}

struct inspect_test : testing::Test {
    std::string inspect(const std::string& name, const std::string& bytes,
                        const inspect_options& options = {}) {
        write_file(m_root.path() / name, bytes);
        std::ostringstream out, errors;
        const bool good = inspect_file((m_root.path() / name).string(), options, out, errors);
        EXPECT_EQ(good, errors.str().empty()) << errors.str();
        m_errors = errors.str();
        std::string text = out.str();
        std::string folder = (m_root.path() / "").string();
        if (m_errors.starts_with("tvrctl: " + folder + name + ": "))
            m_errors.erase(0, 8 + folder.size() + name.size() + 2);
        for (std::size_t at = 0; options.json && (at = folder.find('\\', at)) != std::string::npos; at += 2)
            folder.insert(at, 1, '\\');
        return text.erase(0, text.empty() ? 0 : text.find(folder) + folder.size());
    }

    test_root m_root;
    std::string m_errors; // without the name of the file
};

TEST_F(inspect_test, shows_every_kind) {
    const std::string settings = "abba\1\0\0\0\1\0one\0\2\0two\0\xFF\xFF\0"
                                 "\x40\1\1\0\x40\1\2\0\x47\3abc"s;
    const std::string archive = "\3\0\1\1a"s + le(2) + "xy\2\3\1f\1\1b"s + le(0x26072105, 2, 300, 18) +
                                "zz\2\1\1c\2" + "\1\1d" + le(0x26072105, 2, 28) + "\xF\0\0\2\4\4\5"s;
    const struct {
        const char* name;
        std::string bytes;
        const char* shown;
    } rows[] = {
        {"a", atom + list,
         "a: atom, 83 bytes\n  messages: 4\n  tokens: 2\n  occurrences: 5\n  oldest: 2005-12-25 16:00\n"
         "  newest: -\n  divided: no\n  token list:\n    token Aa  count 2\n    token Ba  count 3\n"
         "  message ids:\n    id <1>  time 2005-12-25 16:00\n  id records: 2\n  garbage: 9\n  live: 1\n"
         "  dead: 1\n"},
        // The oldest form: three values, no head of the tokens.
        {"b", le(0x19780702, 3, 4, 1, 3) + counted("\7\xE9", 3),
         "b: atom, 27 bytes\n  messages: 4\n  tokens: 1\n  occurrences: 3\n  oldest: -\n  newest: -\n"
         "  divided: no\n  token list:\n    token \\x07\\xE9  count 3\n"},
        {"c", base,
         "c: compiled base, 62 bytes\n  old form: no\n  spam messages: 2\n  ham messages: 1\n"
         "  spam tokens: 3\n  ham tokens: 4\n  spam oldest: 2005-12-25 16:00\n"
         "  spam newest: 2005-12-25 16:00\n  ham oldest: -\n  ham newest: -\n  tokens: 2\n  token list:\n"
         "    token Aa  probability 0.500000\n    token Ba  probability 0.990000\n"},
        {"d.mrk", time_mark, "d.mrk: time mark, 8 bytes\n  time: 1970-01-01 00:00:00 UTC\n"},
        {"e", index(16),
         "e: message-ID index, 1,024 bytes\n  root: 512\n  bytes in use: 1024\n  keys: 2\n  key list:\n"
         "    key \\x03<1>         offset 16\n"},
        {"f", columns(4),
         "f: column file, 74 bytes\n  atoms: 1\n  plans:\n"
         "    at 12  atom \\x\\spamdict0000.bye  messages 4  oldest 2005-12-25 16:00  newest -  to merge yes "
         " changes 1\n"},
        {"g", cache,
         "g: message cache, 106 bytes\n  records: 2\n  messages:\n"
         "    at 4  id <1>  spam yes  deleted no  by hand no  marked no  size 700  time 2005-12-25 16:00  "
         "tokens 2\n"
         "    at 62  id <2>  spam no  deleted yes  by hand yes  marked no  size 700  time 2005-12-25 16:00  "
         "tokens 0\n"},
        {"h", "STAT" + le(3'550'000, 1, 2, 3, 4, 5, 6, 7, 8),
         "h: statistic, 40 bytes\n  hours:\n"
         "    hour 2005-12-25 16  spam bytes 1  ham bytes 2  re-marked spam bytes 3  re-marked ham bytes 4  "
         "spam 5  ham 6  re-marked spam 7  re-marked ham 8\n"},
        {"ipc.bin", le(5), "ipc.bin: signals, 4 bytes\n  events:\n    event 0\n    event 2\n"},
        {"i", archive,
         "i: archive, 63 bytes\n  files:\n    file a  size 2  packed 0\n"
         "    file f\\b  size 300  packed 18\n    file f\\c  size 0  packed 0\n"
         "    file f\\d  size 28  packed 15\n"},
        {"j", settings,
         "j: settings, 36 bytes\n  version: 1\n  names: 2\n  entries:\n"
         "    name one  kind section  children 1\n    name two  kind string  bytes 3\n"},
        {"k", learned(),
         "k: learned verdict, 525,552 bytes\n  messages judged: 3\n  messages kept: 1\n  spam kept: 1\n"
         "  not learned yet: 0\n  trust: 0.500000\n  spam from: 90.024951\n"
         "  places of the memory in use: 1\n  bias of the memory: 0.000000\n  tokens seen: 1\n"
         "  in spam messages: 1\n  in ham messages: 0\n  messages:\n"
         "    time 2005-12-25 16:00  spam yes  score 50.000000  learned score 50.000000  base spam 4  base "
         "ham 5\n"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(inspect(row.name, row.bytes), row.shown) << m_errors;
}

TEST_F(inspect_test, leaves_out_or_shows_all) {
    std::string words;
    for (char c = 'a'; c <= 'l'; ++c)
        words += counted(std::string(1, c), 1);
    const std::string bytes = le(1) + record("<1>", block_bytes(12, words));
    const std::string brief = inspect("x", le(0x19780702, 5, 1, 12, 12, time_1, 0) + block_bytes(12, words));
    EXPECT_TRUE(brief.ends_with("    token j  count 1\n    and 2 more\n")) << brief;
    EXPECT_TRUE(inspect("x", bytes, {.all = true}).ends_with("    token l  count 1\n"));
    EXPECT_TRUE(holds(inspect("x", columns(4), {.all = true}), "    message at 4  add yes\n"));
    EXPECT_EQ(
        inspect("x", list.substr(0, 24) + "\0"s, {.json = true}),
        "x\",\"kind\":\"message-ID list\",\"size\":25,\"message_ids\":["
        "{\"id\":\"<1>\",\"time\":\"2005-12-25 16:00\"}],"
        "\"id_records\":2,\"garbage\":9,\"live\":1,\"dead\":0,"
        "\"defects\":[{\"offset\":8,\"reason\":\"the header tells 2 records, there are 1 and 0 dead ones\"},"
        "{\"offset\":12,\"reason\":\"the header tells 9 bytes of dead records, there are 1\"}]}\n");
}

TEST_F(inspect_test, names_damage) {
    const auto with = [](std::string bytes, std::size_t at, const std::string& part) {
        return bytes.replace(at, part.size(), part);
    };
    const struct {
        const char *name, *error;
        std::string bytes;
    } rows[] = {
        {"a", "no file of the engine, by content or name", "text"},
        {"a.bye", "offset 0: the signature is 74786574, not 19780702", "text"},
        {"a.bye", "offset 0: the file ends inside a header", ""},
        {"a", "offset 4: the header has more than 30 values", with(atom, 4, le(31))},
        {"a", "offset 0: the file ends inside a header", atom.substr(0, 20)},
        {"a", "offset 28: the file ends inside the head of the tokens", atom.substr(0, 28)},
        {"a", "offset 43: the file ends inside token 2", atom.substr(0, 49)},
        {"a", "offset 43: token 2 is out of order: 0a", with(atom, 44, "0")},
        {"a", "offset 43: the token stands twice: Aa", with(atom, 44, "A")},
        {"a", "offset 36: token 1 has no bytes", with(atom, 36, "\0"s)},
        {"a", "offset 32: the head tells 15 bytes of tokens, there are 14", with(atom, 32, le(15))},
        {"a", "offset 12: the header tells 3 tokens, there are 2", with(atom, 12, le(3))},
        {"a", "offset 16: the header tells 6 occurrences, there are 5", with(atom, 16, le(6))},
        {"a", "offset 50: the signature is 61746164, not 4449536E", atom + "data"},
        {"b", "offset 51: no probability from 0.01 to 0.99: Aa", with(base, 51, le(real(NAN)))},
        {"b", "offset 62: bytes behind the end", base + "x"},
        {"c.mrk", "offset 0: the file ends inside the time", "1234567"},
        {"d", "offset 24: the file ends inside record 2", list.substr(0, 24) + "\7abc"},
        {"e", "offset 8: the root is no page of the file", with(index(16), 8, le(1024))},
        {"e", "offset 12: the size in the header is not that of whole pages in the file",
         index(16).substr(0, 999)},
        {"e", "offset 516: the flags of the slot fit neither leaf nor inner page",
         with(index(16), 516, "\6")},
        {"e", "offset 512: the page is reached a second time", with(index(512), 516, "\3")},
        {"e", "offset 512: the child is no page of the file", with(index(1024), 516, "\3")},
        {"e", "offset 533: the key is out of order", with(index(16), 528, le(9) + "\2\3<1"s)},
        {"f", "offset 65: the file ends inside the changes of atom 1", columns(4).substr(0, 73)},
        {"g", "offset 12: the record tells a length of 59 bytes, it has 58", with(cache, 12, le(59))},
        {"g", "offset 55: token 2 leads out of its record", with(cache.substr(0, 62), 12, le(57))},
        {"g", "offset 0: the header tells 3 records, there are 2", with(cache, 0, le(3))},
        {"h", "offset 40: the hour is out of order", "STAT" + std::string(72, '\0')},
        {"h", "offset 4: the file ends inside entry 1", "STAT" + std::string(35, '\0')},
        {"i", "offset 5: the content of a has no end", "\3\0\1\1a"s + le(9) + "\2"},
        {"i", "offset 5: the content of a has no end", "\3\0\1\1a"s + le(0x26072105, 3, 1, 18) + "zz\2\4\5"},
        {"data.trr", "offset 2: tag 5 doesn't belong there", "\3\0\5"s},
        {"data.trr", "offset 3: the file ends inside the archive", "\3\0\4"s},
        {"j", "offset 0: damaged: none of it is taken", "abba\1"},
        {"k", "offset 0: damaged, or of another version: none of it is taken", learned() + "x"},
    };
    for (const auto& row : rows) {
        inspect(row.name, row.bytes);
        EXPECT_EQ(m_errors.substr(0, m_errors.find('\n')), row.error);
    }
    std::ostringstream out, errors;
    EXPECT_FALSE(inspect_file((m_root.path() / "absent").string(), {}, out, errors));
}

TEST_F(inspect_test, looks_at_files_in_use) {
    write_file(m_root.path() / "a", atom);
    platform::file held;
    ASSERT_TRUE(held.open(m_root.engine_path("a"), platform::access::read_write, platform::share::read,
                          platform::creation::open_existing));
    std::ostringstream out, errors;
    EXPECT_TRUE(inspect_file((m_root.path() / "a").string(), {}, out, errors)) << errors.str();
}

struct state_test : testing::Test {
    using files = std::vector<std::pair<std::string, std::string>>; // name and bytes

    // Names are taken from base\transact.
    void put(const files& all) {
        for (const auto& [name, bytes] : all)
            write_file(m_work / "base/transact" / name, bytes);
    }
    std::string check(bool engine_runs = false) {
        std::ostringstream out;
        state_check state(m_root.engine_path("work") + "\\", engine_runs, out);
        state.run();
        m_defects = state.defects();
        std::string text = out.str();
        std::replace(text.begin(), text.end(), '\\', '/');
        for (const std::string& part : {m_work.generic_string() + "/base/", "transact/"s})
            for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos;)
                text.erase(at, part.size());
        return text;
    }

    const std::string m_marker = "prepared\0"s;
    // Of the atom alone.
    const std::string m_made = le(0x4A534144, 8, 0, 4, 2, 0, time_1, time_1, 0, 0) + base.substr(40);
    const files m_good = {{"../../stat.bin", "STAT"}, {"../spamdict0000.bye", atom},
                          {"../spamdict.lst", list},  {"../spamdict.idx", index(16)},
                          {"../cashe.rgd", m_made},   {"../cashe.mrk", time_mark},
                          {"ipc.bin", le(0)},         {"autotrain.bys", cache}};
    const files m_sorted = {
        {"0002/data.bys", cache}, {"0002/spamdict.col", columns(62)}, {"0002/prepared.txt", m_marker}};
    test_root m_root;
    std::filesystem::path m_work = m_root.path() / "work";
    std::uint64_t m_defects = 0;
};

TEST_F(state_test, finds_nothing_in_a_good_state) {
    put(m_good);
    EXPECT_EQ(check(), "");
    put({{"0001/dis1.tmp", cache}, {"0001/prepared.txt", m_marker}});
    EXPECT_EQ(check(), "");
    put(m_sorted);
    put({{"0003/spamdict0000.bye", atom}, {"0003/prepared.txt", m_marker}});
    EXPECT_EQ(check(), "");
}

TEST_F(state_test, knows_what_heals) {
    put(m_good);
    put({{"../spamdict.idx", index(16, 7)}, {"../odd.dat", "odd"}, {"0001/dis1.tmp", ""}});
    EXPECT_EQ(check(), "note: odd.dat: no file of the engine\n"
                       "note: spamdict.idx: doesn't fit its list; it will be made again\n"
                       "note: 0001/: an empty stage without its marker\n");
    put({{"0003/spamdict0000.bye", "half"}});
    EXPECT_TRUE(
        check(true).ends_with("0003/: a stage without its marker; the engine may be at work on it\n"));
    EXPECT_EQ(m_defects, 0U);
}

// Beside those that the test of the repair plants.
TEST_F(state_test, finds_each_further_defect) {
    const struct {
        files planted;
        std::string found;
    } rows[] = {
        {{{"../spamdict.idx", index(0)}}, "spamdict.lst: offset 16: the index doesn't know <1>\n"},
        {{{"../spamdict.idx", index(24)}},
         "spamdict.lst: offset 16: the index has another place for <1>: 24\n"},
        {{{"autotrain.bys", cache + "x"}}, "autotrain.bys: offset 106: the file ends inside a header\n"},
        {{{"0001/prepared.txt", m_marker}, {"0001/dis1.tmp", ""}},
         "0001/dis1.tmp: offset 0: the file ends inside the number of records\n"
         "0001/prepared.txt: the engine is stuck: the marked batch isn't there\n"},
        {{m_sorted[0], m_sorted[2], {"0002/spamdict.col", columns(5)}},
         "0002/spamdict.col: offset 65: no record of data.bys stands at 5\n"},
    };
    for (const auto& row : rows) {
        std::filesystem::remove_all(m_work);
        put(m_good);
        put(row.planted);
        EXPECT_EQ(check(), row.found);
        EXPECT_GT(m_defects, 0U);
    }
}

TEST_F(state_test, finds_all_of_a_large_map_in_its_tree) {
    const std::string folder = m_root.engine_path("work\\base\\");
    const auto id = [](unsigned i) { return "<" + std::to_string(i * 7919 % 8111) + (i % 5 ? "@x>" : ">"); };
    put(m_good);
    {
        msidmap map(folder, "nspamdict");
        for (unsigned i = 0; i < 8000; ++i)
            map.insert(id(i), time_1 + i);
    }
    EXPECT_EQ(check(), "");
    {
        msidmap map(folder, "nspamdict");
        for (unsigned i = 0; i < 30; ++i)
            map.remove(id(i));
    }
    EXPECT_EQ(check(), "note: nspamdict.idx: doesn't fit its list; it will be made again\n");
    msidmap(folder, "nspamdict"); // makes it
    EXPECT_EQ(check(), "");
    std::string bytes = read_file(m_work / "base/nspamdict.idx");
    ASSERT_GT(bytes.size(), 100'000U);
    bytes[bytes.size() - 512 + 5] ^= 1; // a key of the last page
    put({{"../nspamdict.idx", bytes}});
    check();
    EXPECT_GT(m_defects, 0U);
}

} // namespace
} // namespace tvr
