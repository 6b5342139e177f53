// What only this backend promises: the names by which other programs find the engine, and where things lie.

#include "platform/error.h"
#include "platform/presence.h"
#include "platform/process.h"
#include "platform/win32/handle.h"
#include "tests/support/child_process.h"
#include "tests/support/platform_objects.h"
#include "tests/support/test.h"

namespace tvr {

namespace {

using namespace platform;

constexpr auto class_name = "Test_class"; // of the role "presence owner"
constexpr auto title = "tvr test title";

class without_root : public testing::Test {
protected:
    without_root() {
        set_environment_variable("TESSIVAR_ROOT", "");
        EXPECT_TRUE(ready.create_named("ready"));
    }
    child_process start() {
        child_process child("presence owner", title);
        EXPECT_TRUE(ready.wait(patience));
        return child;
    }

    test_root folder;
    event ready;
};

TEST_F(without_root, the_presence_is_a_hidden_window) {
    child_process child = start();
    const HWND window = FindWindowA(class_name, title);
    ASSERT_NE(window, nullptr);
    DWORD process = 0;
    GetWindowThreadProcessId(window, &process);
    EXPECT_EQ(process, child.id());
    EXPECT_EQ(GetWindowLongA(window, GWL_STYLE) & (WS_OVERLAPPEDWINDOW | WS_VISIBLE), 0xcf0000);
    EXPECT_EQ(GetClassLongA(window, GCL_STYLE), 3U);
    SendMessageA(window, WM_CLOSE, 0, 0);
    EXPECT_EQ(FindWindowA(class_name, title), nullptr);
    EXPECT_EQ(child.join(), 3);

    child = start();
    PostMessageA(FindWindowA(class_name, title), RegisterWindowMessageA("test_exit_message"), 0, 0);
    EXPECT_EQ(child.join(), -1);
}

TEST_F(without_root, events_are_kernel_objects_of_their_name) {
    const win32::handle opened(OpenEventA(EVENT_MODIFY_STATE, FALSE, "ready"));
    ASSERT_TRUE(opened.is_open());
    SetEvent(opened.get());
    EXPECT_TRUE(ready.wait(0));
}

TEST_F(without_root, values_are_in_the_system_registry) {
    registry_key key;
    ASSERT_TRUE(key.create(registry_root::current_user, "Software\\tvr_test"));
    EXPECT_TRUE(key.set("name", registry_type::string, "text"));
    char text[8] = {};
    DWORD size = sizeof text;
    EXPECT_EQ(
        RegGetValueA(HKEY_CURRENT_USER, "Software\\tvr_test", "name", RRF_RT_REG_SZ, nullptr, text, &size),
        ERROR_SUCCESS);
    EXPECT_STREQ(text, "text");
    key.close();
    EXPECT_EQ(RegDeleteKeyA(HKEY_CURRENT_USER, "Software\\tvr_test"), ERROR_SUCCESS);
    EXPECT_TRUE(key.open(registry_root::local_machine, "Software\\Microsoft"));
}

TEST_F(without_root, folders_are_those_of_the_system) {
    EXPECT_EQ(common_appdata_folder(), environment_variable("ALLUSERSPROFILE"));
    EXPECT_EQ(expand_environment("%appdata%\\x"), environment_variable("APPDATA").value() + "\\x");
    EXPECT_EQ(temp_folder_path(), environment_variable("TEMP").value() + "\\");
    EXPECT_TRUE(runtime_folder().starts_with(environment_variable("LOCALAPPDATA").value()));
}

TEST(win32_test, links_to_folders_are_not_followed) {
    const test_root root;
    write_file(root.path() / "target" / "kept", "x");
    const std::string link = root.engine_path("link");
    CreateSymbolicLinkA(link.c_str(), root.engine_path("target").c_str(), SYMBOLIC_LINK_FLAG_DIRECTORY);
    if (!get_attributes(link))
        GTEST_SKIP() << "no right to make links, or Wine 8, which can't make them";
    directory_search search;
    directory_entry entry;
    ASSERT_TRUE(search.first(root.engine_path("li*"), entry));
    EXPECT_EQ(entry.attributes, attribute::archive);
    search.close();
    EXPECT_TRUE(delete_file(link));
    EXPECT_TRUE(get_attributes(root.engine_path("target\\kept")));
}

TEST(win32_test, the_version_is_in_the_executable) {
    const auto version = module_version();
    ASSERT_TRUE(version);
    EXPECT_EQ(version->product_name, "Tessivar");
    EXPECT_EQ(version->product_version, TVR_VERSION);
    EXPECT_EQ(resource_string(499), "");
}

const child_role started("started", [](std::string_view) {
    write_file(std::string(std::getenv("TESSIVAR_ROOT")) + "\\told", GetCommandLineA());
    named_event("ready").set();
    return 0;
});

TEST(win32_test, starts_programs) {
    const test_root root;
    named_event ready("ready");
    set_environment_variable(child_process::role_variable, "started");
    const std::string program = "\"" + module_path() + "\"";
    for (const auto& [arguments, told] : {std::pair("", program), {"/stop  -x", program + " /stop  -x"}}) {
        EXPECT_TRUE(start_process(module_path(), arguments));
        ASSERT_TRUE(ready.wait(patience));
        EXPECT_EQ(read_file(root.path() / "told"), told);
    }
    set_environment_variable(child_process::role_variable, "");
}

} // namespace

} // namespace tvr
