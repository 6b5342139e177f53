// The engine's work on whole messages, in this process: from records to the published base, and its two
// heaviest steps alone.

#include <benchmark/benchmark.h>

#include <algorithm>

#include "bench/corpus.h"
#include "client/cache_writer.h"
#include "compiled/dict_pair.h"
#include "dict/atom.h"
#include "dict/hashmap.h"
#include "platform/clock.h"
#include "settings/settings.h"
#include "support/test_root.h"
#include "transact/transaction.h"

namespace tvr::bench {
namespace {

namespace fs = std::filesystem;

// A transaction with the default limits on a root of its own.
class engine {
public:
    engine() {
        fs::create_directories(base() / "transact");
        settings& set = make_current_settings();
        set.schema(schema_mode::basic_defaults);
        set.schema(schema_mode::advanced_defaults);
        set.working_directory.expanded = m_root.engine_path("work") + "\\";
        m_transaction.init();
    }
    ~engine() { m_transaction.shutdown(); }

    void append(const record_batch& batch) const {
        cache_writer(m_root.engine_path("work\\base\\transact\\autotrain.bys")).append(batch);
    }
    void train() {
        fs::remove(base() / "cashe.mrk");
        m_transaction.force_retrain();
        std::error_code none;
        while (fs::file_size(base() / "cashe.mrk", none) != 8)
            platform::sleep_for(1);
    }
    [[nodiscard]] fs::path base() const { return m_root.path() / "work/base"; }
    [[nodiscard]] std::string engine_path(const std::string& name) const { return m_root.engine_path(name); }

private:
    test_root m_root;
    transaction m_transaction;
};

constexpr std::size_t batch_size = 5000;

// One that has learned a batch.
class full_engine : public engine {
public:
    full_engine() {
        record_batch batch;
        add_messages(batch, 0, batch_size);
        append(batch);
        train();
    }
};

void records_to_base(benchmark::State& state) {
    record_batch batch;
    add_messages(batch, 0, batch_size);
    for (auto _ : state) {
        state.PauseTiming();
        {
            engine fresh;
            fresh.append(batch);
            state.ResumeTiming();
            fresh.train();
            state.PauseTiming();
        }
        state.ResumeTiming();
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(batch_size) * state.iterations());
}
BENCHMARK(records_to_base)->Unit(benchmark::kMillisecond)->UseRealTime();

// A base that is full, with batches as they come later on.
void small_batch_into_full_base(benchmark::State& state) {
    full_engine full;
    record_batch batch;
    std::size_t number = batch_size;
    for (auto _ : state) {
        state.PauseTiming();
        batch.clear();
        add_messages(batch, number, 100);
        number += 100;
        full.append(batch);
        state.ResumeTiming();
        full.train();
    }
    state.SetItemsProcessed(100 * state.iterations());
}
BENCHMARK(small_batch_into_full_base)->Unit(benchmark::kMillisecond)->UseRealTime();

void base_generation(benchmark::State& state) {
    full_engine full;
    for (auto _ : state)
        dict_pair(full.engine_path("work\\base\\")).generate_base(full.engine_path("work\\base\\bench.rgd"));
    state.SetBytesProcessed(static_cast<std::int64_t>(fs::file_size(full.base() / "bench.rgd")) *
                            state.iterations());
}
BENCHMARK(base_generation)->Unit(benchmark::kMillisecond);

void atom_rewrite(benchmark::State& state) {
    full_engine full;
    fs::path largest;
    for (const auto& entry : fs::directory_iterator(full.base()))
        if (entry.path().extension() == ".bye" &&
            (largest.empty() || fs::file_size(entry) > fs::file_size(largest)))
            largest = entry.path();
    fs::create_directory(full.base() / "out");
    const auto changes = tokens(2000, 200'000, 5);
    for (auto _ : state) {
        bye_atom atom;
        atom.open(full.engine_path("work\\base\\" + largest.filename().string()));
        dword_map differences;
        for (const std::string& token : changes)
            differences.get_or_add(token)[0] = 1;
        if (!atom.rewrite(differences, full.engine_path("work\\base\\out"), true))
            state.SkipWithError("no atom was written");
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(fs::file_size(largest)) * state.iterations());
}
BENCHMARK(atom_rewrite)->Unit(benchmark::kMillisecond);

} // namespace
} // namespace tvr::bench
