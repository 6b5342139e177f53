#include "common/text.h"

#include "common/minutes.h"
#include "common/path.h"
#include "common/token_hash.h"
#include "support/platform_objects.h"
#include "support/test.h"

namespace tvr {
namespace {

using namespace std::literals;

TEST(text_test, setting_lines) {
    for (const char* line : {"", " \t ", "; a = b", "name", "  = value", "name = \t"})
        EXPECT_FALSE(parse_setting_line(line)) << line;
    const char* const table[][3] = {
        {"name=value", "name", "value"}, {" \tlong name \t=\t value", "long name", "value"},
        {"a = b ; note", "a", "b "},     {"a = b c  ", "a", "b c  "},
        {"a = ; note", "a", ""},         {"a = \"b;c\" d", "a", "b;c"},
        {"a = \"  b\"", "a", "b"},       {"a = \"b", "a", "b"},
        {"a = b\"c;d", "a", "b\"c"},
    };
    for (const auto& [line, name, value] : table) {
        const auto found = parse_setting_line(line);
        ASSERT_TRUE(found) << line;
        EXPECT_EQ(found->name + "|" + found->value, name + "|"s + value) << line;
    }
}

TEST(text_test, hexadecimal) {
    EXPECT_EQ(to_hex(0x1234ABCD, 8), "1234ABCD");
    EXPECT_EQ(to_hex(0xBEEF, 2), "EF");
    EXPECT_EQ(to_hex(10, 4), "000A");
    EXPECT_EQ(from_hex("x7Fy", 1), 0x7F);
    for (const auto& [text, position] :
         {std::pair("7F", 1), {"7F", 2}, {"", 0}, {"7", 0}, {"7f", 0}, {"G0", 0}})
        EXPECT_FALSE(from_hex(text, static_cast<std::size_t>(position))) << text;
    EXPECT_FALSE(from_hex("7\0"sv, 0));
}

// Nineteen letters "a" hash as seven do, since the hash comes round after twelve: 07777711. The last letter
// of a text doesn't count.
TEST(text_test, long_tokens_are_shortened) {
    const std::tuple<std::string, const char*, std::string> table[] = {
        {std::string(19, 'a'), "X ", std::string(19, 'a')},
        {std::string(20, 'a'), "X ", "h 07777711"},
        {std::string(20, 'a'), "H ", std::string(20, 'a')},
        {std::string(96, 'a'), "H ", std::string(96, 'a')},
        {std::string(104, 'a'), "H ", "h 07777711"},
        {std::string(104, 'a'), "", "h 07777711"},
        {std::string(200, 'a'), "M ", std::string(200, 'a')},
    };
    for (const auto& [text, kind, key] : table)
        EXPECT_EQ(shorten_token(text, kind, 19, 96), key) << text << kind;
}

TEST(minutes_test, texts) {
    // 1970-01-01 is 134774 days after 1601-01-01.
    const std::pair<std::uint32_t, const char*> table[] = {
        {0, "<undefined>"},
        {no_minutes, "<undefined>"},
        {1, "01/01/1601, 00:01"},
        {134'774 * 1440 + 1439, "01/01/1970, 23:59"},
        {no_minutes - 1, "16/02/9767, 04:14"},
    };
    for (const auto& [minutes, text] : table)
        EXPECT_EQ(minutes_to_text(minutes), text) << minutes;
    EXPECT_EQ(minutes_from_local(nullptr), 0U);
    const platform::calendar_time days[] = {
        {2021, 2, 30, 0, 0, 0}, {2020, 6, 15, 12, 0, 59}, {2020, 6, 16, 12, 1, 0}};
    EXPECT_EQ(minutes_from_local(&days[0]), 0U);
    EXPECT_EQ(minutes_from_local(&days[2]) - minutes_from_local(&days[1]), 1441U);
}

TEST(path_test, parts) {
    const char* const table[][4] = {
        {"c:\\a\\b.x", "c:\\a\\", "b.x", "c:\\a\\~b.x"},
        {"b", "", "b", "~b"},
        {"a\\", "a\\", "", ""},
        {"", "", "", ""},
        {"\\a", "\\", "a", "\\~a"},
    };
    for (const auto& [path, folder, file, tilde] : table) {
        EXPECT_EQ(folder_part(path), folder);
        EXPECT_EQ(file_part(path), file);
        EXPECT_EQ(tilde_name(path), tilde);
    }
    EXPECT_EQ(join_path("", "n"), "n");
    EXPECT_EQ(join_path("f", "n"), "f\\n");
    EXPECT_EQ(join_path("f\\", "n"), "f\\n");
}

TEST(path_test, folders_are_made_and_proved) {
    const test_root root;
    write_file(root.path() / "file", "x");
    for (const char* name : {"a\\b\\c", "a\\b\\c\\"}) // made, and there
        EXPECT_EQ(check_directory(root.engine_path(name)), folder_state::usable);
    EXPECT_TRUE(std::filesystem::is_empty(root.path() / "a" / "b" / "c"));
    EXPECT_TRUE(make_folders(root.engine_path("d\\e")));
    EXPECT_FALSE(make_folders(root.engine_path("d\\e")));
    EXPECT_FALSE(make_folders(root.engine_path("file\\e")));
    EXPECT_EQ(check_directory(root.engine_path("file")), folder_state::not_creatable_file);
    EXPECT_EQ(check_directory(root.engine_path("file\\e")), folder_state::not_writable);
    EXPECT_TRUE(file_exists(root.engine_path("file")));
    for (const std::string& no_file :
         {root.engine_path("a\\b"), root.engine_path("a\\b\\"), root.engine_path("no"), ""s})
        EXPECT_FALSE(file_exists(no_file)) << no_file;
}

TEST(path_test, the_registry_names_the_root) {
    const test_root root;
    EXPECT_EQ(root_folder(), "");
    machine_key key("Software\\Orvenix\\Brackenhold\\Paths");
    const std::string longest = "c:\\" + std::string(256, 'x');
    using namespace platform::registry_type;
    const std::tuple<std::uint32_t, std::string, std::string> table[] = {
        {string, "c:\\t\0"s, "c:\\t\\"},
        {string, "c:\\t\\", "c:\\t\\"},
        {string, "%TESSIVAR_ROOT%\0"s, "%TESSIVAR_ROOT%\\"},
        {expand_string, "%TESSIVAR_ROOT%\\t\0"s, root.engine_path("t\\")},
        {string, "", ""},
        {string, longest + '\0', longest + "\\"},
        {string, longest + "x\0"s, "as it was"},
    };
    for (const auto& [type, data, folder] : table) {
        ASSERT_TRUE(key.set("TessivarRoot", type, data));
        EXPECT_EQ(registry_path_value("TessivarRoot", "as it was"), folder);
    }
}

// probe_hash starts at 0x521365FF, rotated left by 5: 0x426CBFEA. One byte 'a': ^ 0x61 = 0x426CBF8B; one byte
// 0xFF is sign-extended: ^ 0xFFFFFFFF = 0xBD934015.
// step_hash starts at 0xAC645289, rotated left by 9: 0xC8A51358; 'a' gives 0xC8A51339.
// Of five bytes only the first position has more than four bytes left, and takes a whole word: "bcdea" and
// the same text read byte by byte would differ. 0x426CBFEA ^ 0x64636261 ("abcd") = 0x260FDD8B; rotated
// 0xC1FBB164 ^ 'b' 62 = 0xC1FBB106; 0x3F7620D8 ^ 63 = 0x3F7620BB; 0xEEC41767 ^ 64 = 0xEEC41703;
// 0xD882E07D ^ 65 = 0xD882E018.
TEST(TokenHash, ProbeAndStep) {
    EXPECT_EQ(probe_hash("a"), 0x426CBF8BU);
    EXPECT_EQ(probe_hash("\xFF"), 0xBD934015U);
    EXPECT_EQ(step_hash("a"), 0xC8A51339U);
    EXPECT_EQ(step_hash("\xFF"), 0x375AECA7U);
    EXPECT_EQ(probe_hash("abcde"), 0xD882E018U);
}

} // namespace
} // namespace tvr
