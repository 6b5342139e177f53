// What only this backend promises: where things lie, and who may see them.
#include <cstdlib>
#include <deque>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/change_hook.h"
#include "platform/clock.h"
#include "platform/presence.h"
#include "platform/process.h"
#include "platform/profile.h"
#include "support/child_process.h"
#include "support/platform_objects.h"
#include "support/test.h"

namespace tvr {
namespace {

using namespace platform;
namespace fs = std::filesystem;

constexpr auto key_path = "Software\\Test";

// Everything below a folder is for its owner alone; answers how much that is.
int expect_private(const fs::path& folder) {
    int count = 0;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        struct stat info {};
        EXPECT_EQ(lstat(entry.path().c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 07777, entry.is_directory() ? 0700U : 0600U) << entry.path();
        ++count;
    }
    return count;
}

TEST(posix_test, everything_is_private) {
    const test_root root;
    const mode_t mask = umask(0);
    presence own;
    EXPECT_TRUE(user_key(key_path).set("x", 1, "x") && machine_key(key_path).is_open());
    EXPECT_TRUE(named_event("event").is_open() && own.create("class", "title"));
    EXPECT_TRUE(make_temp_file(temp_folder_path(), "tvr"));
    EXPECT_TRUE(create_directory(expand_environment("%appdata%\\folder")));
    EXPECT_TRUE(create_directory(common_appdata_folder() + "\\folder"));
    file f;
    EXPECT_TRUE(f.open(root.engine_path("file"), access::write, share::none, creation::create_always));
    f.close();
    EXPECT_TRUE(copy_file(root.engine_path("file"), root.engine_path("copy"), true));
    EXPECT_TRUE(create_directory(root.engine_path("folder")));
    EXPECT_TRUE(write_profile_string("S", "k", "v", root.engine_path("folder\\x.ini")));
    EXPECT_TRUE(write_profile_string("S", "k", "v", "c:\\x.ini"));
    umask(mask);
    EXPECT_GT(expect_private(root.path()), 15);
}

// Where others can put names of their own, nothing is used.
TEST(posix_test, a_shared_folder_is_not_used) {
    const test_root root;
    const auto run = root.path() / "run";
    fs::create_directory(run);
    for (const mode_t rights : {0777U, 0770U, 01777U}) {
        chmod(run.c_str(), rights);
        EXPECT_EQ(runtime_folder(), "") << rights;
        EXPECT_FALSE(event().create_named("event"));
    }
    fs::remove(run);
    fs::create_directory(root.path() / "else");
    fs::create_directory_symlink(root.path() / "else", run);
    EXPECT_EQ(runtime_folder(), "");
    fs::remove(run);
    for (const mode_t rights : {0777U, 01777U}) {
        chmod(root.path().c_str(), rights);
        EXPECT_EQ(runtime_folder() + temp_folder_path() + common_appdata_folder() +
                      expand_environment("%appdata%"),
                  "")
            << rights;
        EXPECT_FALSE(registry_key().create(registry_root::current_user, key_path));
    }
    chmod(root.path().c_str(), 0755);
    EXPECT_NE(runtime_folder(), "");
}

TEST(posix_test, drives_are_folders_of_the_root) {
    const test_root root;
    file f;
    ASSERT_TRUE(f.open("C:\\x.txt", access::write, share::none, creation::create_new));
    f.close();
    for (const char* name : {"c:\\x.txt", "C:/x.txt", "c:x.txt"})
        EXPECT_TRUE(get_attributes(name)) << name;
    EXPECT_FALSE(get_attributes("d:\\x.txt"));
    EXPECT_EQ(get_attributes("d:\\"), attribute::directory);
    const std::string before = current_directory();
    ASSERT_TRUE(set_current_directory("c:\\"));
    EXPECT_EQ(current_directory(), "c:");
    EXPECT_TRUE(get_attributes("x.txt"));
    EXPECT_TRUE(set_current_directory(before));
}

TEST(posix_test, named_events_have_sixty_four_places) {
    const test_root root;
    std::deque<named_event> many;
    for (int i = 0; i < 64; ++i)
        many.emplace_back(std::to_string(i));
    event extra;
    EXPECT_FALSE(extra.create_named("one too many"));
    EXPECT_TRUE(extra.create_named("62"));
    many.pop_front();
    EXPECT_TRUE(extra.create_named("in the freed place"));
}

TEST(posix_test, ini_files_keep_their_line_ends) {
    const test_root root;
    const std::pair<const char*, const char*> table[] = {
        {"[S]\r\nk=old\r\nx=1\r\n", "[S]\r\nk=v\r\nx=1\r\n"},
        {"[S]\nk=old", "[S]\nk=v"},
        {"\n[S]\n\nx=1", "\n[S]\n\nx=1\nk=v\n"},
    };
    for (const auto& [before, after] : table) {
        write_file(root.path() / "x.ini", before);
        EXPECT_TRUE(write_profile_string("S", "k", "v", root.engine_path("x.ini")));
        EXPECT_EQ(read_file(root.path() / "x.ini"), after);
    }
}

TEST(posix_test, a_year_without_29_february) {
    EXPECT_EQ(local_to_file_time({2021, 2, 29, 0, 0, 0}), 0U);
    EXPECT_NE(local_to_file_time({2020, 2, 29, 0, 0, 0}), 0U);
}

TEST(posix_test, damaged_stores) {
    const test_root root;
    const std::string good = "[Software\\Test]\nname=1:41\n";
    const std::pair<std::string, bool> table[] = {
        // and whether the value is kept
        {"", false},
        {std::string(5000, '\0'), false},
        {"name=1:41\n", false},
        {"[Software\\Tes", false},
        {"[Software\\Test]\nname=1:4\n", false},
        {"[Software\\Test]\nname=1:4g\n", false},
        {"[Software\\Test]\nname=:41\n", false},
        {"[Software\\Test]\nname\n=\n:\n=1:\n", false},
        {"\xff\n]\n=\n" + good, true},
        {good + "name2=", true},
        {good + std::string(std::size_t{5} << 20, ' '), false},
    };
    registry_key read;
    for (const auto& [text, kept] : table) {
        SCOPED_TRACE(text.substr(0, 40));
        write_file(root.path() / "user", text);
        EXPECT_EQ(read.open(registry_root::current_user, key_path) && read.query("name"), kept);
        user_key key(key_path);
        EXPECT_TRUE(key.set("other", 1, "x"));
        EXPECT_EQ(key.query("other").value().data, "x");
        EXPECT_EQ(key.query("name").has_value(), kept);
    }
    write_file(root.path() / "else", good);
    fs::remove(root.path() / "user");
    fs::create_symlink(root.path() / "else", root.path() / "user");
    EXPECT_FALSE(read.open(registry_root::current_user, key_path));
}

TEST(posix_test, a_refused_write_leaves_a_text_file_as_it_was) {
    const test_root root;
    user_key key(key_path);
    ASSERT_TRUE(key.set("x", 1, "old"));
    static int left = 0;
    const change_hook refuse = [](change, std::string_view) { return left-- == 0 ? 112U : 0U; };
    for (int number = 0; number < 4; ++number) {
        left = number;
        set_change_hook(refuse);
        EXPECT_TRUE(failed_with(error::disk_full, key.set("x", 1, "new")));
        set_change_hook(nullptr);
        EXPECT_EQ(key.query("x").value().data, "old");
    }
    EXPECT_TRUE(key.set("x", 1, "new"));
    EXPECT_EQ(key.query("x").value().data, "new");
}

TEST(posix_test, a_presence_stands_damage_to_its_file) {
    const test_root root;
    presence own;
    event ended;
    thread owner;
    const auto file = root.path() / "run" / "presence.class.title";
    ASSERT_TRUE(own.create("class", "title") && ended.create(true));
    ASSERT_TRUE(owner.start([&] {
        own.run();
        ended.set();
        return 0U;
    }));
    // A request that is late, and meant another owner.
    std::fstream(file, std::ios::binary | std::ios::in | std::ios::out).seekp(16) << '\7';
    broadcast_private_message(register_private_message("something else"));
    EXPECT_FALSE(ended.wait(200));
    close_presence("class", "title");
    owner.join();

    ASSERT_TRUE(own.create("class", "title"));
    const auto size = fs::file_size(file);
    fs::resize_file(file, 0);
    EXPECT_FALSE(find_presence("class", "title").found);
    fs::resize_file(file, size);
}

// Tells its arguments, and whether it stands apart from its starter.
const child_role started("started", [](std::string_view) {
    std::string words = read_file("/proc/self/cmdline");
    words = words.substr(words.find('\0') + 1);
    words += getsid(0) == getpid() && isatty(0) == 0 ? "apart" : "joined";
    write_file(std::string(std::getenv("TESSIVAR_ROOT")) + "/told", words);
    named_event("ready").set();
    return 0;
});

TEST(posix_test, starts_programs) {
    using namespace std::literals;
    const test_root root;
    named_event ready("ready");
    set_environment_variable(child_process::role_variable, "started");
    for (const auto& [arguments, told] : {std::pair(""sv, "apart"s), {"/stop  -x", "/stop\0-x\0apart"s}}) {
        // The suffix of the reference platform is dropped if there is no such file.
        for (const char* suffix : {"", ".exe"}) {
            EXPECT_TRUE(start_process(module_path() + suffix, arguments));
            EXPECT_TRUE(ready.wait(patience));
            EXPECT_EQ(read_file(root.path() / "told"), told);
        }
    }
    set_environment_variable(child_process::role_variable, "");
    write_file(root.path() / "no_program", "text");
    EXPECT_TRUE(failed_with(error::access_denied, start_process(root.engine_path("no_program"))));
}

} // namespace
} // namespace tvr
