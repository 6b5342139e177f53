#include "stat/statistic.h"

#include <array>
#include <cstdlib>
#include <memory>
#include <new>

#include "common/minutes.h"
#include "support/log_lines.h"
#include "support/test.h"

namespace {

thread_local bool next_allocation_fails = false;

} // namespace

// Not in line, or the compiler would see a mismatch where there is none.
[[gnu::noinline]] void* operator new(std::size_t size) {
    void* const room =
        std::exchange(next_allocation_fails, false) ? nullptr : std::malloc(size + (size == 0));
    return room ? room : throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* room) noexcept {
    std::free(room);
}
[[gnu::noinline]] void operator delete(void* room, std::size_t) noexcept {
    std::free(room);
}

namespace tvr {
namespace {

using namespace std::literals;

// The eight fields in the order of the file: sizes of spam and good, the flagged ones, and the counts.
using fields = std::array<std::uint32_t, 8>;

fields fields_of(const statistic_record& r) {
    return {r.spam_size,  r.good_size,  r.flagged_spam_size,  r.flagged_good_size,
            r.spam_count, r.good_count, r.flagged_spam_count, r.flagged_good_count};
}

std::string entry(std::uint32_t hour, const fields& f) {
    return le(hour, f[0], f[1], f[2], f[3], f[4], f[5], f[6], f[7]);
}

constexpr fields ones = {1, 2, 3, 4, 5, 6, 7, 8};
constexpr fields more = {10, 20, 30, 40, 50, 60, 70, 80};
constexpr std::uint32_t none = 0U - 1; // a count taken from nothing
constexpr std::uint32_t no_bytes = 0U - 100;

std::uint32_t present_hour() {
    return now_minutes() / 60;
}

class statistic_test : public testing::Test {
protected:
    // Does `body` with the present hour, and again if that has changed meanwhile.
    template <class Body>
    void in_one_hour(Body&& body) {
        std::uint32_t hour = 0;
        do {
            hour = present_hour();
            object.reset();
            std::filesystem::remove(main);
            std::filesystem::remove(pending);
            object = std::make_unique<statistic>();
            body(hour);
        } while (hour != present_hour());
    }
    void add(std::uint32_t hour, std::uint32_t flags, bool is_correction, bool is_spam) {
        object->add_message({flags, 100, hour * 60 + 59}, is_correction, is_spam);
    }

    test_root root;
    log_lines log;
    std::string path = root.engine_path("stat.bin");
    std::filesystem::path main = root.path() / "stat.bin";
    std::filesystem::path pending = root.path() / "~stat.bin";
    std::unique_ptr<statistic> object;
};

TEST_F(statistic_test, counts_of_one_message) {
    struct {
        std::uint32_t flags; // 2 for spam, 8 counted apart
        bool is_correction;
        bool is_spam;
        fields counts;
    } const table[] = {
        {0, false, true, {100, 0, 0, 0, 1, 0, 0, 0}},
        {2, false, true, {100, 0, 0, 0, 1, 0, 0, 0}},
        {8, false, true, {100, 0, 100, 0, 1, 0, 1, 0}},
        {10, true, true, {100, 0, 100, 0, 1, 0, 1, 0}},
        {2, true, true, {100, no_bytes, 0, no_bytes, 1, none, 0, none}},
        {0, true, true, {100, no_bytes, 100, 0, 1, none, 1, 0}},
        {0, false, false, {0, 100, 0, 0, 0, 1, 0, 0}},
        {2, false, false, {0, 100, 0, 0, 0, 1, 0, 0}},
        {8, false, false, {0, 100, 0, 100, 0, 1, 0, 1}},
        {2, true, false, {no_bytes, 100, 0, 100, none, 1, 0, 1}},
        {0, true, false, {no_bytes, 100, no_bytes, 0, none, 1, none, 0}},
    };
    for (const auto& row : table)
        in_one_hour([&](std::uint32_t hour) {
            object->read(path);
            add(hour, row.flags, row.is_correction, row.is_spam);
            EXPECT_EQ(read_file(pending), "STAT" + entry(hour, row.counts)) << &row - table;
            EXPECT_FALSE(std::filesystem::exists(main));
        });
}

TEST_F(statistic_test, hours_are_apart_and_in_order) {
    in_one_hour([&](std::uint32_t hour) {
        object->read(path);
        add(hour, 4, false, true);
        add(hour, 14, true, false);
        EXPECT_FALSE(std::filesystem::exists(pending)) << "manual marks don't count";
        add(hour, 0, false, true);
        add(hour - 2, 0, false, false);
        object->add_message({0, 7, hour * 60}, false, true);
        EXPECT_EQ(read_file(pending), "STAT" + entry(hour - 2, {0, 100, 0, 0, 0, 1, 0, 0}) +
                                          entry(hour, {107, 0, 0, 0, 2, 0, 0, 0}));
    });
}

TEST_F(statistic_test, reads_whole_entries_alone) {
    struct {
        const char* what;
        std::string bytes;
        fields sum;
    } const table[] = {
        {"one", "STAT" + entry(1, ones), ones},
        {"two", "STAT" + entry(1, ones) + entry(2, more), {11, 22, 33, 44, 55, 66, 77, 88}},
        {"one twice", "STAT" + entry(1, ones) + entry(1, more), more},
        {"cut", "STAT" + entry(1, ones) + entry(2, more).substr(0, 35), ones},
        {"no entries", "STAT", {}},
        {"empty", "", {}},
        {"magic", "STAt" + entry(1, ones), {}},
    };
    for (const auto& row : table)
        for (const auto& file : {main, pending})
            in_one_hour([&](std::uint32_t) {
                write_file(file, row.bytes);
                object->read(path);
                statistic_record sum;
                object->get_period(0x7FFFFFFF, sum);
                EXPECT_EQ(fields_of(sum), row.sum) << row.what;
            });
}

TEST_F(statistic_test, sixty_days_are_kept) {
    in_one_hour([&](std::uint32_t hour) {
        const std::string bytes = "STAT" + entry(5, ones) + entry(hour - 1440, ones) +
                                  entry(hour - 1439, more) + entry(hour, ones) + entry(hour + 1, more) +
                                  entry(0xFFFFFFFF, more);
        const std::string kept = "STAT" + entry(hour - 1439, more) + entry(hour, ones);
        write_file(main, bytes);
        write_file(pending, bytes);
        object->read(path);
        object->save_transaction();
        EXPECT_EQ(read_file(pending), kept);
        EXPECT_EQ(read_file(main), bytes);
        // In both tables. The next hour is -1 hours old, and so never too old.
        const std::pair<std::int32_t, std::uint32_t> table[] = {
            {-1, 0}, {0, 20}, {1, 22}, {1439, 22}, {1440, 42}, {1441, 44}, {0x7FFFFFFF, 66}};
        for (const auto& [hours, spam_size] : table) {
            statistic_record sum;
            object->get_period(hours, sum);
            EXPECT_EQ(sum.spam_size, spam_size) << hours;
        }
        object.reset();
        EXPECT_EQ(read_file(pending), kept);
        EXPECT_EQ(read_file(main), bytes);
    });
}

TEST_F(statistic_test, pending_counts_survive_until_they_are_moved) {
    in_one_hour([&](std::uint32_t hour) {
        write_file(main, "STAT" + entry(hour, more));
        write_file(pending, "STAT" + entry(hour, ones) + entry(hour - 1, {}));
        object->read(path);
        add(hour, 0, false, true);
        const std::string both = "STAT" + entry(hour - 1, {}) + entry(hour, {101, 2, 3, 4, 6, 6, 7, 8});
        EXPECT_EQ(read_file(pending), both);
        object = std::make_unique<statistic>();
        object->read(path);
        object->commit_transaction();
        EXPECT_FALSE(std::filesystem::exists(pending));
        const std::string moved = "STAT" + entry(hour, {111, 22, 33, 44, 56, 66, 77, 88});
        EXPECT_EQ(read_file(main), moved);
        // From now on the main file is written each time.
        std::filesystem::remove(main);
        add(hour, 0, false, false);
        EXPECT_EQ(read_file(main), moved);
        object->clear_transaction();
        EXPECT_TRUE(std::filesystem::exists(pending));
        object->save_transaction();
        EXPECT_FALSE(std::filesystem::exists(pending));
    });
}

TEST_F(statistic_test, an_exception_reaches_the_log_where_there_is_no_desktop) {
    object = std::make_unique<statistic>();
    object->read(path);
    add(present_hour(), 0, false, true);
    log.take();
    next_allocation_fails = true;
    add(present_hour(), 0, false, true);
    next_allocation_fails = true;
    object->save_transaction();
    EXPECT_EQ(log.take(),
              (std::vector<std::string>{
                  "Exception in Tessivar: Exception in statistic::backup: step = 00000006\nFilename: " +
                      root.engine_path("~stat.bin"),
                  "Exception in Tessivar!: Exception in statistic::save_transaction: step = 00000002"}));
}

} // namespace
} // namespace tvr
