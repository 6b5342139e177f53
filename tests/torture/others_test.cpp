// The same for those beside the engine: a client in an append, tvrctl in each of its writes; and two engines
// at a time.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "dict/dictbase.h"
#include "platform/file.h"
#include "platform/presence.h"
#include "signal/identity.h"
#include "support/formats.h"
#include "tools/command.h"
#include "torture/trained_base.h"

namespace tvr::torture {
namespace {

bool is_prefix(const std::vector<std::string>& part, const std::vector<std::string>& all) {
    return std::ranges::mismatch(part, all).in1 == part.end();
}

int train_engine() {
    return run_engine([](engine_driver& engine) { engine.train(); });
}

// Runs tvrctl in this process.
int tvrctl(std::vector<std::string> words) {
    words.insert(words.begin(), "tvrctl");
    std::vector<char*> arguments;
    for (std::string& word : words)
        arguments.push_back(word.data());
    if (!std::freopen("/dev/null", "w", stdout))
        return 98;
    return run_tvrctl(static_cast<int>(arguments.size()), arguments.data());
}

// The same beside something that looks like an engine, so that none is started.
int tvrctl_with_engine(const std::vector<std::string>& words) {
    platform::presence engine;
    spare(true);
    engine.create(server_class, server_title);
    spare(false);
    return tvrctl(words);
}

std::function<int()> command(const std::vector<std::string>& words) {
    return [words] { return tvrctl(words); };
}

std::optional<std::string> find(const files& content, const std::string& path) {
    const auto found = content.find(path);
    return found == content.end() ? std::nullopt : std::optional(found->second);
}

std::string cache_of(const files& content) {
    return find(content, cache_file).value_or("");
}

// Nothing but the cache may differ.
void expect_only_cache(files left, files before) {
    left.erase(cache_file);
    before.erase(cache_file);
    trained_base::expect_equal("beside the cache", left, before);
}

// An append is there as a whole or not at all, and the next one follows directly.
std::string judge_append(const files& left, const files& before, const files& after) {
    expect_only_cache(left, before);
    const auto old = records_of(cache_of(before));
    const auto whole = records_of(cache_of(after));
    const auto found = records_of(cache_of(left));
    EXPECT_TRUE(found == old || found == whole);
    trained_base& base = the_base();
    base.append(20, 3);
    const std::string next = read_file(base.path(cache_file));
    const auto then = records_of(next);
    EXPECT_TRUE(is_prefix(found, then));
    EXPECT_EQ(then.size(), found.size() + 3);
    EXPECT_EQ(word_at(next, 0), then.size());
    EXPECT_EQ(base.train("the training"), verdict::rest);
    EXPECT_FALSE(base.content(true).contains(cache_file));
    if (found == old)
        return "nothing is appended";
    return word_at(cache_of(left), 0) == found.size()
               ? "all is appended"
               : "all is appended, and the count is behind until the next";
}

TEST(client_death, appends_all_or_nothing) {
    const auto append = [] { return append_messages(trained_base::next_series, 5) ? 0 : 1; };
    const char* const all = "all is appended";
    for (const job& each : {job{"a client that makes a cache", "trained", append, judge_append, 6, all},
                            job{"a client that adds to a cache", "waiting", append, judge_append, 6, all}}) {
        torture(each);
        cut_power(each);
    }
}

// Messages reach the cache in their order, each whole.
std::string judge_train(const files& left, const files& before, const files& after) {
    expect_only_cache(left, before);
    const auto found = records_of(cache_of(left));
    EXPECT_TRUE(is_prefix(records_of(cache_of(before)), found));
    EXPECT_TRUE(is_prefix(found, records_of(cache_of(after))));
    trained_base& base = the_base();
    EXPECT_EQ(base.train("the training"), verdict::rest);
    return found.size() == records_of(cache_of(before)).size() ? "nothing is appended"
           : found == records_of(cache_of(after))              ? "all is appended"
                                                               : "some messages are appended, whole";
}

// Each record is as it was, or marked as deleted.
std::string judge_forget(const files& left, const files& before, const files& after) {
    expect_only_cache(left, before);
    const auto old = records_of(cache_of(before));
    const auto whole = records_of(cache_of(after));
    const auto found = records_of(cache_of(left));
    EXPECT_EQ(found.size(), old.size());
    for (std::size_t i = 0; i < found.size() && i < old.size(); ++i)
        EXPECT_TRUE(found[i] == old[i] || found[i] == whole[i]) << i;
    return found == old ? "as it was" : "marked";
}

// Only one file may differ, and it is the old one or the new one.
std::string judge_one_file(const std::string& path, const files& left, const files& before,
                           const files& after) {
    const auto found = find(left, path);
    EXPECT_TRUE(found == find(before, path) || found == find(after, path)) << path;
    for (const auto& line : differences(left, before))
        EXPECT_TRUE(line.starts_with(path + " ") || line.ends_with("tmp is too much") ||
                    line.ends_with(".part is too much"))
            << line;
    return found == find(after, path) ? "the new file" : "the old file";
}

const std::string good_index = base_folder + "nspamdict.idx";

// Without what was set aside, and without the room after a list or an index that couldn't be cut.
files tidied(files content, const files& model) {
    std::erase_if(content, [](const auto& file) { return file.first.starts_with(data_folder + "repair/"); });
    for (auto& [path, bytes] : content)
        if (const auto found = model.find(path); (path.ends_with(".lst") || path.ends_with(".idx")) &&
                                                 found != model.end() && bytes.starts_with(found->second))
            bytes = found->second;
    return content;
}

// What an undisturbed engine makes of these messages.
files trained_on(const std::vector<std::string>& records) {
    trained_base& base = the_base();
    static std::map<std::vector<std::string>, files> all;
    const auto [entry, is_new] = all.try_emplace(records);
    if (is_new) {
        base.restore("waiting");
        std::string cache = le(static_cast<std::uint32_t>(records.size()));
        for (const std::string& record : records)
            cache += record;
        write_file(base.path(cache_file), cache);
        EXPECT_EQ(base.train("the model"), verdict::rest);
        entry->second = base.content(true);
    }
    return entry->second;
}

// A snapshot waits, more messages have come, and the two are joined. What a death leaves decides on what the
// next merge takes: the copy that is there, or else the snapshot, and the cache after it.
TEST(merge_death, costs_what_is_told) {
    trained_base& base = the_base();
    const std::string snapshot = transact_folder + "~autotrain.bys";
    const std::string copy = transact_folder + "~~autotrain.bys";
    base.restore("waiting");
    std::filesystem::rename(base.path(cache_file), base.path(snapshot));
    base.append(trained_base::next_series, 5);
    base.save("merging");
    const auto old = records_of(read_file(base.path(snapshot)));
    const auto fresh = records_of(read_file(base.path(cache_file)));
    std::vector<std::string> both = old;
    both.insert(both.end(), fresh.begin(), fresh.end());
    const auto merge = [&] {
        dictbase cache;
        cache.init(platform::from_display_path(base.path(cache_file)));
        cache.try_snapshot_to_tilda();
        return 0;
    };
    const auto judge = [&](const files& left, const files&, const files&) {
        std::string next = cache_of(left);
        if (left.contains(snapshot)) {
            std::string merged = left.at(left.contains(copy) ? copy : snapshot);
            merged.resize(std::max<std::size_t>(merged.size(), 4)); // at least its count is written
            next = merged + next.substr(std::min<std::size_t>(next.size(), 4));
        }
        const auto taken = records_of(next);
        base.save("left");
        EXPECT_EQ(base.train("the training"), verdict::rest);
        files found = base.content(true);
        EXPECT_EQ(found.erase(copy) != 0, left.contains(copy) && !left.contains(snapshot));
        trained_base::expect_equal("trained", found, trained_on(taken));
        // With the copy gone, nothing tells that the cache is in the snapshot.
        if (left.contains(copy) || taken.size() == both.size()) {
            base.restore("left");
            base.work(command({"repair", "--yes"}));
            EXPECT_EQ(base.train("the training of what is repaired"), verdict::rest);
            trained_base::expect_equal("repaired", tidied(base.content(true), {}), trained_on(both));
        }
        const auto times = [&](const std::string& record) {
            return std::to_string(std::count(taken.begin(), taken.end(), record));
        };
        return "snapshot: the first " + times(old.front()) + ", the last " + times(old.back()) +
               "; cache: the first " + times(fresh.front()) + ", the last " + times(fresh.back()) +
               (left.contains(snapshot) ? "" : "; the snapshot waits in the copy");
    };
    const job each = {"a merge", "merging", merge, judge, 2, "snapshot: the first 1, the last 1"};
    torture(each);
    cut_power(each);
}

// A second run comes to the same end.
std::string judge_second_run(const job& each, const files& left, const files& before, const files& after) {
    trained_base& base = the_base();
    base.work(each.work);
    const files found = tidied(base.content(true), after);
    files expected = tidied(after, after);
    if (!found.contains(good_index)) // whoever works with the list makes it
        expected.erase(good_index);
    trained_base::expect_equal("the second run", found, expected);
    return left == before                                       ? "nothing is done"
           : differences(tidied(left, after), expected).empty() ? "all is done"
                                                                : "a second run does the rest";
}

// While the halves are put in place.
void damage_files() {
    trained_base& base = the_base();
    base.append(trained_base::next_series, 3);
    const auto damage = [&](const std::string& name, std::size_t at) {
        std::string bytes = read_file(base.path(name));
        bytes.at(at) = static_cast<char>(bytes.at(at) ^ 0x40);
        write_file(base.path(name), bytes);
    };
    damage(cache_file, 4 + word_at(read_file(base.path(cache_file)), 12)); // the second record
    damage(base_folder + "nspamdict.lst", 0);
    damage(base_folder + "nspamdict0002.bye", 16); // a total
    write_file(base.path(good_index), std::string(512, 'x'));
    write_file(base.path(statistic_file), read_file(base.path(statistic_file)) + "cut");
    write_file(base.path(data_folder + "settings.cfg"), "abba");
}

TEST(tool_death, of_a_repair_loses_nothing) {
    trained_base& base = the_base();
    job repair = {"tvrctl repair", "broken", command({"repair", "--yes"}), {}, 10, "all is done"};
    // Whatever was there still is, in its place or another.
    repair.judge = [&](const files& left, const files& before, const files& after) {
        std::set<std::string> kept;
        for (const auto& [path, bytes] : base.all_content())
            kept.insert(bytes);
        for (const auto& [path, bytes] : before)
            EXPECT_TRUE(kept.contains(bytes)) << path << " is lost";
        return judge_second_run(repair, left, before, after);
    };
    const std::string deaths[] = {
        "create " + transact_folder + "0001/prepared.txt", "create " + transact_folder + "0002/prepared.txt",
        "delete " + transact_folder + "0001/prepared.txt", "rename " + base_folder + "spamdict0004.bye",
        "rename " + base_folder + "nspamdict0004.bye",
    };
    for (const std::string& death : deaths) {
        SCOPED_TRACE(death);
        base.restore("waiting");
        ASSERT_EQ(base.run_child({.what = fate::die_before, .change = death}, train_engine), killed);
        if (&death == std::end(deaths) - 1)
            damage_files();
        base.save("broken");
        torture(repair);
    }
    cut_power(repair);
    torture(repair, all_errors);
}

TEST(tool_death, of_a_trim_loses_nothing) {
    trained_base& base = the_base();
    base.restore("trained");
    write_file(base.path(good_index), std::string(512, 'x'));
    base.save("indexed");
    job trim = {"tvrctl trim", "indexed", command({"trim"}), {}, 4, "all is done"};
    trim.judge = [&](const files& left, const files& before, const files& after) {
        return judge_second_run(trim, left, before, after);
    };
    torture(trim);
    cut_power(trim);
    torture(trim, all_errors);
}

TEST(tool_death, leaves_the_old_or_the_new) {
    trained_base& base = the_base();
    const std::string mail = TVR_SAMPLE_MAIL;
    base.restore("trained");
    const std::string text = base.path("export.txt");
    base.work(command({"export", text}));
    const std::string exported = read_file(text);
    base.make_bare();
    base.append(1, 1);
    base.remove(cache_file);
    write_file(text, exported);
    base.save("empty");

    // The engine comes to an empty base, or to the imported one.
    const auto import = command({"import", "--later", text});
    const auto restarted = [&] {
        EXPECT_EQ(base.restart(), verdict::rest);
        return base.content(true);
    };
    const files nothing = restarted();
    base.restore("empty");
    base.work(import);
    const files imported = restarted();
    const auto judge_import = [&](const files&, const files&, const files&) {
        const files found = tidied(restarted(), imported);
        const bool is_old = !found.contains(compiled_base);
        trained_base::expect_equal("the engine's start", found, is_old ? nothing : imported);
        EXPECT_EQ(base.train_next(), verdict::rest);
        return is_old ? "nothing is imported" : "all is imported";
    };
    const auto one_file = [](const std::string& path) {
        return [path](const files& left, const files& before, const files& after) {
            return judge_one_file(path, left, before, after);
        };
    };
    const job jobs[] = {
        {"tvrctl train", "waiting",
         [&] {
             return tvrctl_with_engine({"train", "--later", "-q", "--threads", "1", "--spam", mail + "/spam",
                                        "--ham", mail + "/ham"});
         },
         judge_train, 6, "all is appended"},
        {"tvrctl forget", "waiting", command({"forget", "<7.2@x>_0123ABCD"}), judge_forget, 6, "marked"},
        {"tvrctl config set", "waiting", command({"config", "set", "training delay", "77"}),
         one_file("advanced.ini"), 6, "the new file"},
        {"tvrctl export", "trained", command({"export", text}), one_file("export.txt"), 4, "the new file"},
        {"tvrctl import", "empty", import, judge_import, 25, "all is imported"}};
    for (const job& each : jobs) {
        torture(each);
        cut_power(each);
        torture(each, all_errors);
    }
}

// The engine that has never run makes its folders and settings.
TEST(engine_death, in_the_first_start_costs_nothing) {
    trained_base& base = the_base();
    base.make_bare();
    base.save("bare");
    EXPECT_EQ(base.train_next(), verdict::rest);
    const files trained = base.content(true);
    const job start = {"the engine in its first start", "bare",
                       [] { return run_engine([](engine_driver& engine) { engine.wait_for_rest(); }); },
                       [&](const files&, const files&, const files&) {
                           EXPECT_EQ(base.train_next(), verdict::rest);
                           files found = base.content(true);
                           // deliberate: a flag file that is there is left alone; one that is cut counts as
                           // zeros.
                           std::string& flags = found[transact_folder + "ipc.bin"];
                           const bool is_cut = flags.size() < 4;
                           if (is_cut)
                               flags = trained.at(transact_folder + "ipc.bin");
                           trained_base::expect_equal("trained", found, trained);
                           return std::string("it starts, and trains to the same bytes") +
                                  (is_cut ? ", with a cut ipc.bin" : "");
                       },
                       40};
    torture(start);
    cut_power(start);
}

// One engine is stopped before a change, another is started meanwhile, and the first one goes on.
TEST(two_engines, train_as_one) {
    trained_base& base = the_base();
    base.restore("waiting");
    base.train("the transaction");
    const std::uint32_t points = shared_board().begun;
    tally outcomes("Two engines, the first one stopped at a change (" + std::to_string(points) + " changes)");
    board& first = board_of(0);
    board& second = board_of(1);
    for (std::uint32_t index = 0; index < points; index += stride(50)) {
        base.restore("waiting");
        first.clear();
        second.clear();
        const int a = base.start({fate::halt, index}, train_engine);
        wait_for_halt(first);
        const int b = base.start({.board = 1}, [] {
            return run_engine([](engine_driver& engine) {
                engine.train();
                halt();
            });
        });
        wait_for_halt(second);
        first.resume = 1;
        EXPECT_EQ(trained_base::join(a), 0);
        second.resume = 1;
        EXPECT_EQ(trained_base::join(b), 0);
        const auto end_a = static_cast<verdict>(first.verdict.load());
        const auto end_b = static_cast<verdict>(second.verdict.load());
        SCOPED_TRACE("change " + std::to_string(index) + ": " + first.hit_change().what + " " +
                     first.hit_change().path + "; the first " + name_of(end_a) + ", the second " +
                     name_of(end_b));
        EXPECT_EQ(std::set({end_a, end_b}), std::set({verdict::rest, verdict::left}));
        trained_base::expect_equal("trained", base.content(), base.after);
        outcomes.add(end_a == verdict::rest
                         ? "the first one trains to the same bytes, the second one leaves"
                         : "the second one trains to the same bytes, the first one leaves");
    }
}

} // namespace
} // namespace tvr::torture
