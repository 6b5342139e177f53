#include "signal/event_channel.h"

#include "common/path.h"
#include "signal/identity.h"
#include "support/child_process.h"
#include "support/platform_objects.h"
#include "support/test.h"

namespace tvr {
namespace {

class event_channel_test : public testing::Test {
protected:
    using numbers = std::vector<std::uint32_t>;

    event_channel_test() { server.set_file(root.engine_path("ipc.bin")); }
    [[nodiscard]] numbers raised() {
        numbers all;
        for (std::uint32_t number = 0; (number = server.wait(0)) != ev_timeout;)
            all.push_back(number);
        return all;
    }

    test_root root;
    std::filesystem::path flags = root.path() / "ipc.bin";
    event_channel server;
};

TEST_F(event_channel_test, delivers_each_event_once_and_the_lowest_first) {
    event_channel tool;
    EXPECT_EQ(raised(), numbers());
    for (const std::uint32_t number : {3U, 1U, 0U, 1U, 2U})
        tool.raise(number);
    EXPECT_EQ(raised(), (numbers{0, 1, 2, 3}));
    server.raise(1);
    tool.raise(0);
    EXPECT_TRUE(tool.is_pending(0));
    EXPECT_EQ(server.wait(patience), 0U);
    EXPECT_FALSE(tool.is_pending(0));
    EXPECT_EQ(server.wait(patience), 1U);
    for (const std::uint32_t number : {4U, 5U, 32U, 0xFFFFFFFFU})
        tool.raise(number);
    EXPECT_EQ(raised(), numbers());
    EXPECT_EQ(server.wait(1), ev_timeout);
}

const child_role raiser("channel raiser", [](std::string_view number) {
    event_channel own;
    own.raise(static_cast<std::uint32_t>(std::stoul(std::string(number))));
    return 0;
});

TEST_F(event_channel_test, hears_other_processes) {
    for (const std::uint32_t number : {0U, 1U, 2U, 3U}) {
        child_process child("channel raiser", std::to_string(number));
        EXPECT_EQ(server.wait(patience), number);
        EXPECT_EQ(child.join(), 0);
    }
    EXPECT_EQ(read_file(flags), le(0));
}

TEST_F(event_channel_test, leaves_a_flag_file_alone_that_is_there) {
    EXPECT_EQ(read_file(flags), le(0));
    for (const std::string& bytes : {le(0), le(15), std::string("x"), std::string(100, '\xff')}) {
        write_file(flags, bytes);
        server.set_file(root.engine_path("ipc.bin"));
        server.raise(ev_train);
        server.replay();
        EXPECT_EQ(read_file(flags), bytes);
        EXPECT_EQ(raised(), numbers{ev_train});
    }
}

TEST_F(event_channel_test, records_a_raise_while_the_flag_file_is_missing) {
    const std::pair<std::uint32_t, std::uint32_t> table[] = {{0, 1},  {1, 2},         {3, 8},
                                                             {4, 16}, {31, 1U << 31}, {33, 2}};
    for (const auto& [number, word] : table) {
        std::filesystem::remove(flags);
        server.raise(number);
        EXPECT_EQ(read_file(flags), le(word));
        server.raise(number + 1);
        EXPECT_EQ(read_file(flags), le(word)) << "it is there again";
    }
    // Nothing is ever read from it: the handle can't read.
    (void)raised();
    std::filesystem::remove(flags);
    server.replay();
    EXPECT_EQ(read_file(flags), le(0));
    EXPECT_TRUE(raised().empty());
}

TEST_F(event_channel_test, a_channel_without_a_file_makes_none) {
    std::filesystem::remove(flags);
    event_channel tool;
    tool.raise(ev_reset);
    tool.replay();
    EXPECT_FALSE(std::filesystem::exists(flags));
    EXPECT_EQ(raised(), numbers{ev_reset});
}

TEST(deaf_channel_test, answers_at_once) {
    const test_root root;
    write_file(root.path() / "run", "no folder");
    if (platform::event().create_named("probe"))
        GTEST_SKIP() << "events need no folder on this platform";
    event_channel deaf;
    EXPECT_EQ(deaf.wait(platform::infinite), ev_timeout);
    deaf.raise(ev_add);
    deaf.set_file(root.engine_path("ipc.bin"));
    EXPECT_EQ(read_file(root.path() / "ipc.bin"), le(0));
}

TEST(start_server_test, one_attempt_in_ten_seconds) {
    const test_root root;
    ASSERT_TRUE(machine_key(paths_key).set(server_value, platform::registry_type::string,
                                           root.engine_path("no.exe")));
    event_channel channel;
    EXPECT_EQ(channel.start_server(false), start_result::no_server);
    EXPECT_EQ(channel.start_server(true), start_result::started) << "whether that works or not";
    EXPECT_EQ(channel.start_server(true), start_result::no_server);
    EXPECT_EQ(channel.start_server(false), start_result::no_server);
    event_channel other;
    EXPECT_EQ(other.start_server(true), start_result::started) << "each channel has a guard of its own";
}

} // namespace
} // namespace tvr
