// What the verdict learns from its user's mail, and the file it keeps.

#include <atomic>
#include <cmath>
#include <thread>

#include "client/score.h"
#include "client/verdict/exact_math.h"
#include "client/verdict/learning.h"
#include "support/file_bytes.h"
#include "support/test.h"
#include "support/test_root.h"

namespace tvr {
namespace {

TEST(exact_math, is_near_the_library) {
    for (const double x : {1.0, 1.4, 1.6, 2.0, 10.0, 65536.5, 1e12})
        EXPECT_NEAR(exact_log(x), std::log(x), 1e-13 * (1 + std::log(x)));
    for (const double x : {-700.0, -40.5, -1.0, 0.0, 0.3, 1.0, 25.0, 700.0})
        EXPECT_NEAR(exact_exp(x) / std::exp(x), 1, 1e-13);
    EXPECT_EQ(exact_logistic(0), 0.5);
    EXPECT_EQ(exact_logistic(-1e9), 0);
    EXPECT_EQ(exact_logistic(1e9), 1);
}

TEST(evidence, packs_counts) {
    for (const std::uint32_t count : {0U, 1U, 63U, 64U, 128U})
        EXPECT_EQ(unpack_count(pack_count(count)), count);
    for (std::uint32_t count = 64; count < 200000; count += 997) {
        const std::uint32_t back = unpack_count(pack_count(std::min(count, 0x1FFFFU)));
        EXPECT_LE(back, count);
        EXPECT_GE(back * 17ULL, std::min(count, 0x1FFFFU) * 16ULL);
    }
}

TEST(seen_tokens, grade_as_the_engine_does) {
    seen_tokens seen;
    const token_key common = 0x40, rare = 0x80, spam_only = 0xC0; // of one bucket
    const auto add = [&](bool spam, unsigned times, const std::vector<token_key>& tokens) {
        for (unsigned i = 0; i < times; ++i)
            seen.add(tokens, spam);
    };
    add(true, 10, {common, spam_only});
    EXPECT_EQ(seen.grade(spam_only), 0); // no good mail yet
    add(false, 19, {common});
    add(false, 1, {common, rare});
    // 10 of 10 spam messages; 1.8 times 20 of 20 good ones, but no more than all.
    EXPECT_NEAR(seen.grade(common), 0.5, 1e-6);
    EXPECT_NEAR(seen.grade(spam_only), 0.99, 1e-6);
    EXPECT_NEAR(seen.grade(rare), 0.01, 1e-6); // one good message is enough
    EXPECT_EQ(seen.grade(0x100), 0);
    seen.correct(std::vector{common, rare}, true);
    EXPECT_EQ(seen.messages(true), 11U);
    EXPECT_EQ(seen.messages(false), 19U);
    EXPECT_EQ(seen.grade(rare), 0); // one spam message isn't
}

TEST(seen_tokens, keep_what_is_seen_often) {
    seen_tokens seen;
    std::vector<token_key> often; // of one bucket
    for (token_key i = 0; i < seen_tokens::bucket_size - 1; ++i)
        often.push_back(0x5000 + i * 0x40);
    for (token_key round = 0; round < 300; ++round) {
        seen.add(often, true);
        seen.add(std::vector{0x6000 + round * 0x40}, false);
    }
    for (const token_key token : often)
        EXPECT_NEAR(seen.grade(token), 0.99, 1e-6);
    // Halved at the limit, and as large a share of the mail as before.
    for (unsigned i = 300; i < seen_tokens::most_messages; ++i)
        seen.add(i % 4 == 0 ? std::span<const token_key>(often) : std::span<const token_key>(), true);
    EXPECT_EQ(seen.messages(true), seen_tokens::most_messages / 2);
    // What was seen once stays.
    EXPECT_NEAR(seen.grade(0x6000 + 299 * 0x40), 0.01, 1e-6);
    seen.add(often, false);
    // (300 + 1973) / 8192 of the spam, 1 of 301 good messages, weighted; counts are exact to a quarter
    EXPECT_NEAR(seen.grade(often[0]), 0.2775 / (0.2775 + 1.8 / 301), 0.005);
}

TEST(token_memory, learns_slower_where_it_erred) {
    const token_key first = 0x10000, second = 0x20000; // of places of their own
    // The two places and the bias from then on: a place is a weight in steps of 16, and the root of its
    // errors.
    const struct {
        std::vector<token_key> tokens;
        bool spam;
        int first, second, bias;
    } rows[] = {
        // Wrong by 1/2: 0.12 * 4096 * 0.5 * 3.873 / 2.062 = 462; the root is 8.1 steps above its least.
        {{first}, true, 29 * 16 + 8, 0, 25},
        // Wrong by 0.391: the root grows to 2.540, 11 steps.
        {{first}, true, 47 * 16 + 11, 0, 44},
        // Wrong by 0.673: what erred before changes by 352, what is new by 474.
        {{first, second}, false, 25 * 16 + 15, -30 * 16 + 12, 11},
    };
    token_memory memory;
    for (const auto& row : rows) {
        memory.learn(row.tokens, row.spam);
        EXPECT_EQ(memory.weights().all()[token_memory::place_of(first)], row.first);
        EXPECT_EQ(memory.weights().all()[token_memory::place_of(second)], row.second);
        EXPECT_EQ(memory.bias, row.bias);
    }
    EXPECT_EQ(memory.weight(first), 400);
    EXPECT_EQ(memory.weight(second), -480);
}

TEST(forget_messages, keeps_the_newest_and_what_teaches_most) {
    verdict_state state;
    const auto add = [&](unsigned count, bool spam, double learned_score) {
        judged_message one{.spam = spam, .what = {}, .learned_score = pack_score(learned_score)};
        for (unsigned i = 0; i < count; ++i) {
            one.id = state.messages.size();
            state.messages.push_back(one);
        }
    };
    const auto kept = [&](std::uint64_t from, std::uint64_t to) {
        return std::ranges::count_if(state.messages, [=](const judged_message& each) { //
            return each.id >= from && each.id < to;
        });
    };
    add(300, true, -9);  // sure, and wrong
    add(300, false, 1);  // unsure
    add(500, false, -9); // sure, and right
    add(1000, true, 9);  // the newest spam
    add(500, true, 1);
    add(500, false, -3);
    add(1000, false, -9); // the newest good mail
    forget_messages(state);
    EXPECT_EQ(state.messages.size(), verdict_state::most_messages);
    EXPECT_TRUE(std::ranges::is_sorted(state.messages, {}, &judged_message::id));
    EXPECT_EQ(kept(300, 600), 300);
    EXPECT_EQ(kept(600, 1100) + kept(0, 300), 300);
    EXPECT_EQ(kept(1600, 4100), 2500);
}

// A message of a user whose spam offers and whose good mail meets.
void add_message(record_batch& batch, unsigned number, bool spam) {
    token_table tokens;
    for (const char* word :
         spam ? std::array{"offer", "cheap", "buy"} : std::array{"meeting", "report", "tuesday"})
        tokens.mark(std::string("B ") + word, token_weight);
    tokens.mark("B w" + std::to_string(number % 7), token_weight);
    tokens.mark(spam ? "H subject:now" : "H subject:minutes", token_weight);
    batch.add({.msid = "m" + std::to_string(number), .spam = spam, .time = 1000 + number}, tokens);
}

struct verdict_test : testing::Test {
    verdict_test() { std::filesystem::create_directories(m_root.path() / "work/base"); }
    std::string learn(unsigned from, unsigned to, bool reversed = false) {
        verdict_learning learning(folder());
        record_batch batch;
        for (unsigned i = from; i < to; ++i)
            add_message(batch, i, (i % 2 == 0) != reversed);
        learning.prepare();
        learning.take({batch});
        return learning.finish();
    }
    [[nodiscard]] verdict_state state() const {
        verdict_state read;
        EXPECT_EQ(load_verdict(verdict_path(folder()), read), verdict_file_result::loaded);
        return read;
    }
    [[nodiscard]] std::string folder() const { return m_root.engine_path("work\\"); }
    [[nodiscard]] std::filesystem::path file() const { return m_root.path() / "work/verdict.bin"; }

    test_root m_root;
};

TEST_F(verdict_test, learns_from_a_first_mailbox) {
    EXPECT_EQ(learn(0, 400), "");
    const verdict_state learned = state();
    EXPECT_EQ(learned.judged, 400U);
    EXPECT_EQ(learned.messages.size(), 400U);
    EXPECT_EQ(learned.recent_ham, 200U);
    const auto score = [&](bool spam) {
        record_batch batch;
        const mail_scorer scorer([](std::string_view token) { return token == "B w1" ? 0.5 : 0.0; },
                                 {.learned = std::make_shared<verdict_state>(learned)});
        token_table tokens;
        for (const char* word : {"B w1", spam ? "B cheap" : "B report"})
            tokens.mark(word, token_weight);
        return scorer.score(tokens).score;
    };
    EXPECT_GT(score(true), score(false) + 10);
}

TEST_F(verdict_test, counts_each_message_once_and_takes_corrections) {
    learn(0, 100);
    const auto first = state();
    EXPECT_EQ(learn(0, 100), "");
    EXPECT_EQ(verdict_bytes(state()), verdict_bytes(first));
    EXPECT_EQ(learn(10, 12, true), "");
    const auto corrected = state();
    EXPECT_EQ(corrected.judged, first.judged);
    ASSERT_EQ(corrected.messages.size(), first.messages.size());
    for (std::size_t i = 0; i < first.messages.size(); ++i)
        EXPECT_EQ(first.messages[i].spam != corrected.messages[i].spam, i == 10 || i == 11) << i;
}

TEST_F(verdict_test, takes_two_writers_at_once) {
    std::atomic<unsigned> learned = 0;
    const auto write = [&](unsigned from) {
        for (const unsigned end = from + 100; from != end; from += 20)
            learned += learn(from, from + 20).empty() ? 20 : 0;
    };
    std::thread other(write, 1000);
    write(0);
    other.join();
    EXPECT_EQ(state().judged, learned);
    EXPECT_GE(learned, 100U);
}

TEST_F(verdict_test, is_bounded) {
    for (unsigned i = 0; i < 8; ++i)
        learn(i * 600, (i + 1) * 600);
    EXPECT_EQ(state().messages.size(), verdict_state::most_messages);
    EXPECT_EQ(state().judged, 4800U);
    EXPECT_LE(std::filesystem::file_size(file()), std::uintmax_t{1} << 20);
}

TEST_F(verdict_test, takes_nothing_but_a_whole_file) {
    learn(0, 60);
    const std::vector<std::uint8_t> whole = verdict_bytes(state());
    verdict_state read;
    for (std::size_t place = 0; place < whole.size(); place += place < 1200 ? 1 : 997) {
        auto damaged = whole;
        damaged[place] ^= 0x10;
        EXPECT_FALSE(parse_verdict(damaged, read)) << place;
        EXPECT_EQ(read.judged, 0U);
    }
    for (const std::size_t size :
         {std::size_t{0}, std::size_t{7}, whole.size() - verdict_message_size, whole.size() - 1})
        EXPECT_FALSE(parse_verdict({whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)}, read));

    auto damaged = whole;
    damaged[100] ^= 1;
    write_file(file(), std::string(damaged.begin(), damaged.end()));
    EXPECT_NE(learn(60, 100).find("verdict.bad"), std::string::npos);
    EXPECT_EQ(state().judged, 40U);
}

} // namespace
} // namespace tvr
