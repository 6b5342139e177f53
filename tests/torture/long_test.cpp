// Years of mail in one run of one engine: once the limits are reached, nothing grows but the lists of message
// IDs, which are never purged.

#include <gtest/gtest.h>
#include <limits>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <map>
#include <random>
#include <span>

#include "common/minutes.h"
#include "platform/registry.h"
#include "system/engine_root.h"

namespace tvr {
namespace {

namespace fs = std::filesystem;

unsigned setting(const char* name, unsigned otherwise) {
    const char* text = std::getenv(name);
    return text ? static_cast<unsigned>(std::atoi(text)) : otherwise;
}

// Mail with a vocabulary that moves: 500 frequent words stay; of the others thirty a day go, thirty new ones
// come; and a part of the words is never seen again.
class mailbox {
public:
    explicit mailbox(std::uint32_t start) : m_start(start) {}

    void add_to(record_batch& batch, unsigned count, unsigned words) {
        for (; count != 0; --count, ++m_number) {
            const unsigned day = m_number / messages_a_day;
            const bool spam = m_number % 2 == 0;
            m_tokens.clear();
            for (unsigned i = 0; i < words; ++i) {
                if (m_random() % 100 < 3) {
                    m_tokens.add("B once" + std::to_string(m_random()));
                    continue;
                }
                const double place = std::uniform_real_distribution<double>(0, 1)(m_random);
                auto rank = static_cast<unsigned>(std::pow(vocabulary, place)) - 1;
                if (rank >= frequent)
                    rank += day * 30;
                // A quarter of the words belongs to one half.
                m_tokens.add("B word" + std::to_string(rank % 4 == 0 ? (rank & ~7U) + (spam ? 0 : 4) : rank));
            }
            m_id = "<" + std::to_string(m_random()) + "." + std::to_string(m_number) + "@long>_0A1B2C3D";
            batch.add({.msid = m_id, .spam = spam, .size = 4000, .time = m_start + minutes_of(m_number)},
                      m_tokens);
            m_id_bytes += m_id.size() + 5;
        }
    }
    // Of the records that the lists have for all messages so far.
    [[nodiscard]] std::uint64_t id_bytes() const { return m_id_bytes; }

    static constexpr unsigned messages_a_day = 100;
    static std::uint32_t minutes_of(unsigned messages) {
        return static_cast<std::uint32_t>(std::uint64_t{messages} * 1440 / messages_a_day);
    }

private:
    static constexpr unsigned frequent = 500;
    static constexpr double vocabulary = 50'000;

    std::uint32_t m_start;
    std::mt19937 m_random{3};
    unsigned m_number = 0;
    token_table m_tokens;
    std::string m_id;
    std::uint64_t m_id_bytes = 0;
};

// By name: bytes on disk and of memory, numbers, and the milliseconds from the request to the new base.
using sample = std::map<std::string, double>;

sample measure(const fs::path& root, std::uint32_t process) {
    sample now = {{"indexes", 0}}; // seldom there
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        if (!entry.is_regular_file())
            continue;
        const std::string kind = entry.path().extension().string();
        now[kind == ".bye"                             ? "atoms"
            : kind == ".rgd"                           ? "compiled"
            : kind == ".lst"                           ? "lists"
            : kind == ".idx"                           ? "indexes"
            : entry.path().filename() == "verdict.bin" ? "verdict" // bounded, as its own test shows
                                                       : "others"] += static_cast<double>(entry.file_size());
        ++now["files"];
    }
    const std::string folder = "/proc/" + std::to_string(process);
    std::ifstream facts(folder + "/status");
    for (std::string word; facts >> word;)
        if (word == "VmRSS:") {
            facts >> now["memory"];
            now["memory"] *= 1024;
        }
    const fs::directory_iterator handles(folder + "/fd");
    now["handles"] = static_cast<double>(std::distance(begin(handles), end(handles)));
    return now;
}

// The largest value of a part of the run, in quarters.
double peak(const std::vector<sample>& all, unsigned quarter, const char* what) {
    const std::size_t length = all.size() / 4;
    double most = 0;
    for (const sample& each : std::span(all).subspan(length * quarter, length))
        most = std::max(most, each.at(what));
    return most;
}

// The same, of its least: a handle that is open only for a moment adds to some samples, a lost one to all.
double least(const std::vector<sample>& all, unsigned quarter, const char* what) {
    const std::size_t length = all.size() / 4;
    double fewest = std::numeric_limits<double>::max();
    for (const sample& each : std::span(all).subspan(length * quarter, length))
        fewest = std::min(fewest, each.at(what));
    return fewest;
}

TEST(long_life, nothing_grows_but_the_lists_of_ids) {
    // LONG_TRANSACTIONS makes it the full form: the limits of the settings' defaults, and messages of mail's
    // length. The samples go to the file LONG_TABLE.
    const unsigned full = setting("LONG_TRANSACTIONS", 0);
    const unsigned transactions = full ? full : 48;
    const unsigned batch_size = full ? 110 : 20;
    engine_root root;
    platform::registry_key switches;
    switches.create(platform::registry_root::local_machine, "Software");
    switches.set("EnableKWILLog", platform::registry_type::dword,
                 std::string_view("\0\0\0\0", 4)); // as usual
    if (!full)
        std::ofstream(root.path() / "advanced.ini", std::ios::app)
            << "optimal base size per half = 100\noptimal one dict size = 10\n"
               "min optimal one dict size = 5\n";
    // The last message is of today: the engine knows no other clock than the system's.
    mailbox mail(now_minutes() - mailbox::minutes_of(transactions * batch_size));
    root.start();
    const std::uint32_t process = engine_root::process();
    std::vector<sample> samples;
    const auto train = [&] {
        record_batch batch;
        mail.add_to(batch, batch_size, full ? 200 : 40);
        root.append(batch);
        const auto start = std::chrono::steady_clock::now();
        root.force();
        root.wait_until_trained();
        return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    };
    for (unsigned turn = 0; turn < transactions; ++turn) {
        const double milliseconds = train();
        samples.push_back(measure(root.path(), process));
        samples.back()["milliseconds"] = milliseconds;
        const auto expected = static_cast<double>(2 * 16 + mail.id_bytes());
        ASSERT_EQ(samples.back()["lists"], expected) << "a record for each ID, and nothing else";
    }
    EXPECT_EQ(engine_root::process(), process);

    std::vector<const char*> flat = {"atoms", "compiled", "files"};
    if (full)
        flat.push_back("memory");
    for (const char* what : flat)
        EXPECT_LE(peak(samples, 3, what), peak(samples, 2, what) * 1.05) << what;
    // The statistic of a batch has an entry for each hour of the last 60 days.
    EXPECT_LE(peak(samples, 3, "others"), peak(samples, 2, "others") + 1024);
    EXPECT_EQ(least(samples, 3, "handles"), least(samples, 0, "handles"));

    // What the lists cost: some transactions more with them, and without.
    if (full)
        for (const bool without : {false, true}) {
            root.stop();
            if (without)
                for (const char* name : {"spamdict.lst", "nspamdict.lst"})
                    fs::remove(root.base() / name);
            root.start();
            std::vector<double> times(20);
            std::generate(times.begin(), times.end(), train);
            std::sort(times.begin(), times.end());
            std::printf("median of 20 transactions %s the lists: %.0f ms\n", without ? "without" : "with",
                        times[times.size() / 2]);
        }
    if (const char* path = std::getenv("LONG_TABLE")) {
        std::ofstream table(path);
        table.precision(12);
        table << "transaction";
        for (const auto& [column, value] : samples.front())
            table << ',' << column;
        for (std::size_t i = 0; i < samples.size(); ++i) {
            table << '\n' << i + 1;
            for (const auto& [column, value] : samples[i])
                table << ',' << value;
        }
        table << '\n';
    }
}

} // namespace
} // namespace tvr
