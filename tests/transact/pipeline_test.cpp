// The whole pipeline in one process, against a model that shares no code with it.

#include <random>

#include "model.h"
#include "msid/msidmap.h"
#include "platform/clock.h"
#include "support/atom_bytes.h"
#include "support/test.h"
#include "transact/transaction.h"

namespace tvr {
namespace {

namespace fs = std::filesystem;

constexpr std::uint32_t first_time = 213'000'000; // 2005, in minutes since 1601

// A transaction on a working directory of its own.
class pipeline : public testing::TestWithParam<unsigned> {
protected:
    pipeline() {
        fs::create_directories(m_base / "transact");
        auto& set = default_settings();
        set.working_directory.expanded = m_root.engine_path("work") + "\\";
        set.optimal_base_size_per_half = m_limits.base_size;
        set.optimal_one_dict_size = m_limits.dict_size;
        set.min_optimal_one_dict_size = m_limits.min_size;
        set.regarding_threshold = m_limits.weight;
        m_transaction.init();
    }
    ~pipeline() override { m_transaction.shutdown(); }

    // Hands a batch to the engine and waits until its base is published.
    void train(const std::vector<model::message>& batch) {
        write_file(m_base / "transact" / "autotrain.bys", model::cache_file(batch));
        fs::remove(m_base / "cashe.mrk");
        m_transaction.force_retrain();
        while (!fs::exists(m_base / "cashe.mrk") || fs::file_size(m_base / "cashe.mrk") != 8)
            platform::sleep_for(1);
    }

    void expect_half(const model::half& half) {
        files expected;
        for (const model::atom& atom : half.atoms)
            expected[atom.name] = atom.file();
        files found = folder_content(m_base);
        std::erase_if(found, [&](const auto& file) {
            return !file.first.starts_with(half.name) || !file.first.ends_with(".bye");
        });
        EXPECT_EQ(found, expected) << half.name;
        msidmap map(m_root.engine_path("work\\base\\"), half.name);
        for (const auto& [msid, time] : half.msids)
            EXPECT_EQ(map.search(msid), time) << msid;
    }

    test_root m_root;
    fs::path m_base = m_root.path() / "work" / "base";
    const model::limits m_limits{.base_size = 60, .dict_size = 12, .min_size = 3, .weight = 1.8};
    transaction m_transaction;
};

// Messages with a skewed vocabulary, in which many tokens share a hash and some have bytes above 127.
class mail_source {
public:
    explicit mail_source(unsigned seed) : m_random(seed) {}

    std::vector<model::message> batch(unsigned size, std::uint32_t day) {
        std::vector<model::message> messages;
        for (unsigned i = 0; i < size; ++i)
            messages.push_back(next(day));
        messages.front().time = first_time + day * 1440; // one good date at least
        messages.front().deleted = false;
        return messages;
    }

private:
    unsigned below(unsigned limit) { return std::uniform_int_distribution<unsigned>(0, limit - 1)(m_random); }

    std::string token(bool spam) {
        const unsigned rank = below(1 + below(60));
        std::string text = (rank % 3 == 0 ? "H " : spam ? "B s" : "B g") + std::to_string(rank / 2);
        text += static_cast<char>(rank % 2 == 0 ? 'a' : 0xE4); // the last byte doesn't reach the hash
        return text;
    }

    model::message next(std::uint32_t day) {
        model::message m;
        m.spam = below(2) == 0;
        m.deleted = below(12) == 0;
        m.manual = below(10) == 0;
        m.time = below(15) == 0 ? below(20000) : first_time + day * 1440 + below(1440);
        // Now and then an ID comes back, perhaps with the other verdict.
        m.msid = "<" + std::to_string(below(9) == 0 ? below(m_serial + 1) : m_serial) + "@mail>_0123ABCD";
        ++m_serial;
        std::map<std::string, std::uint32_t> counts;
        for (unsigned i = 0, n = 1 + below(25); i < n; ++i)
            counts[token(m.spam)] += 1 + below(3);
        m.tokens.assign(counts.begin(), counts.end());
        std::shuffle(m.tokens.begin(), m.tokens.end(), m_random);
        return m;
    }

    std::mt19937 m_random;
    unsigned m_serial = 0;
};

TEST_P(pipeline, AgreesWithModelOverManyTransactions) {
    model::engine expected(m_limits);
    mail_source source(GetParam());
    for (std::uint32_t day = 0; day < 12; ++day) {
        const auto batch = source.batch(day == 0 ? 5 : 10 + 6 * (day % 5), day);
        train(batch);
        expected.train(batch);
        ASSERT_EQ(read_file(m_base / "cashe.rgd"), expected.compiled_base()) << "day " << day;
        expect_half(expected.spam);
        expect_half(expected.good);
        for (const char* stage : {"0001", "0002", "0003", "0004", "0006"})
            EXPECT_FALSE(fs::exists(m_base / "transact" / stage)) << stage;
        ASSERT_FALSE(HasFailure()) << "day " << day;
    }
    EXPECT_LE(expected.spam.total(), m_limits.base_size + m_limits.dict_size);
}

INSTANTIATE_TEST_SUITE_P(Seeds, pipeline, testing::Values(1U, 2U, 3U, 4U));

} // namespace
} // namespace tvr
