#include "settings/transliteration.h"

#include "settings/settings.h"
#include "support/platform_objects.h"
#include "support/test.h"

namespace tvr {
namespace {

using namespace std::literals;

TEST(transliteration_test, partial) {
    settings& set = make_current_settings();
    const std::string table = std::string(1, '?') + std::string(94, '-') + "!"; // of 32, of 33 to 126, of 127
    const struct {
        std::uint8_t is_on;
        std::string table, alphabet, text, result;
    } rows[] = {
        {1, table, "\xE0\xE1", "a\xE1 ~\x7F\x80\xFF\x1F\0z"s, "-\xE1 -!\x80\xFF\x1F\0-"s},
        {1, table, "\xE0\xE1", "plain", "plain"},
        {1, table + "more", "b", "ab", "--"},
        {1, table.substr(1), "b", "ab", "ab"},
        {0, table, "b", "ab", "ab"},
    };
    for (const auto& row : rows) {
        set.use_partically_translitting = row.is_on;
        set.spam_transliteration_table = row.table;
        set.local_user_alphabet = row.alphabet;
        std::string text = row.text;
        EXPECT_EQ(&partial_transliteration(text), &text);
        EXPECT_EQ(text, row.result) << &row - rows;
    }
}

TEST(transliteration_test, tables) {
    const test_root root;
    const std::string paths = "Software\\Orvenix\\Brackenhold\\Paths";
    ASSERT_TRUE(machine_key(paths).set("TessivarRoot", 1, root.engine_path("install")));
    settings& set = make_current_settings();
    set.use_translit_tables_from_registry = 1;
    set.working_directory.expanded = root.engine_path("work\\");
    // Each table is one letter; 97 entries end below "a".
    for (const auto& [name, size] : {std::pair("both", 256U), {"long", 257U}, {"empty", 0U}})
        EXPECT_TRUE(user_key(paths + "XLT\\" + name)
                        .set("Table", platform::registry_type::binary, std::string(size, 'r')));
    for (const auto& [name, size] : {std::pair("both", 256U), {"long", 98U}, {"empty", 97U}, {"file", 9U}})
        write_file(root.path() / "work/xlt" / (name + ".bin"s), std::string(size, 'w'));
    write_file(root.path() / "work/xlt/hollow.bin", "www");
    write_file(root.path() / "install/xlt/file.bin", std::string(300, 'i'));
    write_file(root.path() / "install/xlt/hollow.bin", "");
    // From the registry, a name, whether it is loaded, and what "a", 255, blank, 31 and zero become.
    const std::tuple<std::uint8_t, const char*, bool, std::string> rows[] = {
        {1, " both\t", true, "rrr\x1F\0"s},     {0, "both", true, "www\x1F\0"s},
        {1, "long", true, "w\xFFw\x1F\0"s},     {1, "empty", true, "a\xFFw\x1F\0"s},
        {1, "file", true, "iii\x1F\0"s},        {1, "hollow", false, "a\xFF \x1F\0"s},
        {1, "missing", false, "a\xFF \x1F\0"s},
    };
    for (const auto& [by_registry, name, loaded, result] : rows) {
        set.use_translit_tables_from_registry = by_registry;
        xlt_table translation;
        std::string text = "a\xFF \x1F\0"s;
        EXPECT_EQ(translation.load(name), loaded) << name;
        translation.translate(text);
        EXPECT_EQ(text, result) << name;
    }
    xlt_table kept;
    EXPECT_TRUE(kept.load("file") && kept.load("missing") && kept.name() == "file");
    std::filesystem::remove_all(root.path() / "install");
    std::filesystem::remove(root.path() / "work/xlt/file.bin");
    EXPECT_FALSE(kept.load("file"));
    EXPECT_TRUE(kept.load("") && !kept.loaded() && kept.load("both") && kept.name() == "both");
}

} // namespace
} // namespace tvr
