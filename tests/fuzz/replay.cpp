// Without a fuzzer: runs a target over its seeds and over changed ones, always the same.
//
//     fuzz_replay MAILS TARGET ROUNDS       runs it
//     fuzz_replay MAILS --write FOLDER      writes the seeds, a folder for each target
//     fuzz_replay MAILS --list              names the targets

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>
#include <string>

#include "support/file_bytes.h"
#include "support/memory_peak.h"
#include "support/test_root.h"
#include "targets.h"

namespace {

using tvr::fuzz::target;

// Small changes of the kinds that damage a file: bytes, numbers, and pieces lost, doubled or exchanged.
class mutator {
public:
    explicit mutator(const std::vector<std::string>& seeds) : m_seeds(seeds) {}

    std::string next() {
        std::string bytes = m_seeds[below(m_seeds.size())];
        for (std::size_t steps = 1 + below(4); steps != 0; --steps)
            change(bytes);
        return bytes;
    }

private:
    std::size_t below(std::size_t limit) { return limit == 0 ? 0 : m_random() % limit; }

    void change(std::string& bytes) {
        constexpr std::array<std::uint32_t, 10> numbers = {
            0, 1, 0x7F, 0xFF, 0x100, 0xFFFF, 0x10000000, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
        const std::size_t at = below(bytes.size() + 1);
        const std::size_t size = below(std::min<std::size_t>(64, bytes.size() - at) + 1);
        switch (below(7)) {
        case 0:
            if (at < bytes.size())
                bytes[at] = static_cast<char>(m_random());
            break;
        case 1: // most heads lie in front
        case 2:
            if (const std::size_t place = below(2) == 0 ? at : below(48); place + 4 <= bytes.size()) {
                bytes.replace(place, 4, tvr::le(numbers.at(below(numbers.size()))));
            }
            break;
        case 3:
            bytes.erase(at, size);
            break;
        case 4:
            bytes.insert(at, bytes.substr(at, size));
            break;
        case 5:
            bytes.resize(at);
            break;
        default: {
            const std::string& other = m_seeds[below(m_seeds.size())];
            bytes = bytes.substr(0, at) + other.substr(below(other.size() + 1));
            break;
        }
        }
    }

    const std::vector<std::string>& m_seeds;
    std::mt19937 m_random{20'050'625};
};

void run_text(const target& which, const std::string& input) {
    const tvr::memory_peak peak;
    tvr::fuzz::run(which, {reinterpret_cast<const std::uint8_t*>(input.data()), input.size()});
    tvr::fuzz::must(peak.bytes() <= (std::size_t{1} << 20) + 64 * input.size() + 8 * which.size.frame,
                    "memory is of the input's size");
}

// The most address space that this process has had: tables of tokens don't come from new.
std::uint64_t peak_of_addresses() {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;)
        if (word == "VmPeak:" && status >> word)
            return std::stoull(word) * 1024;
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    const tvr::test_root root; // for the registry
    if (arguments.size() == 2 && arguments[1] == "--list") {
        for (const target* each : tvr::fuzz::all_targets())
            std::printf("%s %zu\n", each->name, each->size.longest);
        return 0;
    }
    if (arguments.size() != 3) {
        std::fputs("fuzz_replay MAILS TARGET ROUNDS | --write FOLDER | --list\n", stderr);
        return 2;
    }
    const auto seeds = tvr::fuzz::make_seeds(arguments[0]);
    if (arguments[1] == "--write") {
        for (const auto& [name, inputs] : seeds)
            for (std::size_t i = 0; i < inputs.size(); ++i)
                tvr::write_file(arguments[2] + "/" + name + "/seed" + std::to_string(i), inputs[i]);
        return 0;
    }
    const target* const which = tvr::fuzz::find_target(arguments[1]);
    if (!which || !seeds.contains(arguments[1])) {
        std::fprintf(stderr, "fuzz_replay: no target %s, or no seeds for it\n", arguments[1].c_str());
        return 2;
    }
    const auto& inputs = seeds.at(arguments[1]);
    run_text(*which, {});
    const std::uint64_t addresses = peak_of_addresses();
    for (const std::string& input : inputs) {
        tvr::fuzz::must(input.size() <= which->size.longest, "seeds are short enough");
        run_text(*which, input);
    }
    mutator mutated(inputs);
    const unsigned long rounds = std::strtoul(arguments[2].c_str(), nullptr, 10);
    for (unsigned long i = 0; i < rounds; ++i)
        run_text(*which, mutated.next());
    // A sanitizer takes terabytes.
    tvr::fuzz::must(peak_of_addresses() - addresses <= std::max(std::uint64_t{1} << 29, addresses >> 10),
                    "address space has a bound");
    std::printf("%zu seeds, %lu changed ones\n", inputs.size(), rounds);
    return 0;
}
