// Fits the built-in weights of the verdict, or plays a stream of counts:
//   tvr_fit_weights fit SPAM_FOLDER HAM_FOLDER... [-- SPAM_FOLDER HAM_FOLDER...]
//                                       prints built_in_weights.cpp
//   tvr_fit_weights counts FILE         a stream of counts, gzipped
// Each group of folders stands for itself. Out of a group bases of all sizes are made up, from one message to
// nearly all, balanced or not, of random mail or of mail in its order; other mail of the group is graded by
// them.

#include <zlib.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

#include "client/tokenizer.h"
#include "client/verdict/judge.h"

namespace tvr::bench {
namespace {

namespace fs = std::filesystem;

// One message in four is enough: the others aren't even graded.
class sampling {
public:
    template <class grade_T>
    void add(bool spam, grade_T&& grade) {
        if (m_asked++ % 4 == 0)
            m_samples.push_back({grade(), spam});
    }
    [[nodiscard]] const std::vector<judged_evidence>& samples() const noexcept { return m_samples; }

private:
    std::size_t m_asked = 0;
    std::vector<judged_evidence> m_samples;
};

// --- bases that are made up

class made_up_bases {
public:
    explicit made_up_bases(unsigned seed) : m_random(seed) {}

    // The first folder holds spam, the others good mail.
    void read(const std::vector<std::string>& folders) {
        tokenizer cut;
        for (const std::string& folder : folders) {
            std::vector<fs::path> paths(fs::directory_iterator(folder), {});
            std::sort(paths.begin(), paths.end());
            for (const fs::path& path : paths) {
                std::ifstream file(path, std::ios::binary);
                cut.tokenize(std::string{std::istreambuf_iterator<char>(file), {}});
                std::vector<std::uint32_t> tokens;
                cut.tokens().for_each([&](std::string_view token, std::uint32_t) {
                    const token_key key = key_of(token);
                    const auto [place, is_new] = m_numbers.try_emplace(std::string(token), m_keys.size());
                    if (is_new)
                        m_keys.push_back(key);
                    tokens.push_back(static_cast<std::uint32_t>(place->second));
                });
                m_mail[&folder == &folders.front() ? 1 : 0].push_back({cut.facts().time, std::move(tokens)});
            }
        }
        for (auto& half : m_mail)
            std::stable_sort(half.begin(), half.end(),
                             [](const mail& a, const mail& b) { return a.time < b.time; });
    }

    void make(unsigned rounds, sampling& samples) {
        for (unsigned round = 0; round < rounds; ++round)
            make_one(round % 3 == 0, round % 2 == 0, samples);
    }

private:
    struct mail {
        std::uint32_t time = 0;
        std::vector<std::uint32_t> tokens; // numbers
    };

    double chance() { return std::uniform_real_distribution<double>(0, 1)(m_random); }

    void make_one(bool balanced, bool in_order, sampling& samples) {
        std::array<std::vector<const mail*>, 2> order;
        std::array<std::size_t, 2> sizes{};
        for (std::size_t half = 0; half < 2; ++half) {
            for (const mail& one : m_mail[half])
                order[half].push_back(&one);
            sizes[half] = static_cast<std::size_t>(
                std::exp(chance() * std::log(0.8 * static_cast<double>(order[half].size()))));
        }
        if (balanced)
            sizes[1] = std::min(order[1].size() * 4 / 5, sizes[0] + 1);
        std::vector<std::pair<const mail*, bool>> known;
        for (std::size_t half = 0; half < 2; ++half) {
            auto& all = order[half];
            if (in_order)
                std::rotate(all.begin(),
                            all.begin() + static_cast<std::ptrdiff_t>(
                                              chance() * static_cast<double>(all.size() - sizes[half])),
                            all.end());
            else
                std::shuffle(all.begin(), all.end(), m_random);
            for (std::size_t i = 0; i < sizes[half]; ++i)
                known.emplace_back(all[i], half == 1);
        }
        std::shuffle(known.begin(), known.end(), m_random);
        learn(known);
        const message_counts all = {.spam = static_cast<std::uint32_t>(sizes[1]),
                                    .ham = static_cast<std::uint32_t>(sizes[0])};
        constexpr std::array<std::size_t, 2> judged = {120, 60};
        for (std::size_t half = 0; half < 2; ++half)
            for (std::size_t i = sizes[half]; i < std::min(sizes[half] + judged[half], order[half].size());
                 ++i)
                samples.add(half == 1, [&] { return grade(*order[half][i], all); });
    }

    void learn(const std::vector<std::pair<const mail*, bool>>& known) {
        constexpr std::size_t lot = 250; // as the learning of the client has it
        for (auto& half : m_counts)
            half.assign(m_keys.size(), 0);
        for (const auto& [one, spam] : known)
            for (const std::uint32_t token : one->tokens)
                ++m_counts[spam ? 1 : 0][token];
        m_memory = {};
        for (std::size_t start = 0; start < known.size(); start += lot)
            for (unsigned turn = 0; turn < 3; ++turn)
                for (std::size_t i = start; i < std::min(start + lot, known.size()); ++i)
                    m_memory.learn(keys_of(*known[i].first), known[i].second);
    }

    std::vector<token_key> keys_of(const mail& of) const {
        std::vector<token_key> keys;
        for (const std::uint32_t token : of.tokens)
            keys.push_back(m_keys[token]);
        return keys;
    }

    evidence grade(const mail& one, message_counts all) const {
        evidence_sum sum(m_memory, m_nothing_seen, all);
        for (const std::uint32_t token : one.tokens)
            sum.add(m_keys[token],
                    class_of(grade_of({.spam = m_counts[1][token], .ham = m_counts[0][token]}, all)));
        return sum.finish();
    }

    std::mt19937 m_random;
    std::unordered_map<std::string, std::size_t> m_numbers;
    std::vector<token_key> m_keys;           // by number
    std::array<std::vector<mail>, 2> m_mail; // ham, spam
    std::array<std::vector<std::uint32_t>, 2> m_counts;
    token_memory m_memory;
    seen_tokens m_nothing_seen; // the made-up bases are of all mail
};

int fit(const std::vector<std::string>& arguments) {
    constexpr unsigned rounds = 1600; // with 400, chance moved the verdicts on other mail
    sampling made_up;
    std::vector<std::string> folders;
    for (std::size_t i = 0; i <= arguments.size(); ++i) {
        if (i < arguments.size() && arguments[i] != "--") {
            folders.push_back(arguments[i]);
            continue;
        }
        made_up_bases bases(7);
        bases.read(folders);
        bases.make(rounds, made_up);
        folders.clear();
    }
    const feature_weights zero{};
    const std::vector<judged_evidence>& samples = made_up.samples();
    const feature_weights weights =
        learn_weights(samples.size(), [&](std::size_t i) { return samples[i]; }, zero,
                      {.towards = zero, .draw = 5, .tie = 50, .learned = feature::count, .most_steps = 25});
    std::puts("// Made by bench/fit_weights; docs/verdict.md tells from what mail.\n"
              "#include \"client/verdict/model.h\"\n\nnamespace tvr {\n\nnamespace {\n\n// clang-format off\n"
              "constexpr feature_weights weights = {{");
    for (std::size_t i = 0; i < weights.size(); ++i)
        std::printf("%s%.4f,%s", i % 8 == 0 ? "    " : " ", weights[i],
                    i % 8 == 7 || i + 1 == weights.size() ? "\n" : "");
    std::puts(
        "}};\n// clang-format on\n\n} // namespace\n\n"
        "const feature_weights& built_in_weights() noexcept {\n    return weights;\n}\n\n} // namespace tvr");
    return 0;
}

// --- a stream of counts

// Lines of a spam mark and the 56 counts, in the order of arrival, under bases of 1,000 messages a half.
std::vector<judged_evidence> read_counts(const std::string& path) {
    std::vector<judged_evidence> read;
    gzFile file = gzopen(path.c_str(), "rb");
    std::array<char, 4096> line;
    while (file && gzgets(file, line.data(), line.size())) {
        const char* at = line.data();
        if (*at != '0' && *at != '1')
            continue; // the names of the columns
        judged_evidence one;
        one.spam = *at == '1';
        grade_counts counts{};
        for (auto& kind : counts)
            for (std::uint32_t& count : kind) {
                at = std::strchr(at, ',');
                count = at ? static_cast<std::uint32_t>(std::strtoul(++at, nullptr, 10)) : 0;
                at = at ? at : "";
            }
        one.what.by_base = one.what.by_all = pack_counts(counts, {1000, 1000});
        read.push_back(one);
    }
    if (file)
        gzclose(file);
    return read;
}

int play_counts(const std::string& path) {
    constexpr std::size_t block = 500;
    const std::vector<judged_evidence> stream = read_counts(path);
    verdict_state state;
    std::vector<std::pair<double, bool>> scores;
    std::array<std::array<unsigned, 2>, 2> called{}; // by what it is, and whether it is called spam
    for (std::size_t start = 0; start < stream.size(); start += block) {
        const feature_weights weights = weights_of(state);
        const double spam_from = spam_logit(state, {});
        for (std::size_t i = start; i < std::min(start + block, stream.size()); ++i) {
            const double score = logit_of(stream[i].what, weights);
            scores.emplace_back(score, stream[i].spam);
            ++called[stream[i].spam ? 1 : 0][score >= spam_from ? 1 : 0];
            state.messages.push_back({.id = i,
                                      .time = 0,
                                      .spam = stream[i].spam,
                                      .what = stream[i].what,
                                      .score = pack_score(score),
                                      .learned_score = pack_score(logit_of(stream[i].what, state.weights))});
        }
        forget_messages(state);
        learn(state);
    }
    std::sort(scores.rbegin(), scores.rend());
    double above = 0; // pairs of a spam above a good mail
    double spam = 0;
    for (const auto& [score, is_spam] : scores)
        is_spam ? spam += 1 : above += spam;
    const double ham = static_cast<double>(scores.size()) - spam;
    std::printf("%zu messages: %.2f %% right, %.2f %% false positives (%u), %.2f %% missed, 1-ROCA %.3f %%\n",
                scores.size(), 100.0 * (called[0][0] + called[1][1]) / static_cast<double>(scores.size()),
                100 * called[0][1] / ham, called[0][1], 100 * called[1][0] / spam,
                100 * (1 - above / spam / ham));
    return 0;
}

} // namespace
} // namespace tvr::bench

int main(int count, char** arguments) {
    const std::vector<std::string> all(arguments + 1, arguments + count);
    if (all.size() > 2 && all[0] == "fit")
        return tvr::bench::fit({all.begin() + 1, all.end()});
    if (all.size() == 2 && all[0] == "counts")
        return tvr::bench::play_counts(all[1]);
    std::fputs("usage: tvr_fit_weights fit SPAM_FOLDER HAM_FOLDER... [-- ...] | counts FILE\n", stderr);
    return 2;
}
