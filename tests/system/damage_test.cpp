// Damaged files before the whole system: the texts of the settings, and a training.
// Each takes real files of its kind, cut at every place, and with single bytes and runs of bytes changed: it
// must come back without a fault, and without memory out of proportion. (The fuzz targets do the same to each
// reader by itself.)

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <random>

#include "compiled/hashreg.h"
#include "msid/msidmap.h"
#include "platform/profile.h"
#include "support/atom_bytes.h"
#include "support/memory_peak.h"
#include "support/test.h"
#include "system/engine_root.h"
#include "tools/setting_list.h"
#include "transact/transaction.h"

namespace tvr {
namespace {

namespace fs = std::filesystem;

// A working directory with the files of a small training, and the texts of the settings.
struct scene {
    scene() {
        root.start();
        root.train(1, 4);
        root.kill(); // idle, and so nothing is lost
        settings& set = make_current_settings();
        set.schema(schema_mode::declare);
        default_settings().working_directory = {engine(""), engine("")};
        { msidmap(engine("base\\"), "spamdict").search("<0>"); } // makes the index
        base = folder_content(root.base());
        const std::string text = engine("advanced.ini");
        set.save(nullptr, &text, store_text);
        put("some.ini", "[Settings]\r\nSpamThreshold=85\r\n;x\r\nUnsure Threshold = 70\r\n");
        root.append(3, 4);
    }

    // Folds what waits in the cache. Never ends without a new mark: then nothing is left that could be ended.
    void train() const noexcept {
        fs::remove(path("base/cashe.mrk"));
        transaction pipeline;
        pipeline.init();
        pipeline.force_retrain();
        engine_root::wait_for("the mark", [&] { return fs::exists(path("base/cashe.mrk")); });
        pipeline.shutdown();
    }

    [[nodiscard]] std::string engine(const std::string& name) {
        return root.client().working_directory() + name;
    }
    [[nodiscard]] fs::path path(const std::string& name) const { return root.base().parent_path() / name; }
    void put(const std::string& name, const std::string& bytes) const { write_file(path(name), bytes); }
    [[nodiscard]] std::string get(const std::string& name) const { return read_file(path(name)); }

    void restore() const {
        fs::remove_all(root.base());
        fs::create_directories(root.transact());
        for (const auto& [name, bytes] : base)
            put("base/" + name, bytes);
    }

    engine_root root;
    files base; // the files of the folder after the training
};

// --- the readers ---

void read_settings(scene& s, const std::string& name) {
    const std::string bytes = s.get(name);
    settings set;
    set.schema(schema_mode::declare);
    set.schema(schema_mode::advanced_defaults);
    if (const auto changed = with_setting(bytes, "training delay", "77")) {
        s.put(name, *changed);
        EXPECT_TRUE(set.read_text(s.engine(name), 1));
        EXPECT_EQ(set.training_delay, 77U);
    }
    write_file(s.root.path() / "advanced.ini", bytes);
    EXPECT_NE(setting_list().find("training delay"), nullptr);
}

void read_ini(scene& s, const std::string& file) {
    const std::string name = s.engine(file);
    (void)platform::profile_int("Settings", "unsure threshold", 5, name);
    EXPECT_TRUE(platform::write_profile_string("Settings", "new", "6", name));
    EXPECT_EQ(platform::profile_int("Settings", "new", 5, name), 6);
}

// The whole pipeline.
void train_on(scene& s, const std::string& file) {
    const std::string bytes = s.get(file);
    if (bytes.empty() && file.ends_with(".bys"))
        return; // deliberate: an empty batch sticks, until somebody clears it away
    s.restore();
    s.root.append(4, 4);
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
    void (*read)(scene&, const std::string& file);
};

void PrintTo(const kind& tested, std::ostream* out) {
    *out << tested.name;
}

class damage : public testing::TestWithParam<kind> {};

TEST_P(damage, is_lived_through) {
    scene s;
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
                         testing::Values(kind{"advanced", "advanced.ini", 60, read_settings},
                                         kind{"ini", "some.ini", 100, read_ini},
                                         kind{"learned_cache", "base/transact/autotrain.bys", 25, train_on},
                                         kind{"learned_atom", "base/spamdict0000.bye", 25, train_on},
                                         kind{"learned_list", "base/spamdict.lst", 25, train_on},
                                         kind{"learned_index", "base/spamdict.idx", 25, train_on}),
                         [](const auto& tested) { return tested.param.name; });

} // namespace
} // namespace tvr
