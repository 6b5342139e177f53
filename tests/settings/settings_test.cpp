#include "settings/settings.h"

#include <algorithm>
#include <clocale>

#include "platform/process.h"
#include "settings/common_settings.h"
#include "settings/settings_file.h"
#include "support/platform_objects.h"
#include "support/test.h"

namespace tvr {
namespace {

namespace fs = std::filesystem;

using namespace std::literals;

constexpr auto basic_text = "working directory=\"\"\n"
                            "filter log=\"\"\n"
                            "list of ignoring kludges=\"\"\n"
                            "spam transliteration table=\"\"\n"
                            "local user alphabet=\"\"\n"
                            "show splash screen=\"1\"\n"
                            "log current process=\"1\"\n"
                            "log global state=\"1\"\n"
                            "log grades=\"1\"\n"
                            "filter is logged=\"1\"\n"
                            "use white list of kludges=\"0\"\n"
                            "use partically translitting=\"0\"\n"
                            "use enhanced grade=\"1\"\n"
                            "sighificant tokens=\"15\"\n";
constexpr auto advanced_text = "export selective download=\"1\"\n"
                               "selective download spam threshold=\"10\"\n"
                               "limit size to hash=\"19\"\n"
                               "limit size to hash header=\"96\"\n"
                               "simple digits spam marks=\"1\"\n"
                               "no spaces spam marks=\"1\"\n"
                               "number of exclamations=\"5\"\n"
                               "training delay=\"30000\"\n"
                               "learn from zero=\"1\"\n"
                               "use autotrain=\"1\"\n"
                               "use average instead of bayesian=\"0\"\n"
                               "use degeneration=\"1\"\n"
                               "use translit tables from registry=\"1\"\n"
                               "recalculating strategy=\"3\"\n"
                               "regarding threshold=\"1.8\"\n"
                               "idle time to shut down server=\"20\"\n"
                               "behaviour when no train info=\"2\"\n"
                               "optimal base size per half=\"2000\"\n"
                               "optimal one dict size=\"200\"\n"
                               "min optimal one dict size=\"20\"\n"
                               "MaxSinglePathLevel=\"0.5\"\n";

class settings_test : public testing::Test {
protected:
    settings_test() {
        set.schema(schema_mode::declare);
        set.schema(schema_mode::basic_defaults);
        set.schema(schema_mode::advanced_defaults);
    }
    void read(const std::string& text, std::uint32_t group) {
        write_file(root.path() / "x.ini", text);
        set.read_text(path, group);
    }
    [[nodiscard]] std::string value(const std::string& key) const {
        const auto found = std::ranges::find(set.fields(), key, &field_descriptor::key);
        return found != set.fields().end() ? base_settings::value_text(*found) : "no such key";
    }

    test_root root;
    std::string path = root.engine_path("x.ini");
    settings set;
};

TEST_F(settings_test, schema_and_defaults) {
    EXPECT_TRUE(set.write_text(path, 0));
    EXPECT_EQ(read_file(root.path() / "x.ini"), basic_text);
    EXPECT_TRUE(set.write_text(path, 1));
    EXPECT_EQ(read_file(root.path() / "x.ini"), advanced_text);
    EXPECT_EQ(set.max_single_path_level, 0.5);
    EXPECT_EQ(set.working_directory.expanded, "") << "the default lasts until the first expansion only";
}

TEST_F(settings_test, text_lines) {
    const std::tuple<std::uint32_t, std::string, const char*, const char*> table[] = {
        {1, "Training Delay=5", "training delay", "5"},
        {1, "training delay = \"5\"\r\n", "training delay", "5"},
        {1, "training delay=5\ntraining delay=6\n", "training delay", "6"},
        {1, "training delay=\n;training delay=5\n\n[x]\n=5\ntraining  delay=5\n", "training delay", "30000"},
        {1, "training delay=12 seconds ; note", "training delay", "12"},
        {1, "training delay=4294967295", "training delay", "4294967295"},
        {1, "MaxSinglePathLevel=1\nmaxsinglepathlevel=1", "MaxSinglePathLevel", "0.5"},
        {1, "learn from zero=-7", "learn from zero", "1"},
        {1, "regarding threshold=2.25", "regarding threshold", "2.25"},
        {1, "sighificant tokens=7", "sighificant tokens", "15"},
        {0, "sighificant tokens=7", "sighificant tokens", "7"},
        {0, "training delay=5", "training delay", "30000"},
        {0, "local user alphabet=\" ab;c \" x", "local user alphabet", "ab;c "},
        {0, "filter log=%appdata%\\x.log", "filter log", "%appdata%\\x.log"},
        {1, std::string(1 << 20, ';') + "\ntraining delay=5", "training delay", "30000"},
        {1, "training delay=5" + "\0\xff\n"s + std::string(3000, '='), "training delay", "5"},
    };
    for (const auto& [group, text, key, expected] : table) {
        set.schema(schema_mode::basic_defaults);
        set.schema(schema_mode::advanced_defaults);
        read(text, group);
        EXPECT_EQ(value(key), expected) << text.substr(0, 80);
    }
    EXPECT_EQ(set.filter_log.expanded, platform::expand_environment("%appdata%\\x.log"));
    EXPECT_FALSE(set.read_text(root.engine_path("no.ini"), 1));
}

TEST_F(settings_test, reals_have_a_point_in_every_locale) {
    for (const char* name : {"de_DE.UTF-8", "German"})
        if (std::setlocale(LC_ALL, name))
            break;
    for (const char* text : {"2.5", "+2.5e0", " 2.5,x"}) {
        read("regarding threshold="s + text, 1);
        EXPECT_EQ(set.regarding_threshold, 2.5) << text;
        EXPECT_EQ(value("regarding threshold"), "2.5");
    }
    std::setlocale(LC_ALL, "C");
}

TEST_F(settings_test, load_and_save_tell_what_failed) {
    const std::string missing = root.engine_path("no\\x.ini"), none;
    set.training_delay = 7;
    EXPECT_EQ(set.save(nullptr, &path, store_text), 0U);
    set.training_delay = 8;
    set.optimal_one_dict_size = 8;
    EXPECT_EQ(set.load(nullptr, &path, store_text), 0U);
    EXPECT_EQ(set.training_delay, 7U);
    EXPECT_EQ(set.optimal_one_dict_size, 200U);
    EXPECT_EQ(set.load(nullptr, &path, store_text | store_binary), store_binary);
    for (const std::string* name : std::initializer_list<const std::string*>{&missing, &none, nullptr}) {
        set.training_delay = 8;
        EXPECT_EQ(set.save(nullptr, name, store_text), store_text);
        EXPECT_EQ(set.load(nullptr, name, store_text), store_text);
        EXPECT_EQ(set.training_delay, 30000U) << "the defaults come first";
    }
    set.training_delay = 8;
    EXPECT_EQ(set.load(nullptr, nullptr, 0), 0U);
    EXPECT_EQ(set.training_delay, 8U);
}

TEST(base_settings_test, declared_twice_the_first_is_found) {
    const test_root root;
    base_settings set;
    std::uint32_t first = 1, second = 1;
    set.declare(1, field_type::number, &first, "key");
    set.declare(1, field_type::number, &second, "key");
    write_file(root.path() / "x.ini", "key=5");
    EXPECT_TRUE(set.read_text(root.engine_path("x.ini"), 1));
    EXPECT_EQ(first, 5U);
    EXPECT_EQ(second, 1U);
    EXPECT_EQ(set.flat_size(), 4U + 2 * ("key\0"s.size() + 4 + 4)) << "both are carried";
}

// One field of each kind, in all binary forms.
class binary_settings : public testing::Test {
protected:
    binary_settings() {
        set.declare_base();
        set.declare(0, field_type::flag, &flag, "flag");
        set.declare(0, field_type::number, &number, "number");
        set.declare(0, field_type::real, &real, "real");
        set.declare(0, field_type::string, &text, "text");
        set.declare(1, field_type::integer, &advanced, "advanced");
        set.working_directory.raw = "%appdata%";
    }
    [[nodiscard]] std::string values() const {
        return set.working_directory.raw + " " + std::to_string(flag) + " " + std::to_string(number) + " " +
               std::to_string(real) + " " + text.substr(0, 20) + " " + std::to_string(advanced);
    }

    test_root root;
    std::string path = root.engine_path("settings.cfg");
    std::string names = "abba\1\0\0\0\3\0flag\0\4\0number\0\5\0real\0\1\0tessivar basic settings\0"s +
                        "\6\0text\0\2\0working directory\0\xFF\xFF\0"s;
    std::string content = names + "\x40\1\1\0\x40\5\2\0\x49\x0F"s + le(1) + "\x09\0%appdata%"s +
                          "\3\0\x49\5\3\0\0\0\2\4\0\x49\x08"s + le(4, 0x80000001) + "\5\0\x49\x0C"s +
                          le(5, 0, 0x3FF80000) + "\6\0\x49\x09"s + le(0) + "\3\0v\0w"s;
    std::uint8_t flag = 2;
    std::uint32_t number = 0x80000001, advanced = 7;
    double real = 1.5;
    std::string text = "v\0w"s;
    base_settings set;
};

TEST_F(binary_settings, settings_cfg) {
    EXPECT_EQ(set.save(&path, nullptr, store_binary), 0U);
    EXPECT_EQ(read_file(root.path() / "settings.cfg"), content);
    const std::string none = root.engine_path("no\\settings.cfg");
    EXPECT_EQ(set.save(&none, nullptr, store_binary), store_binary);
    EXPECT_EQ(set.load(&none, nullptr, store_binary), store_binary);
    EXPECT_EQ(set.load(nullptr, nullptr, store_binary), store_binary);
    const struct {
        std::string file;
        std::uint32_t failed;
        std::string values;
    } table[] = {
        {content, 0, "%appdata% 2 2147483649 1.500000 "s + text + " 7"},
        {names + "\x40\1\1\0\x40\0"s, 0, "x 0 0 0.000000 x 7"}, // nothing in it
        {names + "\x40\0"s, store_binary, "x 0 0 0.000000 x 7"},
        {names + "\x40\1\1\0\x47\0"s, store_binary, "x 0 0 0.000000 x 7"}, // no section
        // The stored type doesn't count, nor does what follows the value, nor the tag.
        {names + "\x40\1\1\0\x40\2\3\0\6ttttfffffffffffg\6\0\x47\7tttt\1\0v"s, 0, "x 102 0 0.000000 v 7"},
        {names + "\x40\1\1\0\x40\2\3\0\x49\5tttt\1\4\0\x49\7tttt\1\0\0"s, store_binary, "x 0 0 0.000000 x 7"},
        {names + "\x40\1\1\0\x40\2\3\0\x49\5tttt\1\6\0\x49\7tttt\2\0v"s, store_binary, "x 0 0 0.000000 x 7"},
    };
    for (const auto& row : table) {
        SCOPED_TRACE(&row - table);
        set.working_directory.raw = text = "x";
        flag = 0;
        real = number = 0;
        write_file(root.path() / "settings.cfg", row.file);
        EXPECT_EQ(set.load(&path, nullptr, store_binary), row.failed);
        EXPECT_EQ(values(), row.values);
    }
}

TEST_F(binary_settings, flat_form) {
    const std::string two = le(2) + "text\0"s + le(0) + "\3\0v\0w"s + "flag\0"s + le(3) + "\2";
    EXPECT_EQ(set.flat_export("text\0no key\0flag\0\0number\0"sv), two);
    EXPECT_EQ(set.flat_size("text\0no key\0flag"sv), two.size());
    EXPECT_EQ(set.flat_export("advanced"sv), le(1) + "advanced\0"s + le(2, 7));
    EXPECT_EQ(set.flat_export("real"sv), le(1) + "real\0"s + le(5, 0, 0x3FF80000));
    EXPECT_EQ(set.flat_export("working directory"sv),
              le(1) + "working directory\0"s + le(1) + "\x09\0%appdata%"s);
    EXPECT_EQ(set.flat_export().size(), set.flat_size());
    EXPECT_EQ(set.flat_export().substr(0, 4), le(6));
    const std::string block = le(5) + "no key\0"s + le(1) + "\2\0zz"s + "number\0"s + le(4, 5) + "text\0"s +
                              le(2, 6) + "working directory\0"s + le(1) + "\1\0y"s + "flag\0"s + le(3) + "\1";
    for (std::size_t size = 0; size != block.size(); ++size)
        EXPECT_FALSE(set.flat_import(block.substr(0, size))) << size;
    EXPECT_EQ(values(), "%appdata% 2 2147483649 1.500000 v\0w 7"s) << "all or nothing";
    EXPECT_TRUE(set.flat_import(block + "more"));
    EXPECT_EQ(values(), "y 1 5 1.500000 v\0w 7"s) << "a value of another type is passed over";
    EXPECT_EQ(set.working_directory.expanded, "y");
    text.assign(65537, 'v'); // its length doesn't fit
    EXPECT_EQ(set.flat_export("text"sv), le(1) + "text\0"s + le(0) + "\1\0v"s);
}

// --- the start ---

constexpr auto paths_key = "Software\\Orvenix\\Brackenhold\\Paths";
constexpr auto default_raw = "%appdata%\\Orvenix\\Brackenhold\\data\\";

class settings_start : public testing::Test {
protected:
    settings_start() {
        EXPECT_TRUE(machine_key(paths_key).set("TessivarRoot", 1, root.engine_path("install")));
        write_file(install / "advanced.ini", "training delay=\"4\"\n");
        write_file(install / "kludges.txt", "kludges");
        file.attach(&set);
    }
    void start() {
        file.find_working_directory();
        EXPECT_FALSE(file.load());
        file.prepare();
    }

    test_root root;
    fs::path install = root.path() / "install";
    fs::path data = root.path() / "appdata/Orvenix/Brackenhold/data";
    user_key paths{paths_key};
    settings set;
    _kwilsfile file;
};

TEST_F(settings_start, makes_the_users_folder_and_reads_what_is_there) {
    start();
    EXPECT_EQ(paths.query("tvram settings")->data, default_raw + "\0"s);
    EXPECT_EQ(set.working_directory.raw, default_raw);
    EXPECT_EQ(set.working_directory.expanded, root.engine_path("appdata\\Orvenix\\Brackenhold\\data\\"));
    EXPECT_TRUE(fs::is_directory(data / "base" / "transact"));
    EXPECT_EQ(read_file(data / "kludges.txt"), "kludges");
    EXPECT_EQ(set.filter_log.raw, default_raw + "report.log"s);
    EXPECT_EQ(set.list_of_ignoring_kludges.expanded, set.working_directory.expanded + "kludges.txt");
    EXPECT_EQ(set.use_white_list_of_kludges, 1);
    EXPECT_EQ(set.training_delay, 4U);
    EXPECT_EQ(set.optimal_one_dict_size, 200U);
    EXPECT_EQ(*file.settingsfile(), default_raw + "settings.cfg"s);
    EXPECT_EQ(*file.advancedfile(), root.engine_path("install\\advanced.ini"));
}

TEST_F(settings_start, takes_its_seed_from_the_user_or_else_from_the_root) {
    write_file(install / "tvram.ini",
               "Sighificant Tokens=7\nuse white list of kludges=0\ntraining delay=9\n");
    start();
    EXPECT_EQ(set.sighificant_tokens, 7U);
    EXPECT_EQ(set.training_delay, 4U);
    EXPECT_EQ(set.use_white_list_of_kludges, 1) << "the copy of the list sets it";
    write_file(data / "tvram.ini", "log grades=0\nuse white list of kludges=0\n");
    write_file(data / "kludges.txt", "own");
    start();
    EXPECT_EQ(set.sighificant_tokens, 15U);
    EXPECT_EQ(set.log_grades, 0);
    EXPECT_EQ(set.use_white_list_of_kludges, 0) << "nothing was copied";
    EXPECT_EQ(read_file(data / "kludges.txt"), "own");
    write_file(data / "tvram.ini",
               "working directory=" + root.engine_path("moved")); // with no backslash after it
    start();
    EXPECT_TRUE(fs::is_directory(root.path() / "moved" / "base" / "transact"));
}

TEST_F(settings_start, goes_where_the_registry_says) {
    const std::string own = root.engine_path("own");
    ASSERT_TRUE(paths.set("tvram settings", 1, own + '\0'));
    start();
    EXPECT_EQ(set.working_directory.raw, own + "\\");
    EXPECT_TRUE(fs::is_directory(root.path() / "own" / "base" / "transact"));
    EXPECT_EQ(*file.settingsfile(), own + "\\settings.cfg");
    EXPECT_EQ(paths.query("tvram settings")->data, own + '\0');
    // A path that is no folder gives way to the default.
    ASSERT_TRUE(paths.set("tvram settings", 1, root.engine_path("install\\kludges.txt")));
    EXPECT_EQ(common_settings::getsettingsfolder(), default_raw);
    EXPECT_EQ(paths.query("tvram settings")->data, default_raw + "\0"s);
    // And without one there is none.
    write_file(root.path() / "appdata" / "x", "");
    fs::remove_all(root.path() / "appdata");
    write_file(root.path() / "appdata", "no folder");
    EXPECT_EQ(common_settings::getsettingsfolder(), "");
}

TEST_F(settings_start, settings_cfg_gives_way_to_the_registry_and_the_defaults) {
    const std::string own = root.engine_path("own\\");
    const std::string content = "abba\1\0\0\0\1\0sighificant tokens\0\2\0tessivar basic settings\0"s +
                                "\3\0working directory\0\xFF\xFF\0\x40\1\2\0\x40\2\1\0\x49\x08"s + le(4, 9) +
                                "\3\0\x49\x08"s + le(1) + "\2\0x:"s;
    ASSERT_TRUE(paths.set("tvram settings", 1, own + '\0'));
    write_file(root.path() / "own" / "settings.cfg", content);
    file.find_working_directory();
    EXPECT_FALSE(file.load());
    EXPECT_EQ(set.working_directory.raw, "x:");
    file.prepare();
    EXPECT_EQ(set.working_directory.raw, own);
    EXPECT_EQ(set.sighificant_tokens, 15U);
    EXPECT_EQ(read_file(root.path() / "own" / "settings.cfg"), content);
    file.magic = _kwilsfile::magic_accepted;
    EXPECT_EQ(file.save(), 0U);
    EXPECT_NE(read_file(root.path() / "own" / "settings.cfg"), content);
}

TEST_F(settings_start, lives_without_any_file) {
    fs::remove_all(install);
    start();
    EXPECT_EQ(set.training_delay, 30000U);
    EXPECT_EQ(set.use_white_list_of_kludges, 1);
    EXPECT_FALSE(fs::exists(data / "kludges.txt"));
    _kwilsfile unattached;
    EXPECT_TRUE(!unattached.settingsfile() && !unattached.advancedfile() && !unattached.read_seed("x"));
    EXPECT_EQ(unattached.size(), 0U);
}

TEST_F(settings_start, the_mark_allows_saving) {
    start();
    write_file(install / "advanced.ini", "kept");
    EXPECT_EQ(file.save(), 0U);
    EXPECT_EQ(read_file(install / "advanced.ini"), "kept");
    file.magic = _kwilsfile::magic_valid;
    EXPECT_EQ(file.save(), store_binary) << "the path of settings.cfg isn't expanded";
    EXPECT_TRUE(read_file(install / "advanced.ini").starts_with("export selective download=\"1\"\n"));
    // In milliseconds on this way alone.
    set.training_delay = 5000;
    EXPECT_TRUE(file.advanced_save(root.engine_path("y.ini")));
    EXPECT_EQ(set.training_delay, 5000U);
    EXPECT_TRUE(holds(read_file(root.path() / "y.ini"), "training delay=\"5\"\n"));
    EXPECT_TRUE(file.advanced_load(root.engine_path("y.ini")));
    EXPECT_EQ(set.training_delay, 5000U);
}

TEST(common_settings_test, values_of_all_components) {
    const test_root root;
    using enum common_value;
    using values = std::vector<int>;
    const auto all = [] {
        values found;
        for (const common_value each : {spam_threshold, unsure_threshold, enable_thebat, enable_outlook})
            found.push_back(common_settings::get_value(each));
        return found;
    };
    EXPECT_EQ(all(), (values{85, 75, 1, 1}));
    EXPECT_TRUE(common_settings::set_value(90, spam_threshold));
    EXPECT_TRUE(common_settings::set_value(0, enable_thebat));
    EXPECT_EQ(read_file(root.path() / "common/Orvenix/Brackenhold/tessivar.ini"),
              text_form("[Settings]\nspam threshold=90\nenable thebat=0\n"));
    EXPECT_EQ(all(), (values{90, 75, 0, 1}));
}

} // namespace
} // namespace tvr
