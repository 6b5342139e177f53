// The engine is killed at every single change of the file system, and started again.

#include <gtest/gtest.h>

#include <algorithm>
#include <fcntl.h>
#include <functional>
#include <set>
#include <string>
#include <unistd.h>
#include <vector>

#include "torture/power_cut.h"
#include "torture/trained_base.h"

namespace tvr::torture {
namespace {

const std::string marker(unsigned stage) {
    return transact_folder + "000" + std::to_string(stage) + "/prepared.txt";
}

// A death, and what the restarted engine is to come to; without more, the bytes of an undisturbed run.
struct sequel {
    std::set<std::string> published; // files of the first half that had been moved
    bool statistic_cut = false;      // after marker 2, the statistic was being saved
    bool is_power_cut = false;       // the statistic and the archives of batches may be in any state
    files left;                      // by the dead
    files found;                     // after the restart
    verdict wanted = verdict::rest;
    files expected = the_base().after;
    const files* next = &the_base().both_apart; // with the next training; null: only that it comes through
};

void waits_in(const std::string& name, sequel& then) {
    then.expected = the_base().before;
    std::string batch = then.expected[cache_file];
    then.expected.erase(cache_file);
    then.expected[name] = std::move(batch);
    then.next = &the_base().both_together;
}

void keeps_the_old_mark(sequel& then) {
    EXPECT_EQ(then.found.at(time_mark), the_base().before[time_mark]);
}

// How far a transaction has come, by the order of its file operations.
struct station {
    std::string change; // the one that leads here; its path may be the beginning of several
    const char* outcome;
    std::function<void(sequel&)> adapt = [](sequel&) {};
};

const std::vector<station> stations = {
    {"", "the cache waits for the next training, whole", [](sequel& then) { waits_in(cache_file, then); }},
    {"rename " + transact_folder + "~autotrain.bys", "the snapshot waits for the next training, whole",
     [](sequel& then) { waits_in(transact_folder + "~autotrain.bys", then); }},
    {"delete " + transact_folder + "~autotrain.bys", "GAP the batch is lost, and nothing else",
     [](sequel& then) {
         then.expected = the_base().before;
         then.expected.erase(cache_file);
         then.next = &the_base().next_only;
     }},
    {"create " + marker(1), "comes to the same bytes, from marker 1"},
    {"rename " + transact_folder + "0002/data.bys", "GAP stuck: loops without a batch",
     [](sequel& then) {
         then.wanted = verdict::no_batch;
         then.expected = then.left;
         then.next = &the_base().next_only;
     }},
    {"create " + marker(2), "GAP comes to the same bytes, then stuck: loops without a batch",
     [](sequel& then) {
         then.wanted = verdict::no_batch;
         then.expected[marker(1)] = then.left.at(marker(1)); // its name is all that counts
     }},
    {"delete " + marker(1), "comes to the same bytes, from markers 2, 3 and 4"},
    {"rename " + base_folder + "nspamdict", "GAP comes through, but for the files that had been moved",
     [](sequel& then) {
         for (const std::string& path : then.published)
             EXPECT_EQ(then.expected.erase(path), 1U) << path;
         files dictionaries = then.expected;
         std::erase_if(dictionaries, [](const auto& file) {
             return !file.first.ends_with(".bye") && !file.first.ends_with(".lst");
         });
         then.expected[compiled_base] = the_base().generated(dictionaries);
         then.next = nullptr;
     }},
    {"delete " + marker(4), "GAP stuck: loops without a marker",
     [](sequel& then) {
         then.wanted = verdict::no_marker;
         then.expected = then.left;
     }},
    {"delete " + marker(3), "GAP new dictionaries, with the old compiled base until the next training",
     [](sequel& then) {
         then.expected[compiled_base] = the_base().before[compiled_base];
         keeps_the_old_mark(then);
     }},
    {"create " + marker(6), "comes to the same bytes, from marker 6"},
    {"delete " + compiled_base, "comes to the same bytes, from marker 6"},
    {"delete " + marker(6), "GAP the same bytes, with the old time mark", keeps_the_old_mark},
    {"cut " + time_mark, "GAP the same bytes, with a cut time mark",
     [](sequel& then) {
         EXPECT_LT(then.found.at(time_mark).size(), 8U);
         then.expected[time_mark] = then.found.at(time_mark);
     }},
    {"write " + time_mark, "the same bytes already"},
};

// The last station of a dead process.
const station& station_of(const std::vector<file_change>& changes, sequel& then) {
    std::size_t last = 0;
    bool sorted = false;
    for (const file_change& change : changes) {
        const std::string text = change.what + " " + change.path;
        for (std::size_t i = 1; i < stations.size(); ++i)
            if (text.starts_with(stations[i].change))
                last = i;
        sorted = sorted || text == "delete " + marker(1);
        if (text.starts_with("rename " + base_folder + "nspamdict"))
            then.published.insert(change.path);
        if (change.path == statistic_file)
            then.statistic_cut = change.what == "cut" && sorted;
    }
    return stations[last];
}

// The same by the files, where a power cut has taken changes back.
const station& station_in(const files& left, sequel& then) {
    const auto at = [](const std::string& change) -> const station& {
        return *std::ranges::find(stations, change, &station::change);
    };
    const auto is_as_trained = [&](const std::string& path) {
        return left.contains(path) && left.at(path) == the_base().after.at(path);
    };
    const auto is_marked = [&](unsigned stage) { return left.contains(marker(stage)); };
    const bool is_published = std::ranges::all_of(the_base().after, [&](const auto& file) {
        return !file.first.ends_with(".bye") || is_as_trained(file.first);
    });
    if (is_marked(6))
        return at("create " + marker(6));
    if (is_marked(3) && !is_marked(4) && !is_marked(2))
        return at("delete " + marker(4));
    if (is_marked(3) && is_marked(4))
        for (const auto& [path, bytes] : the_base().after)
            if (path.starts_with(base_folder + "nspamdict") && !path.ends_with(".idx") &&
                !left.contains(transact_folder + "0004/" + path.substr(base_folder.size())))
                then.published.insert(path);
    if (!then.published.empty())
        return at("rename " + base_folder + "nspamdict");
    if (is_marked(2) || is_marked(4))
        return at(is_marked(1) ? "create " + marker(2) : "delete " + marker(1));
    if (is_marked(1))
        return at(
            left.lower_bound(transact_folder + "0001/dis")->first.starts_with(transact_folder + "0001/dis")
                ? "create " + marker(1)
                : "rename " + transact_folder + "0002/data.bys");
    if (is_published && !is_as_trained(compiled_base))
        return at("delete " + marker(3));
    if (is_published)
        return at(left.at(time_mark) == the_base().before.at(time_mark) ? "delete " + marker(6)
                  : left.at(time_mark).size() < 8                       ? "cut " + time_mark
                                                                        : "write " + time_mark);
    return at(left.contains(transact_folder + "~autotrain.bys")
                  ? "rename " + transact_folder + "~autotrain.bys"
              : left.contains(cache_file) ? ""
                                          : "delete " + transact_folder + "~autotrain.bys");
}

// Restarts the engine, and answers what has come out.
std::string judge(const station& point, sequel& then) {
    trained_base& base = the_base();
    const std::string outcome =
        then.statistic_cut ? std::string("GAP ") + point.outcome + ", but the statistic of the batch is lost"
                           : point.outcome;
    SCOPED_TRACE(outcome);
    const auto expect_equal = [&](const char* when, files found, files expected) {
        for (const std::string& path : {statistic_file, data_folder + "stat.bin"})
            if (then.is_power_cut) {
                found.erase(path);
                expected.erase(path);
            }
        trained_base::expect_equal(when, std::move(found), std::move(expected));
    };
    then.left = base.content(then.is_power_cut);
    const verdict end = base.restart();
    then.found = base.content(then.is_power_cut);
    point.adapt(then);
    if (then.statistic_cut) {
        EXPECT_TRUE(then.expected[statistic_file].starts_with(then.left.at(statistic_file)));
        then.expected[statistic_file] = then.left.at(statistic_file);
    }
    EXPECT_EQ(end, then.wanted) << name_of(end);
    expect_equal("restarted", then.found, then.expected);
    if (then.wanted == verdict::no_marker)
        return outcome; // for good
    // The hand that leads out: without folder 1 the engine goes on.
    if (then.wanted == verdict::no_batch)
        base.remove(transact_folder + "0001");
    // And the next training is as good as ever.
    EXPECT_EQ(base.train_next(), verdict::rest);
    const files last = base.content(then.next == nullptr || then.is_power_cut);
    if (then.next)
        expect_equal("with the next training", last, *then.next);
    for (const auto& [path, bytes] : last)
        EXPECT_FALSE(path.starts_with(transact_folder + "0")) << path << " is left";
    return outcome;
}

std::string judge_engine(const files&, const files&, const files&) {
    sequel then;
    return judge(station_of(the_base().changes_of_the_dead(), then), then);
}

// A power cut takes changes back, but neither those whose work has gone on from the disk, nor the
// acknowledged ones.
std::string judge_cut(const files& left, const files&, const files&) {
    sequel then;
    const station& reached = station_of(the_base().changes_of_the_dead(), then);
    then = {};
    then.is_power_cut = true;
    const station& point = station_in(left, then);
    EXPECT_LE(&point, &reached);
    EXPECT_LE(&reached - &point, std::string_view(point.outcome).starts_with("GAP") ? 2 : 6);
    return judge(point, then);
}

int train_once() {
    return run_engine([](engine_driver& engine) {
        engine.train();
        engine.stop();
    });
}

TEST(engine_death, leaves_what_is_told_for_each_point) {
    torture({"the engine in a transaction", "waiting", train_once, judge_engine, 60});
}

// The model itself, in a folder of its own.
TEST(engine_power_cut, loses_what_was_not_brought_to_the_disk) {
    const trained_base& base = the_base();
    base.empty();
    const std::string root = base.root() + "/";
    write_file(root + "f", "old");
    disk_image disk(root);
    const auto change = [&](const std::string& name, std::string_view bytes, off_t at) {
        const int file = open((root + name).c_str(), O_RDWR | O_CREAT, 0600);
        EXPECT_EQ(pwrite(file, bytes.data(), bytes.size(), at), static_cast<ssize_t>(bytes.size()));
        disk.written(file, bytes.data(), bytes.size(), at);
        return file;
    };
    const auto sync = [&](int file) {
        disk.synced(file);
        close(file);
    };
    const auto expect = [&](const files& zeros, const files& old, const files& last, const files& names,
                            const files& both) {
        const std::map<std::string, files> wanted = {{"zeros", zeros},
                                                     {"old content", old},
                                                     {"last write", last},
                                                     {"old names", names},
                                                     {"old names and content", both}};
        EXPECT_EQ(disk.states(), wanted);
    };
    const std::string none(2, '\0');
    close(change("f", "new", 3));
    close(change("g", "12", 0));
    expect({{"f", "old" + none + '\0'}, {"g", none}}, {{"f", "old"}, {"g", ""}},
           {{"f", "oldnew"}, {"g", "12"}}, {{"f", "oldnew"}}, {{"f", "old"}});
    sync(change("g", "34", 0)); // and its name follows
    rename((root + "f").c_str(), (root + "h").c_str());
    expect({{"g", "34"}, {"h", "old" + none + '\0'}}, {{"g", "34"}, {"h", "old"}},
           {{"g", "34"}, {"h", "oldnew"}}, {{"f", "oldnew"}}, {{"f", "old"}});
    sync(open(base.root().c_str(), O_RDONLY));
    expect({{"g", "34"}, {"h", "old" + none + '\0'}}, {{"g", "34"}, {"h", "old"}},
           {{"g", "34"}, {"h", "oldnew"}}, {{"g", "34"}, {"h", "oldnew"}}, {{"g", "34"}, {"h", "old"}});
}

TEST(engine_power_cut, leaves_what_a_death_may_leave) {
    cut_power({"the engine in a transaction", "waiting", train_once, judge_cut, 60, "the same bytes"});
}

// The first and the last point of each station at least, whatever the stride.
TEST(engine_death, leaves_what_is_told_for_each_station) {
    trained_base& base = the_base();
    for (std::size_t i = 1; i < stations.size(); ++i)
        for (const fate what : {fate::die_before, fate::die_after}) {
            const std::string& leads_here = stations[i].change;
            const std::string change = leads_here + (leads_here.ends_with("nspamdict") ? ".lst" : "");
            SCOPED_TRACE(std::string(name_of(what)) + " " + change);
            base.restore("waiting");
            ASSERT_EQ(base.run_child({.what = what, .change = change}, train_once), killed);
            EXPECT_EQ(judge_engine({}, {}, {}), stations[what == fate::die_after ? i : i - 1].outcome);
        }
}

} // namespace
} // namespace tvr::torture
