// The data structures, each beside what a program would take from the standard library instead.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <random>
#include <set>
#include <unordered_map>

#ifdef TVR_HAS_ABSEIL
#include <absl/container/flat_hash_map.h>
#endif

#include "bench/corpus.h"
#include "common/bytes.h"
#include "common/file_stream.h"
#include "common/token_hash.h"
#include "compiled/hashreg.h"
#include "dict/hashmap.h"
#include "msid/msidmap.h"
#include "msid/page_manager.h"
#include "support/test_root.h"

namespace tvr::bench {
namespace {

constexpr std::size_t vocabulary_size = 60'000;

const std::vector<std::string>& stream_of_tokens() {
    static const auto all = tokens(1'000'000, vocabulary_size);
    return all;
}

template <class Hash>
void hash(benchmark::State& state, Hash function) {
    std::size_t bytes = 0;
    for (const std::string& token : stream_of_tokens())
        bytes += token.size();
    for (auto _ : state)
        for (const std::string& token : stream_of_tokens())
            benchmark::DoNotOptimize(function(token));
    state.SetBytesProcessed(static_cast<std::int64_t>(bytes) * state.iterations());
}
BENCHMARK_CAPTURE(hash, order, order_hash);
BENCHMARK_CAPTURE(hash, probe, probe_hash);
BENCHMARK_CAPTURE(hash, standard, [](std::string_view text) { return std::hash<std::string_view>()(text); });

void set_items(benchmark::State& state, std::size_t items) {
    state.SetItemsProcessed(static_cast<std::int64_t>(items) * state.iterations());
}

void token_map_count(benchmark::State& state) {
    for (auto _ : state) {
        dword_map map;
        for (const std::string& token : stream_of_tokens()) {
            std::uint8_t* const place = map.get_or_add(token);
            store_u32(place, load_u32(place) + 1);
        }
        benchmark::DoNotOptimize(map.count());
    }
    set_items(state, stream_of_tokens().size());
}
BENCHMARK(token_map_count)->Unit(benchmark::kMillisecond);

void token_map_count_standard(benchmark::State& state) {
    for (auto _ : state) {
        std::unordered_map<std::string, std::uint32_t> map;
        for (const std::string& token : stream_of_tokens())
            ++map[token];
        benchmark::DoNotOptimize(map.size());
    }
    set_items(state, stream_of_tokens().size());
}
BENCHMARK(token_map_count_standard)->Unit(benchmark::kMillisecond);

void token_map_load(benchmark::State& state) {
    const test_root root;
    const std::string path = root.engine_path("block");
    dword_map map;
    for (const std::string& token : stream_of_tokens())
        map.get_or_add(token);
    file_stream out;
    out.create_to_write(path);
    map.flush_ordered(out);
    out.close();
    for (auto _ : state) {
        dword_map loaded;
        file_stream in;
        in.open_to_read(path);
        if (!loaded.init_from_file(in))
            state.SkipWithError("no block");
    }
    set_items(state, map.count());
}
BENCHMARK(token_map_load)->Unit(benchmark::kMillisecond);

// A published base of 94,000 tokens, and as many that it doesn't have; both in random order.
struct graded_tokens {
    graded_tokens() {
        std::set<std::string> found;
        for (unsigned seed = 2; found.size() < 188'000; ++seed)
            for (std::string& token : tokens(500'000, 200'000, seed))
                found.insert(std::move(token));
        std::vector<std::string> all(found.begin(), found.end());
        std::shuffle(all.begin(), all.end(), std::mt19937(3));
        known.assign(all.begin(), all.begin() + 94'000);
        unknown.assign(all.begin() + 94'000, all.end());
        float_map grades;
        constexpr float grade = 0.25F;
        for (const std::string& token : known)
            grades._assign(token, &grade);
        const std::string path = root.engine_path("base");
        file_stream out;
        out.create_to_write(path);
        base_header().header.write(out);
        grades.flush_ordered(out);
        out.close();
        base.load(path);
        std::shuffle(known.begin(), known.end(), std::mt19937(4));
    }
    test_root root;
    std::vector<std::string> known, unknown;
    hashreg base;
};

graded_tokens& graded() {
    static graded_tokens all;
    return all;
}

void base_grade(benchmark::State& state, bool hit) {
    const auto& asked = hit ? graded().known : graded().unknown;
    for (auto _ : state)
        for (const std::string& token : asked)
            benchmark::DoNotOptimize(graded().base.grade(token));
    set_items(state, asked.size());
}
BENCHMARK_CAPTURE(base_grade, hit, true);
BENCHMARK_CAPTURE(base_grade, miss, false);

#ifdef TVR_HAS_ABSEIL
void base_grade_abseil(benchmark::State& state, bool hit) {
    const auto& asked = hit ? graded().known : graded().unknown;
    absl::flat_hash_map<std::string, float> grades;
    for (const std::string& token : graded().known)
        grades[token] = 0.25F;
    for (auto _ : state)
        for (const std::string& token : asked) {
            const auto found = grades.find(absl::string_view(token.data(), token.size()));
            benchmark::DoNotOptimize(found == grades.end() ? 0.0 : static_cast<double>(found->second));
        }
    set_items(state, asked.size());
}
BENCHMARK_CAPTURE(base_grade_abseil, hit, true);
BENCHMARK_CAPTURE(base_grade_abseil, miss, false);
#endif

constexpr std::size_t keys = 200'000;

void tree_insert(benchmark::State& state) {
    const test_root root;
    const auto ids = message_ids(keys);
    for (auto _ : state) {
        std::filesystem::remove(root.path() / "t.idx");
        msidtree tree(root.engine_path("t.idx"));
        for (std::uint32_t i = 0; i < keys; ++i)
            tree.insert(ids[i], i + 1, false);
    }
    set_items(state, keys);
}
BENCHMARK(tree_insert)->Unit(benchmark::kMillisecond);

void tree_insert_standard(benchmark::State& state) {
    const auto ids = message_ids(keys);
    for (auto _ : state) {
        std::map<key11, std::uint32_t> tree;
        for (std::uint32_t i = 0; i < keys; ++i)
            tree.emplace(key11::of(ids[i]), i + 1);
        benchmark::DoNotOptimize(tree.size());
    }
    set_items(state, keys);
}
BENCHMARK(tree_insert_standard)->Unit(benchmark::kMillisecond);

void tree_find(benchmark::State& state) {
    const test_root root;
    const auto ids = message_ids(keys);
    msidtree tree(root.engine_path("t.idx"));
    for (std::uint32_t i = 0; i < keys; ++i)
        tree.insert(ids[i], i + 1, false);
    for (auto _ : state)
        for (const std::string& id : ids)
            benchmark::DoNotOptimize(tree.find(id));
    set_items(state, keys);
}
BENCHMARK(tree_find)->Unit(benchmark::kMillisecond);

void tree_find_standard(benchmark::State& state) {
    const auto ids = message_ids(keys);
    std::map<key11, std::uint32_t> tree;
    for (std::uint32_t i = 0; i < keys; ++i)
        tree.emplace(key11::of(ids[i]), i + 1);
    for (auto _ : state)
        for (const std::string& id : ids)
            benchmark::DoNotOptimize(tree.find(key11::of(id)));
    set_items(state, keys);
}
BENCHMARK(tree_find_standard)->Unit(benchmark::kMillisecond);

void msid_map_insert(benchmark::State& state) {
    const test_root root;
    const auto ids = message_ids(keys);
    for (auto _ : state) {
        msidmap map(root.engine_path() + "\\", "m");
        for (std::uint32_t i = 0; i < keys; ++i)
            map.insert(ids[i], i + 1);
        map.clear();
    }
    set_items(state, keys);
}
BENCHMARK(msid_map_insert)->Unit(benchmark::kMillisecond);

void msid_map_search(benchmark::State& state) {
    const test_root root;
    const auto ids = message_ids(keys);
    msidmap map(root.engine_path() + "\\", "m");
    for (std::uint32_t i = 0; i < keys; ++i)
        map.insert(ids[i], i + 1);
    for (auto _ : state)
        for (const std::string& id : ids)
            benchmark::DoNotOptimize(map.search(id));
    set_items(state, keys);
}
BENCHMARK(msid_map_search)->Unit(benchmark::kMillisecond);

} // namespace
} // namespace tvr::bench
