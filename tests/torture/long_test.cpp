// Years of mail in one run of one engine: once the limits are reached, nothing grows but the lists of message
// IDs, which are never purged.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <random>
#include <sstream>

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

struct sample {
    std::uint64_t atoms = 0, compiled = 0, lists = 0, indexes = 0, others = 0; // bytes on disk
    std::uint64_t files = 0, memory = 0, handles = 0;
    double milliseconds = 0; // from the request to the new base
};

sample measure(const fs::path& root, std::uint32_t process) {
    sample now;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        if (!entry.is_regular_file())
            continue;
        const std::string kind = entry.path().extension().string();
        (kind == ".bye"   ? now.atoms
         : kind == ".rgd" ? now.compiled
         : kind == ".lst" ? now.lists
         : kind == ".idx" ? now.indexes
                          : now.others) += entry.file_size();
        ++now.files;
    }
    const std::string folder = "/proc/" + std::to_string(process);
    std::ifstream facts(folder + "/status");
    for (std::string word; facts >> word;)
        if (word == "VmRSS:") {
            facts >> now.memory;
            now.memory *= 1024;
        }
    for ([[maybe_unused]] const auto& entry : fs::directory_iterator(folder + "/fd"))
        ++now.handles;
    return now;
}

// The largest value of a part of the run, in quarters.
template <class Value>
Value peak(const std::vector<sample>& all, unsigned quarter, Value sample::*what) {
    const std::size_t length = all.size() / 4;
    const auto first = all.begin() + static_cast<std::ptrdiff_t>(length * quarter);
    return (*std::max_element(first, first + static_cast<std::ptrdiff_t>(length),
                              [&](const sample& a, const sample& b) { return a.*what < b.*what; })).*
           what;
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
        samples.back().milliseconds = milliseconds;
        const std::uint64_t expected = 2 * 16 + mail.id_bytes();
        ASSERT_EQ(samples.back().lists, expected) << "a record for each ID, and nothing else";
    }
    EXPECT_EQ(engine_root::process(), process);

    const auto flat = [&](const char* what, auto member, double most) {
        EXPECT_LE(static_cast<double>(peak(samples, 3, member)),
                  static_cast<double>(peak(samples, 2, member)) * most)
            << what;
    };
    flat("atoms", &sample::atoms, 1.05);
    flat("compiled base", &sample::compiled, 1.05);
    // The statistic of a batch has an entry for each hour of the last 60 days.
    EXPECT_LE(peak(samples, 3, &sample::others), peak(samples, 2, &sample::others) + 1024);
    flat("number of files", &sample::files, 1.05);
    EXPECT_EQ(peak(samples, 3, &sample::handles), peak(samples, 0, &sample::handles));
    if (full)
        flat("memory", &sample::memory, 1.05);

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
        table << "transaction,atoms,compiled,lists,indexes,others,files,memory,handles,milliseconds\n";
        for (std::size_t i = 0; i < samples.size(); ++i) {
            const sample& s = samples[i];
            table << i + 1 << ',' << s.atoms << ',' << s.compiled << ',' << s.lists << ',' << s.indexes << ','
                  << s.others << ',' << s.files << ',' << s.memory << ',' << s.handles << ','
                  << s.milliseconds << '\n';
        }
    }
}

} // namespace
} // namespace tvr
