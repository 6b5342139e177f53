// Many clients at once, and an engine that is killed again and again: each message must be in the base
// exactly as often as it was appended, by a count that shares no code with the engine. And whoever holds the
// lock of the cache when it should not.

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <random>
#include <sstream>
#include <unistd.h>

#include "bench/long_life.h"
#include "client/cache_writer.h"
#include "dict/dictbase.h"
#include "platform/clock.h"
#include "platform/process.h"
#include "support/child_process.h"
#include "support/formats.h"
#include "support/platform_objects.h"
#include "support/test.h"
#include "system/engine_root.h"

namespace tvr {
namespace {

namespace fs = std::filesystem;
using counts = counts_by_name;

constexpr unsigned crowd_size = 8;

// 0 in the short form of the suite.
unsigned full_seconds() {
    const char* text = std::getenv("CROWD_SECONDS");
    return text ? static_cast<unsigned>(std::atoi(text)) : 0;
}

// From 0 to `end` - 1.
unsigned pick(std::mt19937& random, unsigned end) {
    return static_cast<unsigned>(random() % end);
}

const char* half_name(bool spam) {
    return spam ? "spamdict" : "nspamdict";
}

// A client; the argument is its number, the seconds, and the folder of the journals. Each line of its journal
// is a message that was appended: the half and the name.
int run_client(std::string_view argument) {
    std::istringstream words{std::string(argument)};
    unsigned number = 0, seconds = 0;
    std::string folder;
    words >> number >> seconds >> folder;
    std::ofstream journal(folder + "/journal." + std::to_string(number));
    std::mt19937 random(number);
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    unsigned next = 0;
    while (std::chrono::steady_clock::now() < until) {
        training_client client; // they come and go, so that a dead engine is started again soon
        for (unsigned round = pick(random, 8) + 1; round != 0; --round) {
            record_batch batch;
            std::string lines;
            for (unsigned left = pick(random, 4) + 1; left != 0; --left) {
                // Now and then one comes again, with whatever verdict.
                const unsigned message = next > 0 && pick(random, 10) == 0 ? pick(random, next) : next++;
                const bool spam = pick(random, 2) == 0;
                const std::string name = std::to_string(number) + "-" + std::to_string(message);
                token_table tokens;
                tokens.add("B " + name);
                tokens.add("B common", 2);
                for (unsigned word = 0; word < 12; ++word)
                    tokens.add("B w" + std::to_string(pick(random, 500)));
                const std::string msid = "<" + name + "@crowd>";
                batch.add({.msid = msid, .spam = spam, .size = 1000, .time = first_time + message}, tokens);
                lines += std::string(half_name(spam)) + " " + name + "\n";
            }
            if (const ipc_status status = client.append(batch); !status) {
                journal << "failed: " << status.text << std::endl;
                return 1;
            }
            journal << lines << std::flush;
            client.raise(pick(random, 3) == 0 ? engine_event::train : engine_event::add);
            platform::sleep_for(pick(random, 60));
        }
    }
    return 0;
}
const child_role crowd_client("crowd_client", run_client);

// The tokens of all atoms of a half, and under "" the messages.
counts tokens_of(const fs::path& base, const std::string& half) {
    counts all;
    for (const auto& [name, bytes] : folder_content(base)) {
        if (!name.starts_with(half) || !name.ends_with(".bye"))
            continue;
        const auto atom = read_atom(bytes);
        EXPECT_TRUE(atom) << name;
        all[""] += atom->messages;
        for (const auto& [token, count] : atom->tokens)
            all[token] += count;
    }
    return all;
}

// How often each ID stands in the list of a half.
counts ids_of(const fs::path& base, const std::string& half) {
    counts all;
    const std::string bytes = read_file(base / (half + ".lst"));
    EXPECT_TRUE(for_each_entry(bytes, 16, bytes.size(), [&](const std::string& id, std::uint32_t time) {
        if (time != 0)
            ++all[id];
    }));
    return all;
}

// What a death at this moment would bring about, as the files tell.
struct moment {
    std::string name;
    bool gap; // something is lost, doubled or stuck, as docs/reliability.md has it
};

moment look_at_stages(const fs::path& transact) {
    const auto marked = [&](int stage) {
        return fs::exists(transact / ("000" + std::to_string(stage)) / "prepared.txt");
    };
    const auto batch = [&] {
        return fs::exists(transact / "0001") &&
               std::ranges::any_of(folder_content(transact / "0001"), [](const auto& file) {
                   return file.first.starts_with("dis") && file.second.size() > 4;
               });
    };
    const std::pair<bool, moment> table[] = {
        // the first that is true counts
        {marked(6), {"generation", false}},
        {marked(3) && !marked(2) && fs::exists(transact / "0006") &&
             !fs::exists(transact / "0004/nspamdict.lst"),
         {"gaps 4 and 5: publishing", true}},
        {marked(4), {"publishing, before the first file", false}},
        {marked(1) && marked(2), {"gap 3: two markers", true}},
        {marked(3), {"half nspamdict", false}},
        {marked(2), {"half spamdict", false}},
        {marked(1) && batch(), {"sorting", false}},
        {marked(1), {"gap 2: the batch is moved", true}},
        {fs::exists(transact / "~autotrain.bys"), {"snapshot", false}},
        {batch(), {"gap 1: the snapshot is deleted", true}},
        {true, {"no transaction", false}},
    };
    return std::ranges::find(table, true, &std::pair<bool, moment>::first)->second;
}

// Of an engine that doesn't move.
moment look(const fs::path& transact) {
    if (fs::exists(transact / "~~autotrain.bys"))
        return {"gap: waiting messages are merged", true};
    const std::string cache = read_file(transact / "autotrain.bys");
    if (cache.size() > 4 && read_file(transact / "~autotrain.bys").ends_with(cache.substr(4)))
        return {"gap: waiting messages are merged", true};
    return look_at_stages(transact);
}

// Stops a process, and waits until the last of its threads stands. False if it has ended.
bool stop_process(std::uint32_t process) {
    if (kill(static_cast<pid_t>(process), SIGSTOP) != 0)
        return false;
    const fs::path threads = "/proc/" + std::to_string(process) + "/task";
    for (bool moving = true; moving; platform::sleep_for(1)) {
        std::error_code gone;
        moving = false;
        const fs::directory_iterator all(threads, gone);
        if (gone)
            return false;
        for (const auto& entry : all) {
            const std::string facts = read_file(entry.path() / "stat");
            const std::size_t name_end = facts.rfind(") ");
            const char state = name_end == std::string::npos ? 'X' : facts[name_end + 2];
            if (state == 'Z' || state == 'X')
                return false;
            moving = moving || state != 'T';
        }
    }
    return true;
}

class crowd : public testing::Test {
protected:
    // No message ages out, and no half is cut.
    crowd() {
        std::ofstream(m_root.path() / "advanced.ini")
            << "training delay = 3600\nrecalculating strategy = 1000000\n"
               "optimal base size per half = 1000000\noptimal one dict size = 2000\n"
               "min optimal one dict size = 1000\n";
    }

    // Kills the engine at random, but not in a gap, as long as the clients are at it.
    void kill_at_random(std::chrono::steady_clock::time_point until) {
        std::mt19937 random(1);
        while (std::chrono::steady_clock::now() < until) {
            platform::sleep_for(100 + pick(random, 1000));
            const std::uint32_t process = engine_root::process();
            if (process == 0 || !stop_process(process))
                continue;
            const moment now = look(m_root.transact());
            const std::string holder = read_file(m_root.transact() / "lock.bin");
            m_held += holder.size() == 4 && word_at(holder, 0) == process ? 1 : 0;
            if (now.gap) {
                ++m_spared[now.name];
                kill(static_cast<pid_t>(process), SIGCONT);
                continue;
            }
            ++m_killed[now.name];
            kill(static_cast<pid_t>(process), SIGKILL);
            engine_root::wait_for("the engine's end", [&] { return !platform::process_exists(process); });
        }
    }

    // Until nothing is left to be trained. The last kill may have left a transaction and no message in the
    // cache, so the engine is started in any case.
    void drain() {
        const auto has_left = [&](const char* name) { return fs::exists(m_root.transact() / name); };
        do {
            m_root.client().raise(engine_event::train);
            engine_root::wait_for("the engine's start", [] { return engine_root::process() != 0; });
            m_root.client().raise(engine_event::train);
            engine_root::wait_for("the snapshot", [&] { return !has_left("autotrain.bys"); });
            engine_root::wait_for("the snapshot", [&] { return !has_left("~autotrain.bys"); });
        } while (has_left("autotrain.bys"));
        engine_root::wait_for("the transaction",
                              [&] { return look_at_stages(m_root.transact()).name == "no transaction"; });
        m_root.stop();
    }

    engine_root m_root;
    counts m_killed;
    counts m_spared;
    unsigned m_held = 0; // stops at which the engine had the lock of the cache
};

TEST_F(crowd, every_message_is_trained_as_often_as_it_was_appended) {
    const unsigned seconds = full_seconds() ? full_seconds() : 6;
    std::vector<child_process> clients;
    for (unsigned i = 0; i < crowd_size; ++i)
        clients.emplace_back("crowd_client", std::to_string(i) + " " + std::to_string(seconds) + " " +
                                                 m_root.path().string());
    kill_at_random(std::chrono::steady_clock::now() + std::chrono::seconds(seconds));
    std::map<std::string, counts> appended;
    std::map<std::string, counts> ids;
    std::uint64_t messages = 0;
    for (unsigned i = 0; i < crowd_size; ++i) {
        EXPECT_EQ(clients[i].join(), 0) << "client " << i;
        std::ifstream journal(m_root.path() / ("journal." + std::to_string(i)));
        for (std::string half, name; journal >> half >> name; ++messages) {
            ASSERT_NE(half, "failed:") << journal.rdbuf();
            ++appended[half]["B " + name];
            ++appended[half][""];
            appended[half]["B common"] += 2;
            ids[half]["<" + name + "@crowd>"] = 1;
        }
    }
    drain();
    for (const bool spam : {false, true}) {
        const std::string half = half_name(spam);
        counts found = tokens_of(m_root.base(), half);
        std::erase_if(found, [](const auto& entry) { return entry.first.starts_with("B w"); });
        std::vector<counts::value_type> wrong;
        std::ranges::set_symmetric_difference(found, appended[half], std::back_inserter(wrong));
        EXPECT_EQ(wrong, std::vector<counts::value_type>()) << half << ": what was found, what was appended";
        EXPECT_EQ(ids_of(m_root.base(), half), ids[half]) << half;
    }
    EXPECT_GT(messages, 100U);
    EXPECT_FALSE(m_killed.empty());
    std::cout << seconds << " seconds, " << messages
              << " messages appended; lock.bin was the stopped engine's " << m_held
              << " times\nkilled: " << testing::PrintToString(m_killed)
              << "\nspared: " << testing::PrintToString(m_spared) << '\n';
}

// Takes the lock of the path, and keeps it until it is told to go on.
const child_role lock_holder("lock_holder", [](std::string_view path) {
    file_lock lock(path);
    if (!lock.try_acquire())
        return 1;
    named_event held("held"), go_on("go_on");
    held.set();
    go_on.wait(platform::infinite);
    lock.release();
    return 0;
});

// The holder of lock.bin hangs or is stopped, and then dies or goes on.
TEST_F(crowd, a_holder_of_the_lock_only_delays) {
    const std::string working = m_root.client().working_directory() + "base\\transact\\";
    m_root.start();
    m_root.train(1, 20);
    for (const bool stopped : {false, true})
        for (const bool dies : {true, false}) {
            SCOPED_TRACE(std::string(stopped ? "stopped" : "hanging") + (dies ? ", then dead" : ""));
            const std::uint32_t before = m_root.messages();
            m_root.append(2 + (stopped ? 1 : 0) + (dies ? 2 : 0), 20);
            const std::string cache = read_file(m_root.transact() / "autotrain.bys");
            named_event held("held"), go_on("go_on");
            child_process holder("lock_holder", working + "lock.bin");
            ASSERT_TRUE(held.wait(60'000));
            ASSERT_TRUE(!stopped || stop_process(holder.id()));

            // A client waits for 30 seconds and then says so; nothing has changed.
            token_table tokens;
            tokens.add("B common");
            record_batch batch;
            batch.add({.msid = "<late>", .spam = true, .size = 1, .time = first_time}, tokens);
            if (full_seconds())
                EXPECT_EQ(training_client().append(batch).error, ipc_error::locked);
            else
                EXPECT_EQ(cache_writer(working + "autotrain.bys").append(batch, 300), append_result::locked);
            EXPECT_EQ(read_file(m_root.transact() / "autotrain.bys"), cache);

            // The engine waits without limit, can be closed meanwhile, and waits again.
            m_root.force();
            platform::sleep_for(300);
            m_root.stop();
            m_root.start();
            m_root.force();
            platform::sleep_for(300);
            EXPECT_EQ(read_file(m_root.transact() / "autotrain.bys"), cache);

            if (!dies) {
                kill(static_cast<pid_t>(holder.id()), SIGCONT);
                go_on.set();
            }
            EXPECT_EQ(dies ? holder.kill() : holder.join(), dies ? child_process::killed : 0);
            m_root.wait_until_trained();
            EXPECT_EQ(m_root.messages(), before + 20);
        }
}

// A short form of the benchmark tvr_long_life.
TEST(long_life, nothing_grows_but_the_lists_of_ids) {
    const auto [samples, defects] =
        long_life::run({.transactions = 48, .messages = 20, .words = 40, .small_limits = true});
    EXPECT_EQ(samples.size(), 48U);
    EXPECT_EQ(defects, std::vector<std::string>());
}

} // namespace
} // namespace tvr
