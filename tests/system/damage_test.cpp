// Damaged files before the whole system: the onlookers of tvrctl, the platform's stores of text, and a
// training. Each takes real files of its kind, cut at every place, and with single bytes and runs of bytes
// changed: it must come back without a fault, and without memory out of proportion. (The fuzz targets do the
// same to each reader by itself.)

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <random>
#include <sstream>

#include <nlohmann/json.hpp>

#include "client/cache_writer.h"
#include "common/minutes.h"
#include "common/path.h"
#include "compiled/hashreg.h"
#include "msid/msidmap.h"
#include "platform/change_hook.h"
#include "platform/clock.h"
#include "platform/profile.h"
#include "platform/registry.h"
#include "settings/settings.h"
#include "stage/temp_folder.h"
#include "stat/statistic.h"
#include "support/memory_peak.h"
#include "support/test.h"
#include "tools/engine_view.h"
#include "tools/inspection.h"
#include "tools/setting_list.h"
#include "tools/state_check.h"
#include "transact/transaction.h"

namespace tvr {
namespace {

namespace fs = std::filesystem;

constexpr std::uint32_t patience = 30'000;       // milliseconds
constexpr std::uint32_t some_time = 213'000'000; // 2005, in minutes since 1601
std::map<std::string, std::string> caught;       // files of a stage, taken when they go

std::uint32_t catch_stage_files(platform::change what, std::string_view path) {
    const std::string name(path.substr(path.rfind('\\') + 1));
    if (what == platform::change::delete_file && (name.ends_with(".col") || name == "data.bys"))
        caught[name] = read_file(platform::display_path(path));
    return 0;
}

// A working directory with the files of a small training, and one of each other kind.
struct scene {
    scene() {
        platform::registry_key key;
        key.create(platform::registry_root::local_machine, paths_key);
        key.set("TessivarRoot", platform::registry_type::string, root.engine_path("install"));
        fs::create_directories(root.path() / "install");
        settings& set = make_current_settings();
        set.schema(schema_mode::declare);
        set.schema(schema_mode::basic_defaults);
        set.schema(schema_mode::advanced_defaults);
        set.working_directory = {engine(""), engine("")};
        fs::create_directories(path("base/transact"));
        platform::set_current_directory(engine("")); // a stage leaves an unnamed map there
        append(0);
        platform::set_change_hook(catch_stage_files);
        train();
        platform::set_change_hook(nullptr);
        { msidmap(engine("base\\"), "spamdict").search("<0>"); } // makes the index
        base = snapshot();
        std::string name = engine("settings.cfg"), text = engine("advanced.ini");
        set.save(&name, &text, store_binary | store_text);
        {
            statistic counters;
            counters.read(engine("stat.bin"));
            for (std::uint32_t hour = 0; hour < 3; ++hour)
                counters.add_message({2, 100, now_minutes() - hour * 60}, false, true);
            counters.commit_transaction();
        }
        put("~stat.bin", get("stat.bin"));
        temp_folder stages(engine("base\\transact\\"));
        stages.prepare(5);
        write_file(path("base/transact/0005/a"), std::string(300, 'a'));
        write_file(path("base/transact/0005/folder/b"), "b");
        std::string archive;
        stages.pack(archive, 5);
        put("base/data.trr", read_file(platform::display_path(archive)));
        put("base/transact/ipc.bin", le(5));
        put("base/transact/0002/spamdict.col", caught["spamdict.col"]);
        put("base/transact/0002/data.bys", caught["data.bys"]);
        put("base/transact/autotrain.bys", caught["data.bys"]);
        put("some.ini", "[Settings]\r\nSpamThreshold=85\r\n;x\r\nUnsure Threshold = 70\r\n");
    }

    static record_batch four_messages(unsigned first) {
        record_batch batch;
        for (unsigned i = first; i < first + 4; ++i) {
            const bool spam = i % 2 == 0;
            token_table tokens;
            tokens.add("B common", 5);
            tokens.add(spam ? "H subject:offer" : "B meeting", 9);
            const std::string msid = "<" + std::to_string(i) + ">";
            batch.add({.msid = msid, .spam = spam, .size = 100, .time = some_time + i}, tokens);
        }
        return batch;
    }

    void append(unsigned first) const {
        EXPECT_EQ(cache_writer(engine("base\\transact\\autotrain.bys")).append(four_messages(first)),
                  append_result::done);
    }

    // Folds what waits in the cache. Never ends without a new mark: then nothing is left that could be ended.
    void train() const {
        fs::remove(path("base/cashe.mrk"));
        transaction pipeline;
        pipeline.init();
        pipeline.force_retrain();
        const std::uint32_t start = platform::tick_count();
        while (!fs::exists(path("base/cashe.mrk"))) {
            if (platform::tick_count() - start > patience) {
                ADD_FAILURE() << "the pipeline is stuck";
                std::abort();
            }
            platform::sleep_for(1);
        }
        pipeline.shutdown();
    }

    [[nodiscard]] std::string engine(const std::string& name) const {
        return root.engine_path("work\\" + name);
    }
    [[nodiscard]] fs::path path(const std::string& name) const { return root.path() / "work" / name; }
    void put(const std::string& name, const std::string& bytes) const { write_file(path(name), bytes); }
    [[nodiscard]] std::string get(const std::string& name) const { return read_file(path(name)); }

    [[nodiscard]] std::map<std::string, std::string> snapshot() const {
        std::map<std::string, std::string> all;
        for (const auto& entry : fs::directory_iterator(path("base")))
            if (entry.is_regular_file())
                all["base/" + entry.path().filename().string()] = read_file(entry.path());
        return all;
    }
    void restore() const {
        fs::remove_all(path("base"));
        fs::create_directories(path("base/transact"));
        for (const auto& [name, bytes] : base)
            put(name, bytes);
    }

    test_root root;
    std::map<std::string, std::string> base; // the files of the folder after the training
};

// --- the readers ---

void look_at(const scene& s, const std::string& name) {
    std::ostringstream out, errors;
    const bool good = inspect_file(s.path(name).string(), {.all = true, .json = true}, out, errors);
    EXPECT_EQ(good, errors.str().empty()) << errors.str();
    EXPECT_TRUE(out.str().empty() || nlohmann::json::accept(out.str())) << out.str();
    std::ostringstream defects;
    state_check check(s.engine(""), false, defects);
    check.run();
    const std::string told = '\n' + defects.str();
    std::size_t lines = 0;
    for (std::size_t at = 0; (at = told.find('\n', at)) < told.size() - 1; ++at)
        lines += told.compare(at + 1, 6, "note: ") != 0;
    EXPECT_EQ(check.defects(), lines) << told;
    const engine_view view(s.engine(""));
    (void)view.half("spamdict");
    (void)view.base();
    (void)view.stamp();
}

void read_settings(const scene& s, const std::string& name) {
    const std::string bytes = s.get(name);
    settings set;
    set.schema(schema_mode::declare);
    set.schema(schema_mode::advanced_defaults);
    if (const auto changed = with_setting(bytes, "training delay", "77")) {
        s.put(name, *changed);
        EXPECT_TRUE(set.read_text(s.engine(name), 1));
        EXPECT_EQ(set.training_delay, 77U);
    }
    write_file(s.root.path() / "install/advanced.ini", bytes);
    EXPECT_NE(setting_list().find("training delay"), nullptr);
}

void read_ini(const scene& s, const std::string& file) {
    const std::string name = s.engine(file);
    (void)platform::profile_int("Settings", "unsure threshold", 5, name);
    EXPECT_TRUE(platform::write_profile_string("Settings", "new", "6", name));
    EXPECT_EQ(platform::profile_int("Settings", "new", 5, name), 6);
}

// The whole pipeline.
void train_on(const scene& s, const std::string& file) {
    const std::string bytes = s.get(file);
    if (bytes.empty() && file.ends_with(".bys"))
        return; // deliberate: an empty batch sticks, until somebody clears it away
    s.restore();
    s.append(4);
    s.put(file, bytes);
    s.train();
    hashreg published;
    EXPECT_TRUE(published.load(s.engine("base\\cashe.rgd"))) << "what is published can be read";
}

// --- the damage ---

// At every place of a small file, and at about so many places of a larger one.
template <class Visit>
void each_damage(const std::string& good, std::size_t places, Visit&& visit) {
    const std::size_t step = good.size() / places + 1;
    for (std::size_t at = 0; at < good.size(); at += step) {
        visit("cut", at, good.substr(0, at));
        for (const char bits : {'\x01', '\x80'}) {
            std::string bad = good;
            bad[at] = static_cast<char>(bad[at] ^ bits);
            visit("bits", at, bad);
        }
        for (const char byte : {'\xFF', '\0'}) {
            std::string bad = good;
            const std::size_t size = std::min<std::size_t>(4, good.size() - at);
            visit("run", at, bad.replace(at, size, size, byte));
        }
    }
    std::mt19937 random(5);
    for (const std::size_t size : {1U, 8U, 100U, 5000U}) {
        std::string garbage(size, '\0');
        for (char& byte : garbage)
            byte = static_cast<char>(random());
        visit("garbage", size, garbage);
        visit("garbage behind its beginning", size, good.substr(0, 12) + garbage);
    }
    for (const char byte : {'\0', '\xFF', '\n'})
        visit("one byte all along", 100'000, std::string(100'000, byte));
    visit("twice", good.size(), good + good);
}

// The most address space that this process has had.
std::uint64_t peak_of_addresses() {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;)
        if (word == "VmPeak:" && status >> word)
            return std::stoull(word) * 1024;
    return 0;
}

struct kind {
    const char* name;
    const char* file;
    std::size_t places;
    void (*read)(const scene&, const std::string& file);
};

void PrintTo(const kind& tested, std::ostream* out) {
    *out << tested.name;
}

class damage : public testing::TestWithParam<kind> {};

TEST_P(damage, is_lived_through) {
    const scene s;
    const std::string file = GetParam().file;
    const std::string good = s.get(file);
    ASSERT_GT(good.size(), 3U);
    GetParam().read(s, file); // with what is allocated once
    constexpr std::uint64_t most = std::uint64_t{1} << 29;
    const std::uint64_t addresses = peak_of_addresses();
    each_damage(good, GetParam().places, [&](const char* what, std::size_t at, const std::string& bytes) {
        SCOPED_TRACE(std::string(what) + " at " + std::to_string(at));
        s.put(file, bytes);
        const memory_peak peak;
        try {
            GetParam().read(s, file);
        } catch (const std::exception& error) {
            ADD_FAILURE() << error.what();
        }
        EXPECT_LT(peak.bytes(), (std::size_t{4} << 20) + 64 * bytes.size());
        ASSERT_LT(testing::UnitTest::GetInstance()->current_test_info()->result()->total_part_count(), 20);
    });
    // What doesn't come from new: the tables of tokens, and views of files. (A sanitizer takes terabytes.)
    EXPECT_LT(peak_of_addresses() - addresses, addresses > most << 10 ? addresses : most);
}

INSTANTIATE_TEST_SUITE_P(every, damage,
                         testing::Values(kind{"settings", "settings.cfg", 200, look_at},
                                         kind{"statistic", "stat.bin", 50, look_at},
                                         kind{"pending_statistic", "~stat.bin", 50, look_at},
                                         kind{"atom", "base/spamdict0000.bye", 200, look_at},
                                         kind{"compiled", "base/cashe.rgd", 200, look_at},
                                         kind{"mark", "base/cashe.mrk", 200, look_at},
                                         kind{"list", "base/spamdict.lst", 200, look_at},
                                         kind{"index", "base/spamdict.idx", 60, look_at},
                                         kind{"columns", "base/transact/0002/spamdict.col", 200, look_at},
                                         kind{"batch", "base/transact/0002/data.bys", 200, look_at},
                                         kind{"cache", "base/transact/autotrain.bys", 200, look_at},
                                         kind{"archive", "base/data.trr", 150, look_at},
                                         kind{"signals", "base/transact/ipc.bin", 200, look_at},
                                         kind{"advanced", "advanced.ini", 60, read_settings},
                                         kind{"ini", "some.ini", 100, read_ini},
                                         kind{"learned_cache", "base/transact/autotrain.bys", 25, train_on},
                                         kind{"learned_atom", "base/spamdict0000.bye", 25, train_on},
                                         kind{"learned_list", "base/spamdict.lst", 25, train_on},
                                         kind{"learned_index", "base/spamdict.idx", 25, train_on}),
                         [](const auto& tested) { return tested.param.name; });

} // namespace
} // namespace tvr
