// The engine is killed at every single change of the file system, and started again.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <map>
#include <set>
#include <string>

#include "support/file_bytes.h"
#include "torture/trained_base.h"

namespace tvr::torture {
namespace {

const std::string marker(unsigned stage) {
    return transact_folder + "000" + std::to_string(stage) + "/prepared.txt";
}

const std::string marker_text("prepared\0", 9);

// How far a transaction has come, by the changes that decide on what a death leaves.
enum class progress {
    cache,                 // nothing is taken
    snapshot,              // ~autotrain.bys is whole
    unmarked,              // only the batch of folder 1 is left, and no marker
    entered,               // marker 1
    batch_moved,           // data.bys is in folder 2, without its marker
    both_markers,          // markers 1 and 2
    sorted,                // up to the first file that is published
    publishing,            // some files of the first half are in place
    half,                  // the first half is in place, and its marker is gone
    unmarked_dictionaries, // both halves are in place, and no marker is left
    generating,            // marker 6
    unstamped,             // the compiled base is in place, and no marker is left
    cut_stamp,             // the time mark is being written
    done,
};

constexpr std::array names = {
    "the cache waits for the next training, whole",
    "the snapshot waits for the next training, whole",
    "GAP the batch is lost, and nothing else",
    "comes to the same bytes, from marker 1",
    "GAP stuck: goes round without a batch",
    "GAP comes to the same bytes, then stuck: goes round without a batch",
    "comes to the same bytes, from markers 2, 3 and 4",
    "GAP comes through, but for the files that had been moved",
    "GAP stuck: goes round without a marker",
    "GAP new dictionaries, with the old compiled base until the next training",
    "comes to the same bytes, from marker 6",
    "GAP the same bytes, with the old time mark",
    "GAP the same bytes, with a cut time mark",
    "the same bytes already",
};

struct way {
    progress point = progress::cache;
    bool statistic_cut = false;      // after marker 2, the statistic was being saved
    std::set<std::string> published; // files of the first half that had been moved when the process died
};

// By the order of the file operations of a transaction.
way way_of(const std::vector<file_change>& changes) {
    static const std::map<std::string, progress> milestones = {
        {"rename " + transact_folder + "~autotrain.bys", progress::snapshot},
        {"delete " + transact_folder + "~autotrain.bys", progress::unmarked},
        {"create " + marker(1), progress::entered},
        {"rename " + transact_folder + "0002/data.bys", progress::batch_moved},
        {"create " + marker(2), progress::both_markers},
        {"delete " + marker(1), progress::sorted},
        {"delete " + marker(4), progress::half},
        {"delete " + marker(3), progress::unmarked_dictionaries},
        {"create " + marker(6), progress::generating},
        {"delete " + marker(6), progress::unstamped},
        {"cut " + time_mark, progress::cut_stamp},
        {"write " + time_mark, progress::done},
    };
    way result;
    for (const file_change& change : changes) {
        if (const auto found = milestones.find(change.what + " " + change.path); found != milestones.end())
            result.point = found->second;
        if (change.what == "rename" && change.path.starts_with(base_folder + "nspamdict")) {
            result.point = progress::publishing;
            result.published.insert(change.path);
        }
        if (change.path == statistic_file)
            result.statistic_cut = change.what == "cut" && result.point >= progress::sorted;
    }
    return result;
}

// What the restarted engine is to come to, and to leave.
void judge(const way& dead) {
    trained_base& base = the_base();
    const files left = base.content();
    const verdict end = base.restart();
    const files found = base.content();
    files expected = base.after;
    const files* next = &base.both_apart;
    verdict wanted = verdict::rest;
    switch (dead.point) {
    case progress::cache:
        expected = base.before;
        next = &base.both_together;
        break;
    case progress::snapshot:
        expected = base.before;
        expected[transact_folder + "~autotrain.bys"] = expected[cache_file];
        expected.erase(cache_file);
        next = &base.both_together;
        break;
    case progress::unmarked:
        expected = base.before;
        expected.erase(cache_file);
        next = &base.next_only;
        break;
    case progress::batch_moved:
        wanted = verdict::no_batch;
        expected = left;
        next = &base.next_only;
        break;
    case progress::both_markers:
        wanted = verdict::no_batch;
        expected[marker(1)] = marker_text;
        break;
    case progress::publishing: {
        for (const std::string& path : dead.published)
            EXPECT_EQ(expected.erase(path), 1U) << path;
        files dictionaries;
        for (const auto& [path, bytes] : expected)
            if (path.ends_with(".bye") || path.ends_with(".lst"))
                dictionaries[path] = bytes;
        expected[compiled_base] = base.generated(dictionaries);
        next = nullptr; // only that it comes through
        break;
    }
    case progress::half:
        wanted = verdict::no_marker;
        expected = left;
        break;
    case progress::unmarked_dictionaries:
        expected[compiled_base] = base.before[compiled_base];
        EXPECT_EQ(found.at(time_mark), base.before[time_mark]);
        break;
    case progress::unstamped:
        EXPECT_EQ(found.at(time_mark), base.before[time_mark]);
        break;
    case progress::cut_stamp:
        EXPECT_LT(found.at(time_mark).size(), 8U);
        expected[time_mark] = found.at(time_mark);
        break;
    default:
        break;
    }
    if (dead.statistic_cut) {
        EXPECT_TRUE(expected[statistic_file].starts_with(left.at(statistic_file)));
        expected[statistic_file] = left.at(statistic_file);
    }
    EXPECT_EQ(end, wanted) << name_of(end);
    trained_base::expect_equal("restarted", found, expected);
    if (dead.point == progress::half)
        return; // for good
    // The hand that leads out: without folder 1 the engine goes on.
    if (wanted == verdict::no_batch)
        base.remove(transact_folder + "0001");
    // And the next training is as good as ever.
    EXPECT_EQ(base.train_next(), verdict::rest);
    const files last = base.content(next == nullptr);
    if (next)
        trained_base::expect_equal("with the next training", last, *next);
    for (const auto& [path, bytes] : last)
        EXPECT_FALSE(path.starts_with(transact_folder + "0")) << path << " is left";
}

TEST(engine_death, leaves_what_is_told_for_each_point) {
    const auto transaction = [](engine_driver& engine) {
        engine.train();
        engine.stop();
    };
    const auto judged = [](const files&, const files&, const files&) {
        const way dead = way_of(shared_board().changes());
        std::string name = names.at(static_cast<std::size_t>(dead.point));
        if (dead.statistic_cut)
            name = "GAP " + name + ", but the statistic of the batch is lost";
        SCOPED_TRACE(name);
        judge(dead);
        return name;
    };
    torture({"the engine in a transaction", "waiting", [&] { return run_engine(transaction); }, judged, 60});
}

// The changes of a transaction that others may rely on, in their order. What lies between is left out.
TEST(engine_death, finds_the_changes_in_their_order) {
    const std::string t = transact_folder;
    const std::string b = base_folder;
    const std::vector<std::string> order = {
        "rename " + t + "~autotrain.bys",
        "make " + t + "0001/",
        "create " + t + "0001/dis*.tmp",
        "delete " + t + "0001/dis*.tmp",
        "link " + t + "0001/dis*.tmp",
        "delete " + t + "~autotrain.bys",
        "create " + marker(1),
        "make " + t + "0002/",
        "create " + t + "0002/nspamdict.col",
        "create " + t + "0002/spamdict.col",
        "rename " + t + "0002/data.bys",
        "create " + marker(2),
        "delete " + marker(1),
        "remove " + t + "0001/",
        "rename " + b + "data.0",
        "rename " + b + "data.trr",
        "make " + t + "0003/",
        "create " + t + "0002/spamdict.lst",
        "rename " + t + "0003/spamdict.lst",
        "create " + marker(3),
        "make " + t + "0004/",
        "create " + t + "0002/nspamdict.lst",
        "rename " + t + "0004/nspamdict.lst",
        "create " + marker(4),
        "delete " + marker(2),
        "remove " + t + "0002/",
        "make " + t + "0006/",
        "delete " + b + "nspamdict.lst",
        "rename " + b + "nspamdict.lst",
        "delete " + marker(4),
        "remove " + t + "0004/",
        "delete " + b + "spamdict.lst",
        "rename " + b + "spamdict.lst",
        "delete " + marker(3),
        "remove " + t + "0003/",
        "create " + marker(6),
        "create " + t + "0006/base.rgd",
        "delete " + b + "cashe.rgd",
        "rename " + b + "cashe.rgd",
        "delete " + marker(6),
        "remove " + t + "0006/",
        "cut " + time_mark,
        "write " + time_mark,
    };
    trained_base& base = the_base();
    base.box.restore("waiting");
    base.train("the transaction");
    const std::set<std::string> wanted(order.begin(), order.end());
    std::vector<std::string> found;
    for (const file_change& change : shared_board().changes()) {
        const std::string text = change.what + " " + generic_name(change.path);
        if (wanted.contains(text))
            found.push_back(text);
    }
    EXPECT_EQ(found, order);
}

} // namespace
} // namespace tvr::torture
