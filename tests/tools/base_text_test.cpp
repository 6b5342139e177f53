// The token base as text, and made out of it.

#include <sstream>

#include "client/verdict/verdict_file.h"
#include "support/test.h"
#include "tools/base_text/base_text.h"

namespace tvr {
namespace {

namespace fs = std::filesystem;

// By hand. The last byte is no part of the order.
const std::string head = le(0x19780702, 5);
const std::string list_head = le(0x4449536E, 2);
const std::string ham_atom = head + le(2, 3, 9, 100, 0, 3) + le(7 + 8 + 9) + counted("\\\n", 3) +
                             counted("B b", 4) + counted("\xC3\xA4\xFF!", 2);
const std::string spam_atom =
    head + le(1, 1, 7, 200, 210, 1, 8) + counted("B c", 7) + list_head + le(1, 0) + counted("<x>", 200);
const std::string ham_list = list_head + le(3, 8) + counted("<one>", 7) + counted(std::string(3, '\0'), 0) +
                             counted("<two>", 8) + std::string(3, '\0'); // one dead, and room after
const char* const exported =
    "tessivar-base\t1\n"
    "atom\tnspamdict0003\tmessages=2\ttokens=3\toccurrences=9\toldest=100\tnewest=0\tids=-\n"
    "token\tnspamdict0003\t3\t\\\\\\x0A\n"
    "token\tnspamdict0003\t4\tB b\n"
    "token\tnspamdict0003\t2\t\\xC3\\xA4\\xFF!\n"
    "message\tnspamdict\t7\t<one>\n"
    "message\tnspamdict\t8\t<two>\n"
    "atom\tspamdict0000\tmessages=1\ttokens=1\toccurrences=7\toldest=200\tnewest=210\tids=1\n"
    "token\tspamdict0000\t7\tB c\n"
    "atom-id\tspamdict0000\t200\t<x>\n"
    "end\t10\n";

struct base_text_test : testing::Test {
    base_text_test() { fs::create_directories(base / "transact"); }
    void put(const std::string& name, const std::string& content) { write_file(base / name, content); }
    std::string get(const std::string& name) { return read_file(base / name); }
    // The text, or the reason of a failure.
    std::string out() {
        std::string all;
        base_text_sum sum;
        const auto write = [&](std::string_view line) {
            all += line;
            return true;
        };
        const std::string why = export_base(path, write, sum);
        return why.empty() ? all : why;
    }
    std::string in(const std::string& content, const std::string& objection = {}) {
        std::istringstream stream(content);
        base_text_sum sum;
        return import_base(
            path, stream, [&] { return objection; }, sum);
    }

    test_root m_root;
    const fs::path base = m_root.path() / "base";
    const std::string path = m_root.engine_path("base\\");
};

TEST_F(base_text_test, tells_the_dictionaries) {
    put("nspamdict0003.bye", "");
    EXPECT_TRUE(holds(out(), "nspamdict0003.bye: "));
    put("nspamdict0003.bye", ham_atom);
    put("spamdict0000.bye", spam_atom);
    put("spamdict0001.bye", head + std::string(20, '\0')); // a fresh name
    put("nspamdict.lst", ham_list);
    EXPECT_EQ(out(), exported);
    EXPECT_FALSE(is_empty_base(path));
}

TEST_F(base_text_test, names_damaged_files) {
    const std::string entry = counted("B c", 7);
    const std::pair<std::string, const char*> rows[] = {
        {spam_atom.substr(0, 5), "no atom"},
        {spam_atom.substr(0, 20), "head"},
        {spam_atom.substr(0, 28), "cut off"},
        {spam_atom.substr(0, 40), "cut off in token 1"},
        {std::string(spam_atom).replace(32, 1, "\x07"), "cut off in token 1"},
        {std::string(spam_atom).replace(32, 1, "\x09"), "behind its last"},
        {std::string(spam_atom).replace(28, 1, "\x02"), "two numbers"},
        {std::string(spam_atom).replace(4, 1, "\x03"), "older form"},
        {std::string(spam_atom).replace(44, 1, "?"), "message IDs"},
        {spam_atom.substr(0, spam_atom.size() - 1), "message IDs"},
        {head + le(1, 2) + std::string(12, '\0') + le(2, 15) + entry + counted("zz", 1), "out of order"},
    };
    for (const auto& [content, reason] : rows) {
        put("spamdict0000.bye", content);
        const std::string why = out();
        EXPECT_TRUE(holds(why, "spamdict0000.bye: "));
        EXPECT_TRUE(holds(why, reason));
    }
    fs::remove(base / "spamdict0000.bye");
    put("spamdict.lst", list_head + le(1, 0) + counted("<x>", 1).substr(0, 6));
    EXPECT_TRUE(holds(out(), "spamdict.lst: damaged"));
}

TEST_F(base_text_test, makes_the_same_bytes) {
    EXPECT_TRUE(is_empty_base(path));
    EXPECT_EQ(in(std::string("# a comment\n\n") + exported), "");
    EXPECT_EQ(get("transact/0004/nspamdict0003.bye"), ham_atom);
    EXPECT_EQ(get("transact/0003/spamdict0000.bye"), spam_atom);
    EXPECT_EQ(get("transact/0004/nspamdict.lst"),
              list_head + le(2, 0) + counted("<one>", 7) + counted("<two>", 8));
    for (const char* stage : {"3", "4"})
        EXPECT_EQ(get(std::string("transact/000") + stage + "/prepared.txt"), std::string("prepared", 9));
}

TEST_F(base_text_test, carries_the_verdict) {
    const fs::path file = m_root.path() / "verdict.bin";
    put("spamdict0000.bye", spam_atom);
    verdict_state state;
    state.judged = 3;
    state.memory.weights().make_all()[60000] = -5;
    state.messages.resize(2);
    state.messages[1].id = 7;
    ASSERT_TRUE(replace_verdict(m_root.engine_path("") + "\\", &state));
    const std::string bytes = read_file(file);
    std::string text = out();
    fs::remove(file);
    EXPECT_EQ(in(text), "");
    EXPECT_EQ(read_file(file), bytes);
    char& digit = text[text.find("verdict\t0\t") + 60];
    digit = digit == '0' ? '1' : '0';
    EXPECT_TRUE(holds(in(text), "make no whole file"));
    write_file(file, bytes.substr(1));
    EXPECT_FALSE(holds(out(), "verdict\t"));
}

TEST_F(base_text_test, names_damaged_lines_and_leaves_nothing) {
    const std::string whole = exported;
    const struct {
        const char *from, *to, *reason;
    } rows[] = {
        {"base\t1", "base\t2", "line 1: "},
        {"token\tnspamdict0003\t2\t", "tokens\tnspamdict0003\t2\t", "line 5: "},
        {"\t2\t\\xC3", "\t2\t\\xc3", "line 5: its text is wrongly escaped"},
        {"\t2\t\\xC3", "\t-2\t\\xC3", "line 5: its third field"},
        {"\t2\t\\xC3", "\t4294967296\t\\xC3", "line 5: its third field"},
        {"token\tnspamdict0003\t4\tB b\n", "", "line 5: comes too early"},
        {"token\tnspamdict0003\t4\t", "token\tnspamdict0004\t4\t", "line 4: stands outside"},
        {"token\tnspamdict0003\t4\tB b\n", "token\tnspamdict0003\t4\tB b\ntoken\tnspamdict0003\t4\tB b\n",
         "line 6: is one token more"},
        {"token\tnspamdict0003\t4\tB b\n", "token\tnspamdict0003\t4\t\n", "line 4: is out of order"},
        {"<two>", "<one>", "line 7: has a message ID that stood"},
        {"\t8\t<two>", "\t0\t<two>", "line 7: is no message ID"},
        {"atom\tspamdict0000", "atom\tspamdict..\\x", "line 8: has no atom's name"},
        {"atom\tspamdict0000", "atom\tnspamdict0000", "line 8: is out of order"},
        {"newest=210", "newest=x", "line 8: has a field"},
        {"atom-id\tspamdict0000\t200\t<x>\n", "", "line 10: comes too early"},
        {"message\tnspamdict\t8\t<two>\n", "", "line 10: tells another number"},
        {"end\t10\n", "", "line 10: the line \"end\" is missing"},
        {"end\t10\n", "end\t10\n#\nend\t10\n", "line 13: something follows"},
    };
    for (const auto& row : rows) {
        std::string damaged = whole;
        damaged.replace(damaged.find(row.from), std::string(row.from).size(), row.to);
        EXPECT_TRUE(in(damaged).starts_with(row.reason)) << row.reason << " | " << in(damaged);
        EXPECT_TRUE(fs::is_empty(base / "transact")) << row.reason;
    }
    EXPECT_EQ(in(whole.substr(0, 90)), "line 2: is cut off");
    EXPECT_TRUE(holds(in(std::string(100000, 'x')), "line 1: is too long"));
    EXPECT_TRUE(holds(in("tessivar-base\t1\nend\t1\n"), "no atoms"));
    for (std::size_t size = 0; size < whole.size() - 1; size += 7)
        EXPECT_NE(in(whole.substr(0, size)), "") << size;
    EXPECT_EQ(in(whole, "not now"), "not now");
    EXPECT_TRUE(fs::is_empty(base / "transact"));
}

} // namespace
} // namespace tvr
