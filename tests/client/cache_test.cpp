// The client's end of the message cache: the bytes, and what a torn tail comes to.

#include "client/cache_writer.h"
#include "platform/file.h"
#include "support/test.h"

namespace tvr {
namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;

// The record of a spam message with the ID "<1>", of 300 bytes, from minute 213,000,000, with two tokens.
const std::string record = "\x04\x20\x06\x25\x06\0\0\0"           // signature, six values
                           "\x46\0\0\0\x02\0\0\0\x2C\x01\0\0"     // length 70, spam, size
                           "\x40\x1F\xB2\x0C\x01\0\0\0\x02\0\0\0" // time, one message, two tokens
                           "\x03<1>"
                           "\x02\0\0\0\x1A\0\0\0" // two tokens, 26 bytes
                           "\x05"
                           "B abc\x03\0\0\0"
                           "\x0B"
                           "H subject:x\x01\0\0\0"s;
const std::string one_record = "\1\0\0\0"s + record;

struct cache : testing::Test {
    cache() {
        token_table tokens;
        tokens.add("B abc", 3);
        tokens.mark("H subject:x");
        m_batch.add({.msid = "<1>", .spam = true, .size = 300, .time = 213'000'000}, tokens);
    }
    append_result append(const std::string& path) { return cache_writer(path).append(m_batch, 0); }
    append_result append() { return append(m_name); }

    record_batch m_batch;
    test_root m_root;
    fs::path m_path = m_root.path() / "autotrain.bys";
    std::string m_name = m_root.engine_path("autotrain.bys");
};

TEST(record_batch_test, limits_and_marks) {
    record_batch batch;
    EXPECT_FALSE(batch.add({.msid = std::string(256, 'm')}, token_table()));
    EXPECT_TRUE(batch.add({.msid = std::string(255, 'm'), .manual = true}, token_table()));
    EXPECT_EQ(batch.bytes()[12], 4); // manual, good
    EXPECT_EQ(batch.bytes().size(), 296U);
}

// The next append overwrites whatever follows the last whole record, and corrects the count.
TEST_F(cache, torn_tails) {
    const auto record_of = [](std::uint32_t length) { return std::string(record).replace(8, 4, le(length)); };
    const struct {
        const char* name;
        std::string before;
        unsigned whole; // records
    } cases[] = {
        {"no file", "", 0},
        {"part of the count", "\1\0"s, 0},
        {"the count alone", "\0\0\0\0"s, 0},
        {"a count too high", "\7\0\0\0"s, 0},
        {"a count too low", "\0\0\0\0"s + record, 1},
        {"zeros behind", one_record + std::string(100, '\0'), 1},
        {"no signature yet", one_record + "\0\0\0\0"s + record.substr(4), 1},
        {"a record cut in its head", one_record + record.substr(0, 20), 1},
        {"a record cut in its tokens", one_record + record.substr(0, 60), 1},
        {"a record that claims too much", one_record + record_of(128), 1},
        {"a record that claims less than its head", one_record + record_of(8), 1},
        {"garbage", one_record + "garbage", 1},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        if (test.before.empty())
            fs::remove(m_path);
        else
            write_file(m_path, test.before);
        ASSERT_EQ(append(), append_result::done);
        EXPECT_EQ(read_file(m_path), le(test.whole + 1) + record + (test.whole == 1 ? record : ""));
        EXPECT_FALSE(fs::exists(m_root.path() / "lock.bin"));
    }
}

TEST_F(cache, sees_what_others_did_between_two_appends) {
    cache_writer writer(m_name);
    ASSERT_EQ(writer.append(m_batch), append_result::done);
    ASSERT_EQ(append(), append_result::done);
    ASSERT_EQ(writer.append(m_batch), append_result::done);
    EXPECT_EQ(read_file(m_path), "\3\0\0\0"s + record + record + record);
    fs::remove(m_path); // taken by the engine
    ASSERT_EQ(writer.append(m_batch), append_result::done);
    EXPECT_EQ(read_file(m_path), one_record);
}

TEST_F(cache, answers_when_it_cannot) {
    file_lock holder(m_root.engine_path("lock.bin"));
    ASSERT_TRUE(holder.try_acquire());
    EXPECT_EQ(append(), append_result::locked);
    holder.release();
    EXPECT_FALSE(fs::exists(m_path));

    write_file(m_path, one_record);
    fs::resize_file(m_path, 4);
    platform::file reader; // an onlooker that shares nothing
    ASSERT_TRUE(reader.open(m_name, platform::access::read, platform::share::none,
                            platform::creation::open_existing));
    EXPECT_EQ(append(), append_result::io_failed);
    reader.close();
    EXPECT_EQ(append(m_root.engine_path("no\\autotrain.bys")), append_result::io_failed);
}

} // namespace
} // namespace tvr
