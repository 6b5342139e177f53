// Streams of ready records: whole ones, and every kind of damage.

#include <sstream>

#include "support/atom_bytes.h"
#include "support/test.h"
#include "tools/mail/record_stream.h"

namespace tvr {
namespace {

const std::string head = "TVRS" + le(1, 1);

std::string end_mark(std::uint32_t count) {
    return "TVRE" + le(1, count);
}

std::string record(const std::string& tokens, std::uint32_t flags = 2, std::uint32_t more = 0) {
    const std::string msid = pascal("<a@x>_0123ABCD");
    return le(0x25062004, 6, 32 + msid.size() + tokens.size() + more, flags, 1000, 213'000'000, 1, 2) + msid +
           tokens;
}

const std::string one = record(block_bytes(2, counted("B one", 1) + counted("W one two", 3)));
const std::string none = block_bytes(0, "");
const std::string two = record(none, 4);

struct outcome {
    std::string records, error;
};

outcome read(const std::string& bytes) {
    std::istringstream in(bytes);
    record_reader reader(in);
    record_batch batch;
    while (reader.next(batch))
        continue;
    EXPECT_FALSE(reader.next(batch)) << "it goes on behind damage";
    return {{batch.bytes().begin(), batch.bytes().end()}, reader.error()};
}

TEST(record_stream, passes_records_on_as_they_are) {
    for (const auto& [bytes, records] :
         {std::pair{head + end_mark(0), std::string()},
          {head + one + two + end_mark(2), one + two},
          {head + one + end_mark(1) + head + end_mark(0) + head + two + end_mark(1), one + two}}) {
        const outcome found = read(bytes);
        EXPECT_EQ(found.error, "");
        EXPECT_TRUE(found.records == records);
    }
    std::ostringstream out;
    record_writer writer(out);
    token_table tokens;
    tokens.add("B one", 1);
    tokens.add("W one two", 3);
    record_batch batch;
    ASSERT_TRUE(
        batch.add({.msid = "<a@x>_0123ABCD", .spam = true, .size = 1000, .time = 213'000'000}, tokens));
    writer.write(batch);
    writer.finish();
    EXPECT_TRUE(out.str() == head + one.substr(0, 28) + le(2) + one.substr(32) + end_mark(1));
}

TEST(record_stream, takes_what_stands_in_front_of_damage) {
    const struct {
        std::string bytes; // after the head and one record
        const char* error;
    } cases[] = {
        {"", "byte 91, record 2: cut short"},
        {"TVR", "cut short"},
        {"TVRE" + le(1), "cut short"},
        {end_mark(2), "the end mark tells of another number of records"},
        {end_mark(1) + "x", "cut short"},
        {end_mark(1) + "more", "no stream of records follows"},
        {end_mark(1) + "TVRS" + le(1, 2), "unknown version"},
        {"garbage", "neither a record nor the end mark"},
        {two.substr(0, 20), "cut short"},
        {two.substr(0, two.size() - 1), "cut short"},
        {record(none, 2, 0xFFFFFFD0) + end_mark(1), "can't have"},
        {record(none, 2, 20'000'000) + end_mark(1), "a record can't have"},
        {record(none, 2, 10'000'000) + end_mark(1), "cut short"},
        {record(none, 2, 4) + "more" + end_mark(2), "its tokens don't fill it"},
        {record(""), "its tokens don't fill it"},
        {record(none, 1), "it has unknown marks"},
        {record(block_bytes(1, counted("", 1))), "its number of tokens is wrong"},
        {record(block_bytes(2, counted("B x", 1))), "its number of tokens is wrong"},
        {record(block_bytes(1, counted("B x", 1) + counted("B y", 1))), "its number of tokens is wrong"},
        {record(block_bytes(1, "\xFFx")), "its number of tokens is wrong"},
        {le(0x25062004, 6, 12), "it is too short"},
        {le(0x25062004, 5, 41) + std::string(29, '\0'), "it doesn't begin like a record"},
    };
    for (const auto& damage : cases) {
        const outcome found = read(head + one + damage.bytes);
        EXPECT_TRUE(holds(found.error, damage.error));
        EXPECT_EQ(found.records.substr(0, one.size()), one);
    }
    for (const std::string& other : {std::string(), std::string("TV"), le(0x25062004), le(2) + one})
        EXPECT_EQ(read(other).error, "no stream of records");
}

} // namespace
} // namespace tvr
