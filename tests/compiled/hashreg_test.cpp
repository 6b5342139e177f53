// The compiled base as its readers see it, from files by hand.

#include "compiled/hashreg.h"
#include "platform/file.h"
#include "platform/profile.h"
#include "support/log_lines.h"
#include "support/test.h"

namespace tvr {
namespace {

constexpr std::uint32_t half = 0x3F000000;
constexpr std::uint32_t highest = 0x3F7D70A4; // 0.99

std::string base_bytes(std::uint32_t signature, std::uint32_t count, std::string_view entries) {
    return le(signature, 8, 10, 20, 300, 400, 1, 2, 3, 4, count, entries.size()).append(entries);
}
const std::string two = counted("B ab", highest) + counted("H x", half);

struct Reader : testing::Test {
    bool load(const std::string& bytes) {
        write_file(m_root.path() / "cashe.rgd", bytes);
        return m_base.load(m_path);
    }
    void set_time(std::uint64_t time) {
        platform::file file;
        ASSERT_TRUE(file.open(m_path, platform::access::write, platform::share::none,
                              platform::creation::open_existing));
        ASSERT_TRUE(file.set_last_write_time(time));
    }

    test_root m_root;
    std::string m_path = m_root.engine_path("cashe.rgd"), m_absent = m_root.engine_path("absent");
    hashreg m_base;
};

TEST_F(Reader, GradesTokens) {
    EXPECT_EQ(m_base.grade("B ab"), 0.0);
    ASSERT_TRUE(load(base_bytes(0x4A534144, 2, two)));
    EXPECT_FLOAT_EQ(static_cast<float>(m_base.grade("B ab")), 0.99F);
    EXPECT_EQ(m_base.grade("H x"), 0.5);
    EXPECT_EQ(m_base.grade("B abc"), 0.0);
    EXPECT_EQ(m_base.grade(""), 0.0);
    EXPECT_EQ(m_base.header().spam_messages, 20U);
    ASSERT_TRUE(load(base_bytes(0x49534144, 1, counted("B ab", half)))); // the deprecated form
    EXPECT_EQ(m_base.grade("B ab"), 0.5);
    EXPECT_EQ(m_base.grade("H x"), 0.0);
    ASSERT_TRUE(load(base_bytes(0x4A534144, 0, "")));
    EXPECT_EQ(m_base.grade("B ab"), 0.0);
}

TEST_F(Reader, RefusesWhatIsNoBase) {
    const std::string whole = base_bytes(0x4A534144, 2, two);
    for (const std::string& bytes :
         {std::string(), whole.substr(0, 3), base_bytes(0x4A534145, 2, two), whole.substr(0, 44)}) {
        ASSERT_TRUE(load(whole));
        EXPECT_FALSE(load(bytes)) << bytes.size();
        EXPECT_EQ(m_base.grade("B ab"), 0.0);
    }
    ASSERT_TRUE(load(whole));
    EXPECT_FALSE(m_base.load(m_absent));
}

TEST_F(Reader, TellsWhatItMakesOfAFile) {
    log_lines log;
    const std::string begins = "[i] hashreg::__tryloadcashe";
    const std::string deprecated = "[i] file is not valid. Checking if it is just deprecated...";
    const std::string neither = "[-] file is neither valid, nor deprecated. We are failed...";
    using lines = std::vector<std::string>;
    const std::pair<std::string, lines> cases[] = {
        {base_bytes(0x4A534144, 2, two), {begins}},
        {base_bytes(0x49534144, 2, two), {begins, deprecated}},
        {le(0x4A534144, 31) + std::string(200, 'x'), {begins, deprecated, neither}},
        {le(0x4A534144, 0, 3, 2), {begins, "[-] init_from_file failed..."}},
    };
    for (const auto& [bytes, logged] : cases) {
        EXPECT_EQ(load(bytes), !logged.back().starts_with("[-]"));
        EXPECT_EQ(log.take(), logged);
    }
    EXPECT_FALSE(m_base.load(m_absent));
    const std::string fails = "[-] file_read(" + m_absent + ") failed: 0x0000000000000002";
    EXPECT_EQ(log.take(), (lines{begins, fails}));
    EXPECT_FALSE(m_base.is_file_fresher(m_absent));
    EXPECT_EQ(log.take(), lines{fails});
    m_base.say_status_to_ini();
    EXPECT_EQ(log.take(), lines{"[-] hashreg::say_status_to_ini - object NOT initialized"});
}

// deliberate: the words of the time are compared each by itself.
TEST_F(Reader, ComparesTimesByWords) {
    const std::uint64_t high = std::uint64_t{0x01C00000} << 32;
    const struct {
        std::uint64_t loaded, file;
        bool fresher;
    } cases[] = {
        {high + 1000, high + 1000, false},
        {high + 1000, high + 1001, true},
        {high + 1000, high + 999, false},
        {high + 50, high - (std::uint64_t{1} << 32) + 100, true},
        {high + 200, high - (std::uint64_t{1} << 32) + 100, false},
        {high + 200, high + (std::uint64_t{1} << 32) + 100, true},
    };
    for (const auto& test : cases) {
        ASSERT_TRUE(load(base_bytes(0x4A534144, 0, "")));
        set_time(test.loaded);
        ASSERT_TRUE(m_base.load(m_path));
        std::uint64_t time = 0;
        m_base.get_loaded_time(&time);
        EXPECT_EQ(time, test.loaded);
        set_time(test.file);
        EXPECT_EQ(m_base.is_file_fresher(m_path), test.fresher);
    }
    m_base.get_loaded_time(nullptr);
    EXPECT_TRUE(m_base.load("")); // forgets the time alone
    EXPECT_TRUE(m_base.is_file_fresher(m_path));
    EXPECT_FALSE(m_base.is_file_fresher(m_absent));
}

TEST_F(Reader, TellsTheTotals) {
    m_base.say_status_to_ini();
    const auto path = m_root.path() / "common/Orvenix/Brackenhold/tessivar_stat.ini";
    const std::string ini = m_root.engine_path("common\\Orvenix\\Brackenhold\\tessivar_stat.ini");
    EXPECT_FALSE(std::filesystem::exists(path));
    std::filesystem::create_directories(path.parent_path());
    ASSERT_TRUE(load(base_bytes(0x4A534144, 2, two)));
    m_base.say_status_to_ini();
    const std::pair<const char*, int> totals[] = {
        {"NonSpamLetters", 10}, {"SpamLetters", 20}, {"NonSpamWords", 400}, {"SpamWords", 300}};
    for (const auto& [key, total] : totals)
        EXPECT_EQ(platform::profile_int("DbStatus", key, -1, ini), total);
}

} // namespace
} // namespace tvr
