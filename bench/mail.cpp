// Reading and cutting mail: the public corpus if it is there, otherwise the sample mails.

#include <benchmark/benchmark.h>

#include <filesystem>

#include "client/mail/mail_reader.h"
#include "client/tokenizer.h"
#include "support/file_bytes.h"

namespace tvr::bench {
namespace {

namespace fs = std::filesystem;

struct mails {
    std::vector<std::string> all;
    std::int64_t bytes = 0;

    mails() {
        const char* const folder = fs::exists(TVR_CORPUS) ? TVR_CORPUS : TVR_SAMPLE_MAIL;
        for (const auto& entry : fs::recursive_directory_iterator(folder))
            if (entry.path().extension() == ".txt" || entry.path().extension() == ".eml") {
                all.push_back(read_file(entry.path()));
                bytes += static_cast<std::int64_t>(all.back().size());
            }
    }
};

template <class work_T>
void for_all_mails(benchmark::State& state, const work_T& work) {
    static const mails given;
    for (auto _ : state)
        for (const std::string& mail : given.all)
            work(mail);
    state.SetBytesProcessed(given.bytes * state.iterations());
    state.SetItemsProcessed(static_cast<std::int64_t>(given.all.size()) * state.iterations());
}

// Takes the mail apart and decodes all of its text.
class looker final : public mail_visitor {
public:
    void header(std::string_view, std::string_view) override {}
    void end_of_headers() override {}
    void multipart(std::string_view) override {}
    void message(std::string_view) override {}
    std::size_t part(const mail_part&) override { return std::size_t{1} << 20; }
    void text(const mail_part&, std::string_view decoded) override {
        benchmark::DoNotOptimize(decoded.data());
    }
};

void mail_reading(benchmark::State& state) {
    mail_reader reader;
    looker visitor;
    for_all_mails(state,
                  [&](const std::string& mail) { benchmark::DoNotOptimize(reader.read(mail, visitor)); });
}
BENCHMARK(mail_reading)->Unit(benchmark::kMillisecond);

void mail_reading_and_cutting(benchmark::State& state) {
    tokenizer cutter;
    for_all_mails(state, [&](const std::string& mail) {
        cutter.tokenize(mail);
        benchmark::DoNotOptimize(cutter.tokens().size());
    });
}
BENCHMARK(mail_reading_and_cutting)->Unit(benchmark::kMillisecond);

} // namespace
} // namespace tvr::bench
