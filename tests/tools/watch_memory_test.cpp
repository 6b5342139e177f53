// What is remembered of watched folders, and what a folder's name says.

#include "support/test.h"
#include "tools/text.h"
#include "tools/watch/watch_folder.h"
#include "tools/watch/watch_memory.h"

namespace tvr {
namespace {

// An entry of the file; all keys here are small.
std::string entry(unsigned what, std::uint32_t stamp, std::uint32_t key) {
    return le(what, stamp, key, 0);
}
const std::string head = le(0x57525654, 0);

struct watch_memory_test : testing::Test {
    std::string content() const { return read_file(m_file); }

    test_root m_root;
    std::filesystem::path m_file = m_root.path() / "watch.bin";
    std::string m_path = m_root.engine_path("watch.bin");
};

TEST_F(watch_memory_test, is_a_list_of_what_happened) {
    write_file(m_file, head + entry(5, 0, 70) + entry(1, 0, 1) + entry(2, 7, 10) + entry(2, 8, 11) +
                           entry(1, 0, 2) + entry(2, 0, 20) + entry(4, 0, 70) + entry(1, 0, 1) +
                           entry(3, 0, 10) + entry(5, 0, 71) + "half");
    watch_memory memory(m_path);
    EXPECT_EQ(memory.load({1, 3}), "");
    EXPECT_TRUE(memory.knows_folder(1));
    EXPECT_FALSE(memory.knows_folder(2)); // isn't watched any more
    EXPECT_FALSE(memory.knows_folder(3));
    EXPECT_FALSE(memory.knows_file(1, 10, 7));
    EXPECT_TRUE(memory.knows_file(1, 11, 8));
    EXPECT_FALSE(memory.knows_file(1, 11, 9)); // another file of that name
    EXPECT_EQ(memory.learned(70), false);
    EXPECT_EQ(memory.learned(71), true);
    EXPECT_EQ(memory.learned(72), std::nullopt);
    // Without what is out of date, the verdicts in their order.
    const std::string whole = head + entry(4, 0, 70) + entry(5, 0, 71) + entry(1, 0, 1) + entry(2, 8, 11);
    EXPECT_EQ(content(), whole);

    memory.add_file(3, 30, 0);
    memory.drop_file(1, 11);
    memory.drop_file(1, 12);
    memory.set_learned(72, false);
    EXPECT_EQ(content(), whole);
    EXPECT_EQ(memory.save(), "");
    const std::string more =
        entry(1, 0, 3) + entry(2, 0, 30) + entry(1, 0, 1) + entry(3, 0, 11) + entry(4, 0, 72);
    EXPECT_EQ(content(), whole + more);
    EXPECT_EQ(memory.save(), "");
    EXPECT_EQ(content(), whole + more);
}

TEST_F(watch_memory_test, damage_is_set_aside) {
    const std::string good = head + entry(1, 0, 1) + entry(2, 0, 10);
    for (const std::string& bytes : {std::string("x"), std::string(), le(0x57525655, 0) + good.substr(8),
                                     head + entry(2, 0, 10), good + entry(6, 0, 1), good + entry(0, 0, 0)}) {
        write_file(m_file, bytes);
        watch_memory memory(m_path);
        EXPECT_TRUE(holds(memory.load({1}), "damaged"));
        EXPECT_FALSE(memory.knows_folder(1));
        EXPECT_EQ(read_file(m_root.path() / "watch.bad"), bytes);
        EXPECT_EQ(content(), head);
    }
    // A death while it is written again.
    write_file(m_file, good);
    write_file(m_root.path() / "~watch.bin", head);
    EXPECT_EQ(watch_memory(m_path).load({1}), "");
    EXPECT_EQ(content(), good);
}

TEST_F(watch_memory_test, is_bounded) {
    watch_memory memory(m_path);
    ASSERT_EQ(memory.load({1}), "");
    constexpr std::uint64_t many = 3 * watch_memory::most_verdicts;
    for (std::uint64_t i = 0; i < many; ++i) {
        memory.set_learned(i, true);
        memory.add_file(1, i, 0);
        memory.drop_file(1, i);
        if (i % 5000 == 0) {
            ASSERT_EQ(memory.save(), "");
            ASSERT_LT(std::filesystem::file_size(m_file), 16 * (4 * watch_memory::most_verdicts + 4 * 5000));
        }
    }
    EXPECT_EQ(memory.learned(0), std::nullopt);
    EXPECT_EQ(memory.learned(many - watch_memory::most_verdicts), true);
    watch_memory again(m_path);
    ASSERT_EQ(memory.save(), "");
    ASSERT_EQ(again.load({1}), "");
    EXPECT_EQ(std::filesystem::file_size(m_file), 8 + 16 * (watch_memory::most_verdicts + 1));
}

TEST(watch_folder, is_named_by_its_verdict) {
    for (const char* path : {"/m/Spam", "/m/Maildir/.Junk/", "/m/Maildir/.INBOX.Spam", "/m/Junk E-mail"})
        EXPECT_EQ(verdict_of_folder(path), true) << path;
    for (const char* path : {"/m/Maildir", "/m/.HAM", "inbox", "/m/Not_Junk"})
        EXPECT_EQ(verdict_of_folder(path), false) << path;
    for (const char* path : {"/m/Archive", "/m/Spam/old", "/"})
        EXPECT_EQ(verdict_of_folder(path), std::nullopt) << path;
}

} // namespace
} // namespace tvr
