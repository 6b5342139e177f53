// Message records and the readers that walk them.

#include "common/file_stream.h"
#include "dict/message_reader.h"
#include "support/test.h"
#include "token_list.h"

namespace tvr {
namespace {

std::string record_head(std::uint32_t length, std::uint32_t flags) {
    return le(0x25062004, 6, length, flags, 3, 4, 5, 6);
}

struct MessageRecord : testing::Test {
    file_stream& stream(std::string_view bytes) {
        file.close();
        write_file(root.path() / "cache", bytes);
        EXPECT_TRUE(file.open(root.engine_path("cache"), platform::access::read_write, platform::share::read,
                              platform::creation::open_existing));
        return file;
    }
    std::string bytes() {
        file.flush();
        return read_file(root.path() / "cache");
    }

    test_root root;
    file_stream file;
};

TEST_F(MessageRecord, WritesAndReadsByHand) {
    message_record record;
    record.flags = 7;
    record.size = 3;
    record.time = 4;
    record.messages = 5;
    record.tokens = 6;
    record.msid = "<id>";
    put_in(record.token_table, {{"zz", 2}, {"a", 1}});
    // 32 bytes of head, 5 of message ID, 8 + 13 of tokens in storage order.
    const std::string whole =
        record_head(58, 7) + pascal("<id>") + le(2, 13) + counted("zz", 2) + counted("a", 1);
    ASSERT_TRUE(stream("start").seek(0, platform::origin::end));
    ASSERT_TRUE(record.write(file));
    EXPECT_EQ(file.position(), 63U);
    EXPECT_EQ(bytes(), "start" + whole);

    stream("start" + whole + record_head(32 + 1 + 8, 0) + pascal("") + le(0, 0) + "foreign signature");
    file.seek(5, platform::origin::begin);
    message_head head;
    ASSERT_TRUE(head.read(file));
    EXPECT_EQ(std::tie(head.position, head.length, head.flags, head.size, head.time, head.messages,
                       head.tokens, head.msid),
              std::make_tuple(5U, 58U, 7U, 3U, 4U, 5U, 6U, "<id>"));
    ASSERT_TRUE(head.read(file));
    EXPECT_EQ(std::tie(head.position, head.msid), std::make_tuple(63U, ""));
    EXPECT_FALSE(head.read(file));
    file.seek(5, platform::origin::begin);
    message_record again;
    ASSERT_TRUE(again.read_whole(file));
    EXPECT_EQ(listed(again.token_table), "zz=2 a=1 ");
}

TEST_F(MessageRecord, IsMarkedInPlace) {
    const struct {
        const char* how; // d: delete; s, n: spam or not; S, N: the same with the toggle
        std::uint32_t before, after;
    } cases[] = {
        {"d", 0, 1},  {"d", 15, 15}, {"d", 6, 7},                // deleted
        {"s", 0, 2},  {"s", 4, 6},   {"n", 0, 0},                // a new verdict
        {"n", 2, 2},  {"n", 6, 6},                               // spam stays
        {"S", 0, 10}, {"S", 8, 2},   {"S", 4, 6},  {"S", 12, 6}, // the further mark
        {"N", 0, 0},  {"N", 8, 8},   {"N", 2, 10}, {"N", 10, 2}, // nothing without spam
        {"N", 6, 6},  {"N", 14, 6},
    };
    for (const auto& each : cases) {
        const std::string rest = pascal("id") + le(0, 0);
        stream("start" + record_head(43, each.before) + rest);
        const char how = *each.how;
        EXPECT_TRUE(how == 'd' ? mark_deleted(file, 5)
                               : remark(file, 5, how == 's' || how == 'S', how == 'S' || how == 'N'));
        EXPECT_EQ(bytes(), "start" + record_head(43, each.after) + rest) << how << each.before;
        EXPECT_FALSE(mark_deleted(file, 6));
        EXPECT_FALSE(mark_deleted(file, 4000));
    }
}

TEST_F(MessageRecord, ReadersEndAtDamage) {
    const std::string head = record_head(55, 2) + pascal("id");
    const std::string tokens = le(2, 12) + counted("a", 1) + counted("b", 2);
    const struct {
        const char* what;
        std::string bytes;
        int heads; // read by a walk
        std::string tokens;
    } cases[] = {
        {"nothing", "", 0, "-"},
        {"foreign", "something else that is no record at all", 0, "-"},
        {"31 values", le(0x25062004, 31) + std::string(200, '\1'), 0, "-"},
        {"sound", head + tokens, 1, "a1b2"},
        {"empty token", head + le(2, 11) + counted("", 7) + counted("b", 2), 1, "b2"},
        {"length 0", record_head(0, 2) + pascal("id") + tokens, 0, "a1b2"},
        {"length within the head", record_head(20, 2) + pascal("id") + tokens, 1, "a1b2"},
        {"length of 4 GB", record_head(0xFFFFFFFF, 2) + pascal("id") + tokens, 1, "a1b2"},
        {"tokens cut", head + tokens.substr(0, 15), 1, "a1"},
        {"4 GB of tokens", head + le(2, 0xFFFFFFFF) + "1234", 1, ""},
        {"count too high", head + le(3, 12) + tokens.substr(8), 1, "a1b2"},
        {"count too low", head + le(1, 12) + tokens.substr(8), 1, "a1b2"},
        {"token over the end", head + le(1, 6) + "\7abcdef", 1, ""},
        {"message ID cut", record_head(55, 2) + "\xFFid", 1, ""},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.what);
        stream(each.bytes);
        message_head found_head;
        int heads = 0;
        while (heads < 9 && found_head.read(file))
            ++heads;
        EXPECT_EQ(heads, each.heads);
        file.close();
        message_reader reader;
        ASSERT_TRUE(reader.open(root.engine_path("cache")));
        std::string found = "-";
        if (reader.read(0)) {
            found.clear();
            reader.tokens.for_each([&](std::string_view token, std::uint32_t count) {
                found.append(token).append(std::to_string(count));
            });
        }
        EXPECT_EQ(found, each.tokens);
        EXPECT_FALSE(reader.read(0xFFFFFFFFFFFFFFFF));
        EXPECT_FALSE(reader.read(100000));
    }
}

// By hand: the hash of "<a>_ebd" without its last byte: 3C, 421, 424E, 4253F, 425455, 42545B2.
TEST_F(MessageRecord, MakesMessageIds) {
    EXPECT_EQ(make_msid("a", "b", "d", "e"), "<a>_042545B2");
    EXPECT_EQ(make_msid("a", "b", "x", "e"), "<a>_042545B2") << "the last byte is left out";
    EXPECT_EQ(make_msid(std::string(300, 'a'), "", "", "").size(), 254U);
}

} // namespace
} // namespace tvr
