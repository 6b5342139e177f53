// Presence, registry, ini files, processes, libraries, memory and time.
#include <functional>
#include <sstream>
#include <tuple>

#include "platform/clock.h"
#include "platform/memory.h"
#include "platform/presence.h"
#include "platform/process.h"
#include "platform/profile.h"
#include "support/child_process.h"
#include "support/platform_objects.h"
#include "support/test.h"

namespace tvr {
namespace {

using namespace platform;
using namespace std::literals;

// --- presence ---

constexpr auto class_name = "Test_class";
constexpr auto title = "Test: title/1";
constexpr auto exit_message = "test_exit_message";

// Is present under that title until it is asked to close.
const child_role owner("presence owner", [](std::string_view own_title) {
    presence own;
    named_event ready("ready");
    if (!own.create(class_name, own_title))
        return 1;
    own.set_private_message(register_private_message(exit_message));
    own.set_visible(own_title == "visible");
    ready.set();
    own.run();
    return find_presence(class_name, own_title).process_id == current_process_id() ? 2 : 3;
});

class presence_test : public testing::Test {
protected:
    child_process start(const std::string& own_title = title) {
        child_process child("presence owner", own_title);
        EXPECT_TRUE(ready.wait(patience));
        return child;
    }

    test_root root;
    named_event ready{"ready"};
};

TEST_F(presence_test, is_found_and_closed_from_another_process) {
    EXPECT_FALSE(find_presence(class_name, title).found);
    close_presence(class_name, title);
    child_process child = start();
    child_process other = start("visible");
    const presence_info info = find_presence(class_name, title);
    EXPECT_TRUE(info.found && !info.visible);
    EXPECT_EQ(info.process_id, child.id());
    EXPECT_TRUE(find_presence(class_name, "visible").visible);
    EXPECT_FALSE(find_presence("Test_class2", title).found);
    EXPECT_FALSE(find_presence(class_name, "Test: title").found);

    presence own;
    EXPECT_FALSE(own.create(class_name, title));
    close_presence(class_name, title);
    EXPECT_FALSE(find_presence(class_name, title).found) << "the request did not wait";
    EXPECT_TRUE(own.create(class_name, title));
    EXPECT_EQ(find_presence(class_name, title).process_id, current_process_id());
    EXPECT_EQ(child.join(), 3);
    EXPECT_TRUE(find_presence(class_name, "visible").found);

    const window_handle window = own.window();
    EXPECT_NE(window, 0U);
    post_quit(window); // not waited for
    own.run();
    EXPECT_EQ(own.window(), 0U);
    EXPECT_FALSE(find_presence(class_name, title).found);
    post_quit(window);
}

TEST_F(presence_test, ends_at_once_by_its_private_message) {
    child_process child = start();
    child_process other = start("another");
    EXPECT_NE(register_private_message(exit_message), register_private_message("something else"));
    broadcast_private_message(0);
    broadcast_private_message(register_private_message("something else"));
    EXPECT_TRUE(find_presence(class_name, title).found && find_presence(class_name, "another").found);
    broadcast_private_message(register_private_message(exit_message));
    EXPECT_EQ(child.join() & 255, 255);
    EXPECT_EQ(other.join() & 255, 255);
    EXPECT_FALSE(find_presence(class_name, title).found);
}

TEST_F(presence_test, a_killed_owner_owns_nothing) {
    for (int turn = 0; turn < 3; ++turn) {
        child_process child = start();
        EXPECT_EQ(child.kill(), child_process::killed);
        EXPECT_FALSE(find_presence(class_name, title).found);
        close_presence(class_name, title);
    }
    // What was asked of the dead is not done to the next one.
    child_process child = start();
    broadcast_private_message(register_private_message("something else"));
    close_presence(class_name, title);
    EXPECT_EQ(child.join(), 3);
}

// --- registry ---

constexpr auto key_path = "Software\\Test\\Key";

TEST(registry_test, values_keep_type_and_bytes) {
    const test_root root;
    std::string every_byte;
    for (int byte = 0; byte < 256; ++byte)
        every_byte += static_cast<char>(byte);
    const std::tuple<const char*, std::uint32_t, std::string> table[] = {
        {"unended", registry_type::string, "x"},
        {"bytes", registry_type::binary, every_byte},
        {"number", registry_type::dword, "\1\0\0\xff"s},
        {"nothing", registry_type::binary, ""},
        {"wide number", 11, "12345678"},
        {"", registry_type::string, "the default"},
        {"a=b", registry_type::string, "1"},
        {"[x]", registry_type::string, "2"},
        {"%41", registry_type::string, "3"},
        {"two\nlines", registry_type::string, "4"},
    };
    user_key user(key_path);
    const machine_key machine(key_path);
    for (const auto& [name, type, data] : table)
        EXPECT_TRUE(user.set(name, type, data));
    registry_key reader;
    ASSERT_TRUE(reader.open(registry_root::current_user, "SOFTWARE\\test\\KEY"));
    for (const auto& [name, type, data] : table) {
        SCOPED_TRACE(name);
        auto value = reader.query(name);
        ASSERT_TRUE(value);
        EXPECT_EQ(value->type, type);
        if (type == registry_type::string && value->data.ends_with('\0'))
            value->data.pop_back();
        EXPECT_EQ(value->data, data);
        EXPECT_FALSE(machine.query(name));
    }
    EXPECT_TRUE(user.set("UNENDED", registry_type::dword, "9"));
    EXPECT_EQ(reader.query("unended")->data, "9");
    EXPECT_TRUE(user.remove("Unended"));
    EXPECT_FALSE(reader.query("unended"));
    EXPECT_EQ(reader.query("nothing")->data, "");
}

TEST(registry_test, failures) {
    const test_root root;
    user_key key(key_path);
    registry_key reader, writer, closed;
    ASSERT_TRUE(key.create(registry_root::current_user, key_path));
    ASSERT_TRUE(reader.open(registry_root::current_user, key_path) &&
                writer.open(registry_root::current_user, key_path, registry_access::write));
    EXPECT_TRUE(writer.set("kept", registry_type::string, "1") && reader.query("kept"));
    const std::pair<std::uint32_t, std::function<bool()>> table[] = {
        {2, [&] { return closed.open(registry_root::current_user, "Software\\Test\\Ke"); }},
        {2, [&] { return closed.open(registry_root::local_machine, key_path); }},
        {2, [&] { return key.query("no").has_value(); }},
        {2, [&] { return key.remove("no"); }},
        {5, [&] { return reader.set("x", registry_type::string, "x"); }},
        {5, [&] { return reader.remove("x"); }},
        {5, [&] { return writer.query("x").has_value(); }},
        {6, [&] { return closed.query("x").has_value(); }},
        {6, [&] { return closed.set("x", registry_type::string, "x"); }},
    };
    for (const auto& row : table)
        EXPECT_TRUE(failed_with(row.first, row.second())) << &row - table;
    for (const char* above : {"Software\\Test", "software", "Software\\Test\\Key"})
        EXPECT_TRUE(closed.open(registry_root::current_user, above)) << above;
}

constexpr int values_each = 60;

const child_role registry_writer("registry writer", [](std::string_view own) {
    user_key key(key_path);
    for (int i = 0; i < values_each; ++i)
        if (!key.set(std::string(own) + std::to_string(i), registry_type::string, own))
            return 1;
    return 0;
});

TEST(registry_test, writers_of_two_processes_lose_nothing) {
    const test_root root;
    child_process first("registry writer", "a"), second("registry writer", "b");
    EXPECT_EQ(first.join() | second.join(), 0);
    registry_key key;
    ASSERT_TRUE(key.open(registry_root::current_user, key_path));
    for (int i = 0; i < values_each; ++i)
        EXPECT_TRUE(key.query("a" + std::to_string(i)) && key.query("b" + std::to_string(i))) << i;
}

TEST(root_test, roots_are_apart) {
    const test_root first;
    registry_key key;
    presence own;
    ASSERT_TRUE(own.create(class_name, title));
    ASSERT_TRUE(user_key(key_path).is_open() && machine_key(key_path).is_open());
    {
        const test_root second;
        EXPECT_FALSE(key.open(registry_root::current_user, key_path));
        EXPECT_FALSE(key.open(registry_root::local_machine, key_path));
        EXPECT_FALSE(find_presence(class_name, title).found);
        presence other;
        EXPECT_TRUE(other.create(class_name, title));
        for (const std::string& folder : {runtime_folder(), temp_folder_path(), common_appdata_folder(),
                                          expand_environment("%appdata%")}) {
            EXPECT_TRUE(folder.starts_with(second.engine_path())) << folder;
            EXPECT_EQ(get_attributes(folder), attribute::directory) << folder;
        }
    }
    set_environment_variable("TESSIVAR_ROOT", first.path().string());
    EXPECT_TRUE(find_presence(class_name, title).found);
    EXPECT_TRUE(key.open(registry_root::current_user, key_path));
}

// --- ini files ---

class profile_test : public testing::Test {
protected:
    // The lines of the file, whatever their ends are; empty ones don't count.
    [[nodiscard]] std::vector<std::string> lines() const {
        std::vector<std::string> all;
        std::istringstream in(read_file(file));
        for (std::string line; std::getline(in, line);) {
            std::erase(line, '\r');
            if (!line.empty())
                all.push_back(line);
        }
        return all;
    }

    test_root root;
    std::string path = root.engine_path("x.ini");
    std::filesystem::path file = root.path() / "x.ini";
};

TEST_F(profile_test, reads_numbers) {
    EXPECT_EQ(profile_int("A", "x", 7, path), 7);
    write_file(file, "top=1\r\n[A]\r\n x = 12 \r\nneg=-5\r\nbad=z9\r\nhalf=12z\r\n;off=1\r\n"
                     "max=2147483647\r\n[b b]\nx=3\n[A]\nlate=4");
    const std::tuple<const char*, const char*, std::int32_t> table[] = {
        {"A", "x", 12},  {"a", "X", 12},  {"A", "neg", -5},         {"A", "bad", 0}, {"A", "half", 12},
        {"A", "off", 7}, {"A", "top", 7}, {"A", "max", 2147483647}, {"B B", "x", 3}, {"C", "x", 7},
    };
    for (const auto& [section, key, number] : table)
        EXPECT_EQ(profile_int(section, key, 7, path), number) << section << ' ' << key;
}

TEST_F(profile_test, lives_with_any_bytes) {
    const std::string good = "[Settings]\r\nSpamThreshold=85\r\n;x\r\nUnsure Threshold = 70\r\n";
    for (std::size_t at = 0; at < good.size(); ++at)
        for (const std::string& part : {""s, "\0"s, "\xFF"s, "\n"s, "="s, std::string(5000, '[')}) {
            write_file(file, good.substr(0, at) + part + (part.empty() ? "" : good.substr(at)));
            (void)profile_int("Settings", "unsure threshold", 5, path);
            EXPECT_TRUE(write_profile_string("Settings", "new", "6", path));
            EXPECT_EQ(profile_int("Settings", "new", 5, path), 6) << at;
        }
}

TEST_F(profile_test, writes_one_line_and_keeps_the_others) {
    const std::pair<const char*, std::vector<std::string>> table[] = {
        {"", {"[S]", "k=v"}},
        {"[S]\nk=old\nx=1\n", {"[S]", "k=v", "x=1"}},
        {"[S]\nx=1\n", {"[S]", "x=1", "k=v"}},
        {"[S]\nx=1", {"[S]", "x=1", "k=v"}},
        {"[S]", {"[S]", "k=v"}},
        {"[S]\nk=old", {"[S]", "k=v"}},
        {"[s]\nK = old\n", {"[s]", "K=v"}},
        {"; note\n[T]\nk=2", {"; note", "[T]", "k=2", "[S]", "k=v"}},
        {"[S]\r\nk=old\r\nx=1\r\n", {"[S]", "k=v", "x=1"}},
    };
    for (const auto& [before, after] : table) {
        write_file(file, before);
        EXPECT_TRUE(write_profile_string("S", "k", "v", path));
        EXPECT_EQ(lines(), after) << before;
    }
    std::filesystem::remove(file);
    EXPECT_TRUE(write_profile_string("S", "k", "v", path));
    EXPECT_EQ(lines(), table[0].second);
}

// --- processes, libraries, memory, time ---

TEST(process_test, others_end_on_demand) {
    const test_root root;
    named_event ready("ready");
    child_process child("raiser", "ready");
    const std::uint32_t id = child.id();
    ASSERT_TRUE(ready.wait(patience));
    EXPECT_TRUE(process_exists(id) && process_exists(current_process_id()));
    EXPECT_LE(process_start(current_process_id()).value(), process_start(id).value());
    EXPECT_LE(process_start(id).value(), system_time());
    EXPECT_EQ(to_calendar(process_start(id).value()).year, to_calendar(system_time()).year);
    EXPECT_TRUE(terminate_process(id, -1));
    // It is gone even while nobody has asked for its exit code.
    for (int tries = 0; process_exists(id) && tries < 10'000; ++tries)
        sleep_for(1);
    EXPECT_FALSE(process_exists(id));
    child.join();
    EXPECT_FALSE(process_exists(id));
    for (const std::uint32_t nobody : {id, 0U, 0xFFFFFFFFU}) {
        EXPECT_FALSE(process_start(nobody));
        EXPECT_TRUE(failed_with(error::invalid_parameter, terminate_process(nobody, -1)));
    }
    EXPECT_TRUE(failed_with(error::file_not_found, start_process(root.engine_path("no.exe"))));
    EXPECT_TRUE(failed_with(error::path_not_found, start_process(root.engine_path("no\\no.exe"))));
}

TEST(process_test, environment_is_expanded) {
    const test_root root;
    const std::string folder = expand_environment("%appdata%");
    EXPECT_TRUE(folder.starts_with(root.engine_path()));
    EXPECT_EQ(get_attributes(folder), attribute::directory);
    const std::pair<std::string, std::string> table[] = {
        {"", ""},
        {"%AppData%\\x", folder + "\\x"},
        {"%APPDATA%%appDATA%", folder + folder},
        {"a%TESSIVAR_ROOT%b", "a" + root.engine_path() + "b"},
        {"%tvr_unknown%", "%tvr_unknown%"},
        {"%tvr_unknown%appdata%", "%tvr_unknown" + folder},
        {"%appdata", "%appdata"},
        {"%", "%"},
    };
    for (const auto& [text, expanded] : table)
        EXPECT_EQ(expand_environment(text), expanded) << text;
}

TEST(memory_test, ranges_are_committed_and_given_back) {
    const std::size_t page = page_size();
    ASSERT_EQ(allocation_granularity() % page, 0U);
    // Far more than there is: only addresses are taken.
    constexpr std::size_t size = std::size_t{1} << 36;
    auto* const range = static_cast<unsigned char*>(reserve_range(size));
    ASSERT_NE(range, nullptr);
    EXPECT_EQ(commit_range(range + page + 1, page), range + page + 1);
    range[page] = range[3 * page - 1] = 1;
    EXPECT_NE(commit_range(range, 3 * page), nullptr);
    EXPECT_TRUE(range[page] == 1 && range[0] == 0);
    decommit_range(range + page, page);
    EXPECT_EQ(range[3 * page - 1], 1);
    EXPECT_NE(commit_range(range, size / 1024), nullptr);
    EXPECT_TRUE(range[page] == 0 && range[size / 1024 - 1] == 0);
    release_range(range, size);
    EXPECT_TRUE(!reserve_range(0) && !reserve_range(SIZE_MAX));
}

TEST(clock_test, calendar) {
    constexpr std::uint64_t second = 10'000'000;
    constexpr std::uint64_t day = 86'400 * second;
    const std::pair<std::uint64_t, calendar_time> table[] = {
        {0, {1601, 1, 1, 0, 0, 0}},
        {134'774 * day, {1970, 1, 1, 0, 0, 0}},
        {126'444'736'000'000'000, {2001, 9, 9, 1, 46, 40}},
        {(134'774 + 11'016) * day, {2000, 2, 29, 0, 0, 0}},
        {(134'774 + 11'017) * day, {2000, 3, 1, 0, 0, 0}},
        {146'097 * day, {2001, 1, 1, 0, 0, 0}},
        {109'207 * day, {1900, 1, 1, 0, 0, 0}},
    };
    for (const auto& [time, date] : table) {
        const calendar_time found = to_calendar(time);
        EXPECT_EQ(std::tie(found.year, found.month, found.day, found.hour, found.minute, found.second),
                  std::tie(date.year, date.month, date.day, date.hour, date.minute, date.second))
            << time;
    }
    const std::uint64_t noon = local_to_file_time({2020, 6, 15, 12, 0, 0});
    EXPECT_EQ(local_to_file_time({2020, 6, 16, 12, 0, 1}) - noon, day + second);
    for (const calendar_time& none : {calendar_time{2021, 2, 30, 0, 0, 0},
                                      {2021, 13, 1, 0, 0, 0},
                                      {2021, 1, 1, 24, 0, 0},
                                      {1600, 1, 1, 0, 0, 0}})
        EXPECT_EQ(local_to_file_time(none), 0U);
}

} // namespace
} // namespace tvr
