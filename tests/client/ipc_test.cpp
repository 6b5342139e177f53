// The shared library through its C interface, as a foreign program uses it.

#include <fstream>
#include <thread>

#include "client/tvr_ipc_c.h"
#include "common/engine_interface.h"
#include "support/test.h"

extern "C" tvr::get_engine GetEngine;

using namespace tvr;

namespace {

namespace fs = std::filesystem;

struct ipc : testing::Test {
    ~ipc() override { tvr_close(client); }
    std::string cache() const {
        return read_file(root.path() / "appdata/Orvenix/Brackenhold/data/base/transact/autotrain.bys");
    }

    const test_root root;
    tvr_client* const client = tvr_open();
};

TEST_F(ipc, appends_messages) {
    const tvr_token tokens[] = {{"B one", 5, 1}, {"B two", 5, 2}};
    const tvr_message message = {"<id>", 4, tvr_mark_spam, 100, 213'000'000, tokens, 2};
    EXPECT_EQ(tvr_append(client, &message), tvr_ok) << tvr_error_text();
    const std::string before = cache();
    const std::string entries = counted("B one", 1) + counted("B two", 2);
    EXPECT_EQ(before, le(1, 0x25062004, 6, 45 + entries.size(), 2, 100, 213'000'000, 1, 2) + pascal("<id>") +
                          le(2, entries.size()) + entries);
    const tvr_token empty = {"", 0, 1};
    const tvr_message bad = {"<id>", 4, 0, 0, 0, &empty, 1};
    EXPECT_EQ(tvr_append(client, &bad), tvr_bad_message);
    EXPECT_STRNE(tvr_error_text(), "");
    EXPECT_EQ(cache(), before);

    EXPECT_EQ(tvr_engine_runs(client), 0);
    EXPECT_EQ(tvr_raise(client, tvr_event_add, 0), tvr_ok); // nobody hears it
}

TEST_F(ipc, appends_mail) {
    const std::string mail = "From: a@b.example\nSubject: free tickets\nMessage-ID: <x@y>\n\nhello there\n";
    EXPECT_EQ(tvr_append_mail(client, mail.data(), mail.size(), tvr_mark_manual), tvr_ok);
    const std::string before = cache();
    for (const char* text : {"<x@y>_", "B hello", "H subject:tickets"})
        EXPECT_TRUE(holds(before, text));
    EXPECT_EQ(tvr_append_mail(client, "no mail", 7, 0), tvr_bad_message);
    EXPECT_STRNE(tvr_error_text(), "");
    EXPECT_EQ(cache(), before);
}

TEST_F(ipc, takes_appends_of_many_threads) {
    const auto msid = [](int i) { return "<" + std::to_string(i) + "@t>"; };
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread)
        threads.emplace_back([this, thread, msid] {
            for (int i = thread; i < 200; i += 4) {
                const std::string id = msid(i);
                const tvr_token token = {"B text", 6, 1};
                const tvr_message message = {id.data(), id.size(), 0, 100, 213'000'000, &token, 1};
                EXPECT_EQ(tvr_append(client, &message), tvr_ok);
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    const std::string bytes = cache();
    EXPECT_EQ(bytes.substr(0, 4), le(200));
    for (int i = 0; i < 200; ++i)
        EXPECT_TRUE(holds(bytes, msid(i)));
}

TEST(ipc_without_folder, tells_why) {
    const test_root root;
    std::ofstream(root.path() / "appdata") << "a file in the way";
    tvr_client* const client = tvr_open();
    ASSERT_NE(client, nullptr);
    const tvr_message message = {"", 0, 0, 0, 0, nullptr, 0};
    EXPECT_EQ(tvr_append(client, &message), tvr_no_folder);
    EXPECT_STRNE(tvr_error_text(), "");
    EXPECT_EQ(tvr_raise(client, tvr_event_train, 1), tvr_no_folder);
    tvr_close(client);
}

// The export number 1 and what it answers.
struct Engine : testing::Test {
    Engine() {
        EXPECT_LT(GetEngine(nullptr), 0);
        EXPECT_EQ(GetEngine(&first), 0);
        void* object = this;
        EXPECT_LT(first->query_interface({0x339EBB63, 0x410B, 0x470F, {}}, &object), 0);
        EXPECT_EQ(object, nullptr);
        const interface_id id = {
            0x339EBB63, 0x410B, 0x470F, {0x92, 0xEC, 0xC7, 0xCD, 0xF3, 0xEC, 0x51, 0xC5}};
        EXPECT_EQ(first->query_interface(id, &object), 0);
        engine = static_cast<score_engine*>(object);
    }
    ~Engine() override {
        EXPECT_EQ(first->release(), 1U);
        EXPECT_EQ(engine->release(), 0U);
    }
    // A base that grades this token; `age` in seconds makes one file younger than another.
    void publish(const std::string& token, int age, const std::string& stamp) const {
        const fs::path base = root.path() / "appdata/Orvenix/Brackenhold/data/base";
        write_file(base / "cashe.rgd",
                   le(token.empty() ? 0 : 0x4A534144, 8, 1, 1, 1, 1, 0, 0, 0, 0, 1, token.size() + 5) +
                       counted(token, 0x3F000000)); // 0.5
        fs::last_write_time(base / "cashe.rgd", fs::file_time_type() + std::chrono::seconds(age));
        write_file(base / "cashe.mrk", stamp);
    }

    const test_root root;
    component* first = nullptr;
    score_engine* engine = nullptr;
};

TEST_F(Engine, loads_a_base_once_its_stamp_tells) {
    float score = 0;
    EXPECT_LT(engine->lookup("B 1", &score), 0) << "no base";
    const struct {
        const char* token;
        int age;
        std::string stamp;
        std::int32_t answer;
    } steps[] = {
        {"B 1", 0, le(1, 1), 0},
        {"B 2", 10, le(1, 1), 1}, // the stamp comes after the base
        {"B 3", 20, le(2, 1), 0},
        {"B 4", 20, le(3, 1), 1},                   // no fresher base with the stamp
        {"B 5", 30, "1234567", 0},                  // a stamp that is being written
        {"", 40, le(0, 2), engine_answer::failure}, // damaged
        {"B 6", 50, le(0, 3), 0},
    };
    for (const auto& step : steps) {
        publish(step.token, step.age, step.stamp);
        EXPECT_EQ(engine->lookup(step.token, &score), step.answer) << step.token;
    }
    EXPECT_EQ(score, 0.5F);
    EXPECT_EQ(engine->lookup("", &score), 1);
}

} // namespace
