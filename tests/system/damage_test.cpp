// Damaged files for every reader. Each takes real files of its kind, cut at every place, and with single
// bytes and runs of bytes changed: it must come back without a fault, and without memory out of proportion.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <new>
#include <random>
#include <sstream>

#include <nlohmann/json.hpp>

#include "client/cache_writer.h"
#include "client/tokenizer.h"
#include "common/minutes.h"
#include "common/path.h"
#include "compiled/dict_pair.h"
#include "compiled/hashreg.h"
#include "dict/message_reader.h"
#include "dict/ring.h"
#include "platform/change_hook.h"
#include "platform/entry.h"
#include "platform/profile.h"
#include "platform/registry.h"
#include "settings/settings.h"
#include "settings/transliteration.h"
#include "signal/event_channel.h"
#include "stat/statistic.h"
#include "support/file_bytes.h"
#include "support/test_root.h"
#include "tools/base_text.h"
#include "tools/engine_view.h"
#include "tools/inspection.h"
#include "tools/mail_source.h"
#include "tools/record_stream.h"
#include "tools/setting_list.h"
#include "tools/state_check.h"
#include "tools/waiting_mail.h"
#include "transact/transaction.h"

namespace {

std::atomic<std::size_t> live{0}; // bytes that new has given out and not got back
std::atomic<std::size_t> peak{0};

constexpr std::size_t room = alignof(std::max_align_t); // in front of each piece, for its size

} // namespace

// Not inlined: g++ would take malloc() and free() for the other half of a foreign pair.
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    char* piece = size < SIZE_MAX - room ? static_cast<char*>(std::malloc(size + room)) : nullptr;
    if (!piece)
        return nullptr;
    std::memcpy(piece, &size, sizeof size);
    const std::size_t now = live += size;
    for (std::size_t most = peak; most < now && !peak.compare_exchange_weak(most, now);)
        continue;
    return piece + room;
}
void* operator new(std::size_t size) {
    void* memory = operator new(size, std::nothrow);
    return memory ? memory : throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    if (!memory)
        return;
    char* piece = static_cast<char*>(memory) - room;
    std::size_t size = 0;
    std::memcpy(&size, piece, sizeof size);
    live -= size;
    std::free(piece);
}
void operator delete(void* memory, std::size_t) noexcept {
    operator delete(memory);
}
void operator delete(void* memory, const std::nothrow_t&) noexcept {
    operator delete(memory);
}

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

// A working directory with the files of a small training, and the bytes of one file of each kind.
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
        files["bye"] = get("base/spamdict0000.bye");
        files["rgd"] = get("base/cashe.rgd");
        files["mrk"] = get("base/cashe.mrk");
        files["lst"] = get("base/spamdict.lst");
        { msidmap(engine("base\\"), "spamdict").search("<0>"); }
        files["idx"] = get("base/spamdict.idx");
        files["col"] = caught["spamdict.col"];
        files["bys"] = caught["data.bys"];
        files["ipc"] = le(5);
        files["batch"] = files["bys"];
        files["learned_atom"] = files["bye"];
        files["learned_list"] = files["lst"];
        std::string name = engine("settings.cfg"), text = engine("advanced.ini");
        set.save(&name, &text, store_binary | store_text);
        files["cfg"] = get("settings.cfg");
        files["text"] = get("advanced.ini");
        files["flat"] = set.flat_export();
        {
            statistic counters;
            counters.read(engine("stat.bin"));
            for (std::uint32_t hour = 0; hour < 3; ++hour)
                counters.add_message({2, 100, now_minutes() - hour * 60}, false, true);
            counters.commit_transaction();
        }
        files["stat"] = get("stat.bin");
        temp_folder stages(engine("base\\transact\\"));
        stages.prepare(5);
        write_file(path("base/transact/0005/a"), std::string(300, 'a'));
        write_file(path("base/transact/0005/folder/b"), "b");
        std::string archive;
        stages.pack(archive, 5);
        files["trr"] = read_file(platform::display_path(archive));
        base_text_sum sum;
        (void)export_base(
            engine("base\\"), [&](std::string_view line) { return files["export"] += line, true; }, sum);
        std::ostringstream records;
        record_writer writer(records);
        writer.write(four_messages(0));
        writer.finish();
        files["records"] = records.str();
        files["mail"] = "From a@b Thu Aug 22 18:30:05 2002\n" +
                        read_file(fs::directory_iterator(TVR_SAMPLE_MAIL "/spam")->path()).substr(0, 4000);
        files["log"] = "2006/07/14 09:05:03   a\r\n2006/07/14 09:05:02   b\r\nr of it\r\n";
        files["xlt"] = std::string(256, 'x');
        files["ini"] = "[Settings]\r\nSpamThreshold=85\r\n;x\r\nUnsure Threshold = 70\r\n";
        files["registry"] = read_file(root.path() / "machine");
        base = snapshot();
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
    std::map<std::string, std::string> files; // by kind
    std::map<std::string, std::string> base;  // the files of the folder after the training
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
}

void read_settings(const scene& s, const std::string& bytes) {
    s.put("settings.cfg", bytes);
    settings set;
    for (const auto mode :
         {schema_mode::declare, schema_mode::basic_defaults, schema_mode::advanced_defaults})
        set.schema(mode);
    const std::string before = set.flat_export();
    const std::string name = s.engine("settings.cfg");
    EXPECT_TRUE(set.load(&name, nullptr, store_binary) == 0 || set.flat_export() == before)
        << "all of it or nothing";
    look_at(s, "settings.cfg");
}

void read_flat_settings(const scene&, const std::string& bytes) {
    settings set;
    set.schema(schema_mode::declare);
    set.schema(schema_mode::basic_defaults);
    const std::string before = set.flat_export();
    EXPECT_TRUE(set.flat_import(bytes) || set.flat_export() == before) << "all of it or nothing";
}

void read_text_settings(const scene& s, const std::string& bytes) {
    s.put("text.ini", bytes);
    settings set;
    set.schema(schema_mode::declare);
    set.schema(schema_mode::advanced_defaults);
    EXPECT_TRUE(set.read_text(s.engine("text.ini"), 0));
    EXPECT_TRUE(set.read_text(s.engine("text.ini"), 1));
    if (const auto changed = with_setting(bytes, "training delay", "77")) {
        s.put("text.ini", *changed);
        EXPECT_TRUE(set.read_text(s.engine("text.ini"), 1));
        EXPECT_EQ(set.training_delay, 77U);
    }
    write_file(s.root.path() / "install/advanced.ini", bytes);
    EXPECT_NE(setting_list().find("training delay"), nullptr);
}

void read_ini(const scene& s, const std::string& bytes) {
    s.put("some.ini", bytes);
    const std::string name = s.engine("some.ini");
    (void)platform::profile_int("Settings", "unsure threshold", 5, name);
    EXPECT_TRUE(platform::write_profile_string("Settings", "new", "6", name));
    EXPECT_EQ(platform::profile_int("Settings", "new", 5, name), 6);
}

void read_statistic(const scene& s, const std::string& bytes) {
    for (const char* damaged : {"stat.bin", "~stat.bin"}) {
        s.put("stat.bin", s.files.at("stat"));
        s.put(damaged, bytes);
        look_at(s, damaged);
        statistic counters;
        counters.read(s.engine("stat.bin"));
        statistic_record sum;
        counters.get_period(24 * 60, sum);
        counters.add_message({0, 100, some_time}, true, false);
        counters.commit_transaction();
    }
}

void read_atom(const scene& s, const std::string& bytes) {
    s.restore();
    s.put("base/spamdict0000.bye", bytes);
    look_at(s, "base/spamdict0000.bye");
    (void)engine_view(s.engine("")).half("spamdict");
    base_text_sum sum;
    (void)export_base(
        s.engine("base\\"), [](std::string_view) { return true; }, sum);
    {
        bye_atom atom;
        atom.open(s.engine("base\\spamdict0000.bye"));
        dword_map final;
        message_reader reader;
        msid_access ids;
        atom.fold(final, reader, ids, nullptr);
        atom.rewrite(final, s.engine("base\\transact\\"), true);
    }
    dict_pair(s.engine("base\\")).generate_base(s.engine("base\\cashe.rgd"));
    hashreg published;
    EXPECT_TRUE(published.load(s.engine("base\\cashe.rgd"))) << "what is published can be read";
}

void read_base(const scene& s, const std::string& bytes) {
    s.put("base/cashe.rgd", bytes);
    look_at(s, "base/cashe.rgd");
    (void)engine_view(s.engine("")).base();
    hashreg published;
    const bool loaded = published.load(s.engine("base\\cashe.rgd"));
    EXPECT_TRUE(loaded || published.grade("B common") == 0.0);
    std::string_view key;
    std::uint8_t* value = nullptr;
    for (published.rewind(); published.next(key, value);)
        (void)published.grade(key);
}

void read_mark(const scene& s, const std::string& bytes) {
    s.put("base/cashe.mrk", bytes);
    look_at(s, "base/cashe.mrk");
    (void)engine_view(s.engine("")).stamp();
}

void use_map(const scene& s) {
    look_at(s, "base/spamdict.lst");
    {
        msidmap map(s.engine("base\\"), "spamdict");
        (void)map.search("<0>");
        (void)map.insert("<new>", 7);
        (void)map.remove("<2>");
        (void)map.delete_if([](std::string_view, std::uint32_t value) { return value == 7; });
    }
    msidmap::relabel(s.engine("base\\spamdict.lst"), 9);
    msidmap other(s.engine("base\\"), "other");
    other.merge(s.engine("base\\spamdict.lst"));
    file_stream out;
    if (out.create_to_write(s.engine("base\\out.lst")))
        other.write_out(out);
    other.clear();
}

void read_list(const scene& s, const std::string& bytes) {
    s.restore();
    s.put("base/spamdict.lst", bytes);
    use_map(s);
}

void read_index(const scene& s, const std::string& bytes) {
    s.restore();
    s.put("base/spamdict.idx", bytes);
    use_map(s);
}

void read_columns(const scene& s, const std::string& bytes) {
    s.restore();
    const std::string stage = "base/transact/0002/";
    s.put(stage + "spamdict.col", bytes);
    s.put(stage + "spamdict0000.bye", s.files.at("bye"));
    s.put(stage + "data.bys", s.files.at("bys"));
    fs::create_directories(s.path("base/transact/0003"));
    look_at(s, stage + "spamdict.col");
    bye_ring ring;
    ring.open(s.engine("base\\"), "spamdict", 2);
    ring.load_col(2);
    msid_access ids;
    ids.open(s.engine("base\\"), s.engine("base\\transact\\0003\\"), "spamdict");
    ring.finalize(3, s.engine("base\\transact\\0002\\data.bys"), ids);
}

void read_cache(const scene& s, const std::string& bytes) {
    const std::string cache = "base/transact/autotrain.bys";
    const std::string name = s.engine("base\\transact\\autotrain.bys");
    s.restore();
    s.put(cache, bytes);
    look_at(s, cache);
    dictbase gate;
    gate.init(name);
    (void)gate.message_count();
    (void)gate.has_manual_marks();
    {
        file_stream file;
        std::uint32_t count = 0;
        ASSERT_TRUE(file.open_to_read(name));
        file.read_u32(count);
        message_record record;
        while (record.read_whole(file))
            EXPECT_LE(record.msid.size(), 255U);
    }
    mail_to_forget messages;
    messages.try_emplace("<0>");
    (void)forget_waiting(name, messages, 0);
    record_batch batch;
    batch.add({.msid = "<new>"}, token_table());
    (void)cache_writer(name).append(batch, 0);
    gate.try_snapshot_to_tilda();
    s.put(cache, bytes);
    gate.try_snapshot_to_tilda(); // joins both
    EXPECT_FALSE(fs::exists(s.path(cache)));
}

void read_archive(const scene& s, const std::string& bytes) {
    s.restore();
    s.put("base/data.trr", bytes);
    look_at(s, "base/data.trr");
    temp_folder stages(s.engine("base\\transact\\"));
    stages.prepare(5);
    stages.unpack(5, s.engine("base\\data.trr"));
    stages.remove(5);
    EXPECT_FALSE(fs::exists(s.path("base/transact/0005")));
}

void read_signals(const scene& s, const std::string& bytes) {
    s.put("base/transact/ipc.bin", bytes);
    look_at(s, "base/transact/ipc.bin");
    event_channel channel;
    channel.set_file(s.engine("base\\transact\\ipc.bin"));
    channel.replay();
    while (channel.wait(0) != ev_timeout)
        continue;
    EXPECT_TRUE(s.get("base/transact/ipc.bin") == bytes) << "a flag file that is there stays";
}

void read_export(const scene& s, const std::string& bytes) {
    fs::remove_all(s.path("base"));
    fs::create_directories(s.path("base/transact"));
    std::istringstream stream(bytes);
    base_text_sum sum;
    const std::string why = import_base(
        s.engine("base\\"), stream, [] { return std::string(); }, sum);
    EXPECT_EQ(why.empty(), !fs::is_empty(s.path("base/transact"))) << why;
}

void read_records(const scene&, const std::string& bytes) {
    std::istringstream stream(bytes);
    record_reader reader(stream);
    record_batch batch;
    while (reader.next(batch))
        continue;
    EXPECT_TRUE(!reader.error().empty() || reader.position() == bytes.size());
}

void read_mail(const scene& s, const std::string& bytes) {
    s.put("mail", bytes);
    mail_source source([](const std::string& name, const std::string& reason) {
        EXPECT_FALSE(name.empty() || reason.empty());
    });
    source.add(s.path("mail").string(), true);
    static tokenizer cutter;
    for (mail_item item; source.next(item);)
        cutter.tokenize(item.raw);
    cutter.tokenize(bytes);
    EXPECT_LE(cutter.tokens().size(), tokenizer_limits().tokens);
}

void read_logs(const scene& s, const std::string& bytes) {
    s.put("logs/tvr_srv.log", bytes);
    s.put("logs/tvr_ipc.log", s.files.at("log"));
    EXPECT_EQ(engine_main("/mergelog " + s.engine("logs")), 0);
    // deliberate: a log seems to end at its first empty line.
    EXPECT_NE(s.get("logs/common.log").find("2006/07/14 09:05:03  tvr_ipc   a\n"), std::string::npos);
}

void read_table(const scene& s, const std::string& bytes) {
    s.put("xlt/table.bin", bytes);
    xlt_table table;
    EXPECT_EQ(table.load("table"), !bytes.empty());
    std::string text = "any text";
    table.translate(text);
    EXPECT_EQ(text.size(), 8U);
}

void read_registry(const scene& s, const std::string& bytes) {
    write_file(s.root.path() / "machine", bytes);
    platform::registry_key key;
    EXPECT_TRUE(key.create(platform::registry_root::local_machine, paths_key));
    (void)key.query("TessivarRoot");
    EXPECT_TRUE(key.set("other", platform::registry_type::string, "x"));
    EXPECT_EQ(key.query("other").value().data, "x");
}

// The whole pipeline.
void train_on(const scene& s, const std::string& file, const std::string& bytes) {
    s.restore();
    s.append(4);
    s.put(file, bytes);
    s.train();
    hashreg published;
    EXPECT_TRUE(published.load(s.engine("base\\cashe.rgd")));
}

void train_on_batch(const scene& s, const std::string& bytes) {
    if (!bytes.empty()) // deliberate: an empty batch sticks, until somebody clears it away
        train_on(s, "base/transact/autotrain.bys", bytes);
}

void train_on_atom(const scene& s, const std::string& bytes) {
    train_on(s, "base/spamdict0000.bye", bytes);
}

void train_on_list(const scene& s, const std::string& bytes) {
    train_on(s, "base/spamdict.lst", bytes);
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
    std::size_t places;
    void (*read)(const scene&, const std::string& bytes);
};

void PrintTo(const kind& tested, std::ostream* out) {
    *out << tested.name;
}

class damage : public testing::TestWithParam<kind> {};

TEST_P(damage, is_lived_through) {
    const scene s;
    const std::string& good = s.files.at(GetParam().name);
    ASSERT_GT(good.size(), 3U);
    GetParam().read(s, good); // with what is allocated once
    constexpr std::uint64_t most = std::uint64_t{1} << 29;
    const std::uint64_t addresses = peak_of_addresses();
    each_damage(good, GetParam().places, [&](const char* what, std::size_t at, const std::string& bytes) {
        SCOPED_TRACE(std::string(what) + " at " + std::to_string(at));
        const std::size_t before = live;
        peak = before;
        try {
            GetParam().read(s, bytes);
        } catch (const std::exception& error) {
            ADD_FAILURE() << error.what();
        }
        EXPECT_LT(peak - before, (std::size_t{4} << 20) + 64 * bytes.size());
        ASSERT_LT(testing::UnitTest::GetInstance()->current_test_info()->result()->total_part_count(), 20);
    });
    // What doesn't come from new: the tables of tokens, and views of files. (A sanitizer takes terabytes.)
    EXPECT_LT(peak_of_addresses() - addresses, addresses > most << 10 ? addresses : most);
}

INSTANTIATE_TEST_SUITE_P(
    every, damage,
    testing::Values(kind{"cfg", 200, read_settings}, kind{"flat", 200, read_flat_settings},
                    kind{"text", 60, read_text_settings}, kind{"ini", 100, read_ini},
                    kind{"stat", 50, read_statistic}, kind{"bye", 200, read_atom},
                    kind{"rgd", 200, read_base}, kind{"mrk", 200, read_mark}, kind{"lst", 200, read_list},
                    kind{"idx", 60, read_index}, kind{"col", 200, read_columns}, kind{"bys", 200, read_cache},
                    kind{"trr", 150, read_archive}, kind{"ipc", 200, read_signals},
                    kind{"export", 60, read_export}, kind{"records", 200, read_records},
                    kind{"mail", 100, read_mail}, kind{"log", 200, read_logs}, kind{"xlt", 60, read_table},
                    kind{"registry", 60, read_registry}, kind{"batch", 25, train_on_batch},
                    kind{"learned_atom", 25, train_on_atom}, kind{"learned_list", 25, train_on_list}),
    [](const auto& tested) { return tested.param.name; });

} // namespace
} // namespace tvr
