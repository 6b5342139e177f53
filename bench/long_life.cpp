#include "bench/long_life.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <random>
#include <span>

#include "client/record_batch.h"
#include "common/file_names.h"
#include "common/minutes.h"
#include "platform/clock.h"
#include "platform/registry.h"
#include "system/engine_root.h"

namespace tvr::long_life {

namespace fs = std::filesystem;

namespace {

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

sample measure(const fs::path& root, std::uint32_t process) {
    sample now = {{"indexes", 0}}; // seldom there
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        if (!entry.is_regular_file())
            continue;
        const std::string kind = entry.path().extension().string();
        now[kind == ".bye"                              ? "atoms"
            : kind == ".rgd"                            ? "compiled"
            : kind == ".lst"                            ? "lists"
            : kind == ".idx"                            ? "indexes"
            : entry.path().filename() == names::verdict ? "verdict" // bounded, as its own test shows
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
    // The least of some looks: the engine may be closing the last ones.
    std::ptrdiff_t fewest = std::numeric_limits<std::ptrdiff_t>::max();
    for (int looks = 0; looks < 5; ++looks) {
        const fs::directory_iterator handles(folder + "/fd");
        fewest = std::min(fewest, std::distance(begin(handles), end(handles)));
        platform::sleep_for(1);
    }
    now["handles"] = static_cast<double>(fewest);
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

class life {
public:
    explicit life(const form& wanted)
        // The last message is of today: the engine knows no other clock than the system's.
        : m_form(wanted), m_mail(now_minutes() - mailbox::minutes_of(wanted.transactions * wanted.messages)) {
        platform::registry_key switches;
        switches.create(platform::registry_root::local_machine, "Software");
        switches.set("EnableKWILLog", platform::registry_type::dword,
                     std::string_view("\0\0\0\0", 4)); // as usual
        if (m_form.small_limits)
            std::ofstream(m_root.path() / names::advanced_settings, std::ios::app)
                << "optimal base size per half = 100\noptimal one dict size = 10\n"
                   "min optimal one dict size = 5\n";
    }

    result run() {
        m_root.start();
        const std::uint32_t process = engine_root::process();
        for (unsigned turn = 0; turn < m_form.transactions; ++turn) {
            const double milliseconds = train();
            m_result.samples.push_back(measure(m_root.path(), process));
            m_result.samples.back()["milliseconds"] = milliseconds;
            // A record for each ID, and nothing else.
            expect(m_result.samples.back()["lists"] == static_cast<double>(2 * 16 + m_mail.id_bytes()),
                   "the lists of transaction " + std::to_string(turn + 1));
        }
        expect(engine_root::process() == process, "another engine");
        look_for_growth();
        if (m_form.all_costs)
            print_cost_of_lists();
        return std::move(m_result);
    }

private:
    // Milliseconds.
    double train() {
        record_batch batch;
        m_mail.add_to(batch, m_form.messages, m_form.words);
        m_root.append(batch);
        const auto start = std::chrono::steady_clock::now();
        m_root.force();
        m_root.wait_until_trained();
        return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    }

    void expect(bool condition, const std::string& otherwise) {
        if (!condition)
            m_result.defects.push_back(otherwise);
    }

    void look_for_growth() {
        const std::vector<sample>& all = m_result.samples;
        std::vector<const char*> flat = {"atoms", "compiled", "files"};
        if (m_form.all_costs)
            flat.push_back("memory");
        for (const char* what : flat)
            expect(peak(all, 3, what) <= peak(all, 2, what) * 1.05, std::string(what) + " grow");
        // The statistic of a batch has an entry for each hour of the last 60 days.
        expect(peak(all, 3, "others") <= peak(all, 2, "others") + 1024, "other files grow");
        expect(least(all, 3, "handles") <= least(all, 0, "handles"), "handles are lost");
    }

    // Some transactions more with the lists of message IDs, and without.
    void print_cost_of_lists() {
        for (const bool without : {false, true}) {
            m_root.stop();
            if (without)
                for (const char* name : {names::spam_list, names::good_list})
                    fs::remove(m_root.base() / name);
            m_root.start();
            std::vector<double> times(20);
            std::generate(times.begin(), times.end(), [this] { return train(); });
            std::sort(times.begin(), times.end());
            std::printf("median of 20 transactions %s the lists: %.0f ms\n", without ? "without" : "with",
                        times[times.size() / 2]);
        }
    }

    form m_form;
    engine_root m_root;
    mailbox m_mail;
    result m_result;
};

} // namespace

result run(const form& wanted) {
    return life(wanted).run();
}

} // namespace tvr::long_life
