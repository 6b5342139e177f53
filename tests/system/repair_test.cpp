// tvrctl repair and trim on the files of a real engine: damaged, cut off by a death, or only old.

#include <algorithm>
#include <functional>

#include "dict/message_record.h"
#include "msid/msidmap.h"
#include "support/test.h"
#include "system/engine_root.h"
#include "system/mortal_engine.h"
#include "tools/state/engine_pause.h"
#include "tools/state/engine_view.h"

namespace tvr {
namespace {

namespace fs = std::filesystem;
using platform::change;
using std::string_literals::operator""s;

// A root whose files can be put back.
class repair : public testing::Test {
protected:
    fs::path data() const { return root.base().parent_path(); }
    fs::path saved() const { return root.path() / "saved"; }
    void save() { fs::copy(data(), saved(), fs::copy_options::recursive); }
    void restore() {
        fs::remove_all(data());
        fs::copy(saved(), data(), fs::copy_options::recursive);
    }
    // Of the spam half and the good one.
    std::pair<std::uint64_t, std::uint64_t> learned() {
        const engine_view view(root.client().working_directory());
        return {view.half("spamdict").messages, view.half("nspamdict").messages};
    }
    // With another ten messages.
    void expect_to_learn(std::pair<std::uint64_t, std::uint64_t> before) {
        root.start();
        root.append(9, 10);
        root.force();
        const engine_view view(root.client().working_directory());
        // No look into the dictionaries while they are exchanged: elsewhere an open file hinders its
        // deletion.
        engine_root::wait_for("the training", [&] {
            return !view.stage() && learned() == std::pair(before.first + 5, before.second + 5) &&
                   !view.stage();
        });
        root.stop();
        tvrctl("verify", 0);
    }
    // What was set aside, under its path below the data folder.
    files set_aside() const {
        files all;
        for (const auto& entry : fs::recursive_directory_iterator(data() / "repair"))
            if (entry.is_regular_file())
                all[fs::relative(entry.path(), *fs::directory_iterator(data() / "repair")).generic_string()] =
                    read_file(entry.path());
        return all;
    }

    engine_root root;
};

std::string flipped(std::string bytes, std::size_t at) {
    bytes.at(at) = static_cast<char>(bytes.at(at) ^ 0x40);
    return bytes;
}

// Cuts the tail of a text, or a file's.
std::string cut(const std::string& bytes, std::size_t tail) {
    return bytes.substr(0, bytes.size() - tail);
}

TEST_F(repair, mends_or_sets_aside_what_is_damaged) {
    root.train(1, 30);
    root.stop();
    root.append(2, 20); // they wait
    save();
    const auto saved_file = [&](const char* name) { return read_file(saved() / name); };
    const std::string atom = saved_file("base/spamdict0000.bye");
    const std::string compiled = saved_file("base/cashe.rgd");
    const std::string list = saved_file("base/spamdict.lst");
    const std::string cache = saved_file("base/transact/autotrain.bys");
    const std::string statistic = saved_file("~stat.bin");
    const std::size_t second = 4 + word_at(cache, 12); // by the first record's length
    ASSERT_EQ(cache.substr(second, 4), le(0x25062004));
    const std::string first_message = le(19) + cache.substr(4, second - 4);
    const char* const spam_atom = "base/spamdict0000.bye";
    const char* const waiting = "base/transact/autotrain.bys";

    const struct {
        const char* file;
        std::string bytes;  // "" takes it away
        const char* found;  // by verify
        const char* told;   // by repair
        std::string mended; // what the file is afterwards; "" if it is set aside
        std::pair<unsigned, unsigned> learned = {25, 25}; // in the end, with the waiting messages
    } rows[] = {
        {spam_atom, cut(atom, 100), "the file ends inside token", "set aside", "", {10, 25}},
        {spam_atom, flipped(atom, 16), "occurrences", "set the totals", atom},
        {"base/cashe.rgd", flipped(compiled, 0), "the signature is", "generates the compiled base", ""},
        {"base/cashe.rgd", "", "the compiled base is missing", "generates the compiled base", ""},
        {"base/cashe.mrk", "", "has no time mark", "cashe.mrk again", "made"},
        {"base/cashe.mrk", "1234", "the file ends inside the time", "cashe.mrk again", "made"},
        {"base/spamdict.lst", flipped(list, 0), "the signature is", "of 15 message IDs", list},
        {"base/spamdict.lst", flipped(list, 8), "the header tells", "of 15 message IDs", list},
        {"base/spamdict.lst", list + "\x20x", "the file ends inside record 16", "of 15 message IDs", list},
        {"base/spamdict.lst", "junk", "the signature is", "no ID of it can be read", ""},
        {"base/spamdict.idx", std::string(512, 'x'), "the signature is", "of 15 message IDs", "made"},
        {waiting, flipped(cache, second), "the signature is", "keep 19 messages", first_message, {25, 24}},
        {waiting, flipped(cache, second + 8), "a length of", "keep 19 messages", first_message, {25, 24}},
        {waiting, cut(cache, 1), "the file ends inside token", "keep 19 messages", le(19), {25, 24}},
        {waiting, flipped(cache, 0), "the header tells", "20 at offset 0", cache},
        {waiting, cache + le(0, 6), "the signature is", "keep 20 messages", cache},
        {waiting, "123", "the number of records", "set aside", "", {15, 15}},
        {"~stat.bin", statistic + "cut", "the file ends inside entry", "keep the whole entries", statistic},
        {"~stat.bin", "text", "doesn't begin with STAT", "set aside", ""},
        {"settings.cfg", "abba", "damaged", "set aside", ""},
        {"base/transact/ipc.bin", "123", "inside the signals", "set aside", ""},
        {"base/data.trr", "\3\0\5"s, "doesn't belong there", "set aside", ""},
        {"base/transact/0006/prepared.txt", "prepared", "not the text of a stage", "again", "prepared\0"s},
        {"base/transact/0003/spamdict0000.bye", atom, "a stage without", "set aside", ""},
        {"base/transact/0001/dis1.tmp", cut(cache, 1), "will be lost", "mark stage 1", le(19), {35, 34}},
        {"base/transact/0001/prepared.txt", "prepared\0"s, "the marked batch isn't there", "set aside", ""},
        {"base/transact/0002/prepared.txt", "prepared\0"s, "data.bys, aren't there", "set aside", ""},
        {"base/transact/0003/prepared.txt", "prepared\0"s, "3 is marked without", "half of stage 3", ""},
        {"base/transact/0004/prepared.txt", "prepared\0"s, "4 is marked without", "half of stage 4", ""},
        {"base/transact/~~autotrain.bys", cache, "a merge of waiting messages", "the snapshot", ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.file) + ": " + row.found);
        restore();
        const fs::path file = data() / row.file;
        const std::string before = read_file(file);
        if (row.bytes.empty())
            fs::remove(file);
        else
            write_file(file, row.bytes);
        const bool heals = row.found == "a stage without"s; // at the engine's next start
        tvrctl("verify", heals ? 0 : 1, row.found);
        tvrctl("repair --dry-run", 1, row.told);
        EXPECT_EQ(read_file(file), row.bytes);
        tvrctl("repair --yes", 0, row.told);
        EXPECT_EQ(fs::exists(file), !row.mended.empty());
        if (row.mended != "made") {
            EXPECT_TRUE(read_file(file).starts_with(row.mended));
        }
        const bool stays = holds(row.file, "0006/prepared") || holds(row.file, "~~");
        if (!row.bytes.empty() && !stays) {
            EXPECT_EQ(set_aside()[row.file], row.bytes);
        }
        tvrctl("repair", 0, "nothing to do");
        tvrctl("verify", row.bytes == "junk" ? 1 : 0); // no list is left
        if (row.file == std::string("base/cashe.rgd")) {
            root.start();
            engine_root::wait_for("the compiled base", [&] { return fs::exists(file) && !root.marker(6); });
            EXPECT_TRUE(read_file(file) == compiled);
            root.kill();
        }
        expect_to_learn(row.learned);
    }
}

TEST_F(repair, keeps_apart_from_the_engine) {
    root.start();
    tvrctl("repair", 3, "the engine runs");
    tvrctl("trim", 3, "the engine runs");
    root.stop();
    engine_pause pause;
    EXPECT_EQ(pause.begin(), "");
    EXPECT_EQ(root.run_key(""), 0);
    EXPECT_TRUE(holds(root.log("tvr_srv.log"), "Another instance found"));
}

class repair_after_death : public repair, public testing::WithParamInterface<death> {};

// From whatever point: nothing is lost, and nothing counts twice.
TEST_P(repair_after_death, ends_as_an_undisturbed_run) {
    die_in_second_training(root, GetParam());
    const std::string point = GetParam().name;
    tvrctl("verify",
           point == "sorting" || point == "finalizing_good" ? 0 : 1); // those begin again by themselves
    tvrctl("repair --yes", 0);
    root.start();
    const engine_view view(root.client().working_directory());
    engine_root::wait_for("the rest of the training", [&] { return !view.stage(); });
    const auto& expected = undisturbed_files();
    engine_root::wait_for("all files", [&] { return root.base_files() == expected; });
}

INSTANTIATE_TEST_SUITE_P(
    at, repair_after_death,
    testing::Values(death{"entering", change::create_file, "\\0001\\prepared.txt"},
                    death{"sorting", change::create_file, "\\0002\\nspamdict.col"},
                    death{"the_sorted_marker", change::create_file, "\\0002\\prepared.txt"},
                    death{"leaving_folder_1", change::delete_file, "\\0001\\prepared.txt"},
                    death{"finalizing_good", change::create_file, "\\0004\\prepared.txt"},
                    death{"the_good_list", change::delete_file, "base\\nspamdict0000.bye"},
                    death{"a_good_atom", change::rename_file, "base\\nspamdict0001.bye"},
                    death{"the_second_half", change::delete_file, "base\\spamdict.lst"},
                    death{"a_spam_atom", change::rename_file, "base\\spamdict0001.bye"},
                    death{"leaving_folder_3", change::remove_folder, "\\0003\\"}),
    [](const auto& point) { return point.param.name; });

// The engine dies with stages 2 and 3 marked, and all of 4 there but its marker.
TEST_F(repair, begins_again_or_goes_on_behind_the_sorting) {
    const auto flip = [&](const char* name, std::size_t at) {
        const fs::path file = root.transact() / name;
        const std::string bytes = flipped(read_file(file), at);
        fs::remove(file); // it may be a link of a file in the base
        write_file(file, bytes);
    };
    const auto drop = [&](const char* name) { fs::remove_all(root.transact() / name); };
    const auto mark = [&](const char* name) { write_file(root.transact() / name, "prepared\0"s); };
    const struct {
        const char* name;
        std::function<void()> damage;
        std::pair<unsigned, unsigned> learned;
    } rows[] = {
        {"a message", [&] { flip("0002/data.bys", 4); }, {24, 25}},
        {"a plan", [&] { flip("0002/spamdict.col", 0); }, {25, 25}},
        {"a path in a plan", [&] { flip("0002/nspamdict.col", 12); }, {25, 25}},
        {"a finished atom", [&] { flip("0003/spamdict0000.bye", 0); }, {25, 25}},
        {"the messages", [&] { drop("0002/data.bys"); }, {25, 15}}, // the spam of them is learned
        {"stage 3", [&] { drop("0003/prepared.txt"), mark("0004/prepared.txt"); }, {25, 25}},
        {"stages 2 and 3", [&] { drop("0002"), drop("0003"), mark("0004/prepared.txt"); }, {15, 25}},
    };
    die_in_second_training(root, {"finalizing_good", change::create_file, "\\0004\\prepared.txt"});
    save();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        restore();
        row.damage();
        tvrctl("verify", 1);
        tvrctl("repair --yes", 0);
        tvrctl("repair", 0, "nothing to do");
        expect_to_learn(row.learned);
    }
}

TEST(trim, drops_the_ids_of_what_was_forgotten) {
    engine_root root;
    write_file(root.path() / "advanced.ini", "training delay = 3600\noptimal base size per half = 20\n"
                                             "optimal one dict size = 10\nmin optimal one dict size = 5\n");
    for (unsigned series = 1; series <= 4; ++series)
        root.train(series, 30);
    root.stop();
    const engine_view view(root.client().working_directory());
    const std::uint32_t oldest = view.half("spamdict").oldest;
    const std::string folder = root.client().working_directory() + "base\\";
    ASSERT_GT(oldest, first_time + 1000 + 28);  // series 1 is forgotten
    std::map<std::string, std::uint32_t> times; // of the spam
    for (unsigned series = 1; series <= 4; ++series)
        for (unsigned i = 0; i < 30; i += 2)
            times[make_msid(std::to_string(series) + "." + std::to_string(i), "", "", "")] =
                first_time + series * 1000 + i;
    const auto stale = static_cast<unsigned>(
        std::ranges::count_if(times, [&](const auto& id) { return id.second < oldest; }));
    const std::string head = "spamdict: ";
    const std::string counts = std::to_string(stale) + " of 60 message IDs";
    const std::string before = read_file(root.base() / "spamdict.lst");
    tvrctl("trim --dry-run", 0, head + "would drop " + counts);
    EXPECT_TRUE(read_file(root.base() / "spamdict.lst") == before);
    tvrctl("trim", 0, head + "dropped " + counts);
    EXPECT_LT(read_file(root.base() / "spamdict.lst").size(), before.size());
    tvrctl("trim", 0, head + "dropped 0 of " + std::to_string(60 - stale));
    tvrctl("verify", 0);

    // What is left answers as before, and the engine goes on with it.
    const auto expect_ids = [&] {
        msidmap map(folder, "spamdict");
        for (const auto& [id, time] : times)
            EXPECT_EQ(map.search(id), time < oldest ? 0 : time) << id;
        return map.records();
    };
    EXPECT_EQ(expect_ids(), 60 - stale);
    root.train(5, 10);
    root.stop();
    EXPECT_EQ(expect_ids(), 65 - stale);
    tvrctl("verify", 0);
}

} // namespace
} // namespace tvr
