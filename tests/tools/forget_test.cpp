// Messages are taken back in the cache, in place.

#include <array>

#include "dict/dictbase.h"
#include "support/test.h"
#include "tools/state/waiting_mail.h"

namespace tvr {
namespace {

// A record of one token, by hand.
std::string record(const std::string& id, std::uint32_t flags, std::uint32_t values = 6) {
    const std::string rest = pascal(id) + le(1, 6) + counted("t", 3);
    std::string head = le(0x25062004, values, 8 + 4 * values + rest.size(), flags);
    for (std::uint32_t i = 2; i < values; ++i)
        head += le(1000 + i);
    return head + rest;
}

struct forget_test : testing::Test {
    // What is in the cache after forgetting one message; `m_sum` and `m_why` tell the rest.
    std::string forget(const std::string& content, const std::string& id) {
        write_file(m_path, content);
        mail_to_forget messages;
        messages.try_emplace(forget_key(id));
        m_why = forget_waiting(m_root.engine_path("cache.bys"), messages, 50);
        m_sum = messages.empty() ? forgotten_mail() : messages.begin()->second;
        return read_file(m_path);
    }

    test_root m_root;
    std::filesystem::path m_path = m_root.path() / "cache.bys";
    forgotten_mail m_sum;
    std::string m_why;
};

const std::string a = "<a@x>_0123ABCD";
const std::string b = "<b@x>_00000000";

TEST_F(forget_test, marks_all_records_of_the_message) {
    // By the flags of each.
    const auto cache = [](const std::array<std::uint32_t, 4>& of) {
        return le(3) + record(a, of[0]) + record(b, of[1]) + record(a, of[2]) + record("", 0) +
               record("odd", of[3]);
    };
    const struct {
        std::string id;
        std::array<std::uint32_t, 4> wanted;
        std::uint32_t marked;
    } rows[] = {
        {a, {3, 6, 1, 2}, 2},
        {"<b@x>", {2, 7, 0, 2}, 1},
        {"b@x", {2, 7, 0, 2}, 1},
        {"odd", {2, 6, 0, 3}, 1},
        {"c@x", {2, 6, 0, 2}, 0},
        {"<>", {2, 6, 0, 2}, 0},
        {"<a@x>_00000000", {2, 6, 0, 2}, 0}, // another message of that name
    };
    for (const auto& row : rows) {
        EXPECT_EQ(forget(cache({2, 6, 0, 2}), row.id), cache(row.wanted)) << row.id;
        EXPECT_EQ(std::tie(m_sum.marked, m_sum.already, m_why), std::make_tuple(row.marked, 0U, ""))
            << row.id;
    }
    EXPECT_EQ(forget(le(1) + record(a, 3), a), le(1) + record(a, 3));
    EXPECT_EQ(m_sum.already, 1U);
    EXPECT_FALSE(std::filesystem::exists(m_root.path() / "lock.bin"));
}

TEST_F(forget_test, leaves_damaged_records_alone) {
    std::string longer = record(a, 0);
    longer[8] = static_cast<char>(longer[8] + 1); // its length
    const std::string standing = record(a, 0).replace(8, 4, le(0));
    for (const std::string& cache :
         {std::string(), le(1), le(9) + "rubbish, rubbish, rubbish, rubbish, rubbish", le(1) + longer,
          le(1) + standing, le(1) + record(a, 0).substr(0, 50), le(1) + le(0) + record(a, 0)}) {
        EXPECT_EQ(forget(cache, a), cache);
        EXPECT_EQ(m_sum.marked, 0U);
    }
    for (const std::uint32_t values : {5U, 7U}) {
        EXPECT_EQ(forget(le(1) + record(a, 0, values), a), le(1) + record(a, 0, values));
        EXPECT_TRUE(holds(m_why, "damaged"));
    }
}

TEST_F(forget_test, gives_another_verdict) {
    const std::string odd = record(a, 2, 7); // its head can't be written in place
    write_file(m_path, le(9) + record(a, 0) + record(b, 2) + record(a, 5) + record("c", 6) + record(b, 0) +
                           record(a, 2) + record(a, 8) + record("d", 6) + odd);
    wanted_verdicts messages;
    for (const std::string& id : {a, std::string("d"), std::string("e")})
        messages[id].spam = id != "d";
    messages[b].spam = false;
    EXPECT_EQ(correct_waiting(m_root.engine_path("cache.bys"), messages, 50), "");
    // Spam and the mark of a change; the latter goes when it was there.
    EXPECT_EQ(read_file(m_path), le(9) + record(a, 10) + record(b, 3) + record(a, 5) + record("c", 6) +
                                     record(b, 0) + record(a, 2) + record(a, 2) + record("d", 7) + odd);
    const std::pair<std::string, std::array<std::uint32_t, 3>> sums[] = {
        {a, {4, 2, 0}}, {b, {1, 0, 1}}, {"d", {0, 0, 1}}, {"e", {0, 0, 0}}};
    for (const auto& [id, sum] : sums)
        EXPECT_EQ((std::array{messages[id].waiting, messages[id].remarked, messages[id].deleted}), sum) << id;
}

TEST_F(forget_test, waits_for_the_lock_but_not_for_ever) {
    file_lock other(m_root.engine_path("lock.bin"));
    ASSERT_TRUE(other.try_acquire());
    EXPECT_EQ(forget(le(1) + record(a, 0), a), le(1) + record(a, 0));
    EXPECT_TRUE(holds(m_why, "lock.bin"));
    other.release();
    EXPECT_EQ(forget(le(1) + record(a, 0), a), le(1) + record(a, 1));
}

} // namespace
} // namespace tvr
