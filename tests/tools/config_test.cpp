// The settings as people see and change them.

#include <set>

#include "client/verdict/user_limits.h"
#include "settings/common_settings.h"
#include "support/test.h"
#include "tools/settings/setting_file.h"
#include "tools/settings/setting_list.h"

namespace tvr {
namespace {

namespace fs = std::filesystem;

struct config_test : testing::Test {
    config_test() {
        fs::create_directories(m_root.path() / "install");
        m_working = m_root.path() / "appdata/Orvenix/Brackenhold/data";
        setting_list first; // makes the working directory
    }
    // The reason of a failure.
    std::string set(const char* key, const char* value) {
        const setting_list list;
        return list.set(*list.find(key), value);
    }
    std::string value(const char* key) { return setting_list().find(key)->value; }

    test_root m_root;
    fs::path m_working;
};

TEST(setting_lines, change_one_key_alone) {
    const struct {
        const char *text, *key, *value;
        const char* result; // null: impossible
    } rows[] = {
        {"", "k", "5", "k=\"5\"\n"},
        {"; c\r\nother=1\r\n", "k", "5", "; c\r\nother=1\r\nk=\"5\"\r\n"},
        {"other=1", "k", "5", "other=1\nk=\"5\"\n"},
        {"a b = 1 ; why\nz=2\n", "A B", "7", "a b = \"7\" ; why\nz=2\n"},
        {"k=\"1\" ; x\r\nz=2", "k", "7", "k=\"7\" ; x\r\nz=2"},
        {"k=1\nK=2\nk2=3\n", "k", "7", "k=1\nK=\"7\"\nk2=3\n"}, // the last one counts
        {";k=1\nk\n", "k", "7", ";k=1\nk\nk=\"7\"\n"},
        {"k=1 ; say \"x\"\n", "k", "", "k=\"\"\n"}, // the comment would become the value
        {"", "k", "a;b", "k=\"a;b\"\n"},
        {"", "k", "a\"b", nullptr},
        {"", "k", " a", nullptr},
        {"", "k", "a\nz=1", nullptr},
    };
    for (const auto& row : rows) {
        const auto made = with_setting(row.text, row.key, row.value);
        EXPECT_EQ(made.value_or("-"), row.result ? row.result : "-");
    }
}

TEST_F(config_test, knows_every_setting) {
    const setting_list list;
    std::set<std::string> keys;
    for (const setting_view& setting : list.all()) {
        keys.insert(setting.facts->key);
        EXPECT_GT(std::string(setting.facts->meaning).size(), 3U);
        std::string checked;
        if (setting.type != field_type::path && setting.obstacle.empty()) {
            EXPECT_EQ(check_value(setting, setting.fallback, checked), "") << setting.facts->key;
        }
    }
    EXPECT_EQ(keys.size(), 44U);
    settings plain;
    plain.schema(schema_mode::declare);
    for (const field_descriptor& field : plain.fields())
        EXPECT_TRUE(keys.contains(field.key)) << field.key;
}

TEST_F(config_test, asks_for_a_root) {
    EXPECT_TRUE(holds(set("training delay", "60"), "tvrctl config root"));
    EXPECT_EQ(register_root(m_root.engine_path("nothing")), ""); // is made
    EXPECT_EQ(register_root(m_root.engine_path("install")), "");
    EXPECT_EQ(set("Training Delay", "60"), "");
    EXPECT_EQ(value("training delay"), "60");
    EXPECT_EQ(read_file(m_root.path() / "install/advanced.ini"), "training delay=\"60\"\n");
}

TEST_F(config_test, checks_before_it_writes) {
    ASSERT_EQ(register_root(m_root.engine_path("install")), "");
    const std::pair<const char*, std::vector<const char*>> refused[] = {
        {"training delay", {"0", "4294968", "1.5", "-1", "", "60s"}},
        {"optimal one dict size", {"0"}},
        {"regarding threshold", {"nan", "0"}},
        {"use autotrain", {"2"}},
        {"train at messages", {"0"}},
        {"MaxSinglePathLevel", {"0.5"}},
        {"working directory", {"\\x"}},
        {"spam transliteration table", {"abc"}},
        {"spam threshold", {"101", "70"}},
        {"unsure threshold", {"86"}},
        {"false positives", {"100001", "0.1"}},
        {"local user alphabet", {"a\"b"}},
        {"number of exclamations", {"4294967296"}},
    };
    for (const auto& [key, values] : refused)
        for (const char* value : values)
            EXPECT_NE(set(key, value), "") << key << " " << value;
    EXPECT_TRUE(fs::is_empty(m_root.path() / "install"));
    EXPECT_FALSE(fs::exists(m_working / "tvram.ini"));

    write_file(m_root.path() / "install/advanced.ini", std::string((1 << 20) + 1, ';'));
    EXPECT_TRUE(holds(set("training delay", "60"), "1 MiB"));
}

TEST_F(config_test, writes_where_the_engine_reads) {
    ASSERT_EQ(register_root(m_root.engine_path("install")), "");
    // The seed of the root is hidden by one in the working directory, which so takes its lines over.
    write_file(m_root.path() / "install/tvram.ini", "; all\nlog grades=0\n");
    EXPECT_EQ(value("log grades"), "0");
    EXPECT_EQ(set("show splash screen", "off"), "");
    EXPECT_EQ(read_file(m_working / "tvram.ini"), "; all\nlog grades=0\nshow splash screen=\"0\"\n");
    EXPECT_EQ(read_file(m_root.path() / "install/tvram.ini"), "; all\nlog grades=0\n");
    EXPECT_EQ(value("log grades") + value("show splash screen"), "00");

    EXPECT_EQ(set("unsure threshold", "60"), "");
    EXPECT_EQ(common_settings::get_value(common_value::unsure_threshold), 60);
    EXPECT_EQ(set("false positives", "20"), "");
    EXPECT_TRUE(holds(read_file(m_working / "tvrctl.ini"), "false positives=20"));
    EXPECT_DOUBLE_EQ(limits_of_user(common_settings::working_directory()).false_positives, 0.02);
    EXPECT_EQ(set("recalculating strategy", "12.5"), "");
    EXPECT_EQ(value("recalculating strategy"), "12.5");
    EXPECT_EQ(std::distance(fs::directory_iterator(m_root.path() / "install"), {}), 2); // nothing temporary
}

} // namespace
} // namespace tvr
