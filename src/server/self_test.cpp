#include "server/self_test.h"

#include <array>
#include <cmath>
#include <initializer_list>
#include <random>
#include <string>
#include <string_view>

#include "common/file_names.h"
#include "common/file_stream.h"
#include "common/fileheader.h"
#include "common/logger.h"
#include "common/path.h"
#include "common/profiler.h"
#include "common/token_hash.h"
#include "compiled/hashreg.h"
#include "dict/hashmap.h"
#include "dict/message_record.h"
#include "platform/clock.h"
#include "platform/file.h"
#include "server/work_server.h"
#include "settings/settings.h"
#include "stage/temp_folder.h"
#include "transact/transaction.h"

namespace tvr {

namespace {

constexpr std::uint32_t header_signature = 0x12345678;
constexpr std::uint32_t behind_header = 0xCCCCCCCC;
constexpr std::uint32_t token_count = 100'000;
constexpr std::uint32_t longest_token = 250;
constexpr std::uint32_t patience = 60'000; // milliseconds
constexpr std::uint32_t some_time = 213'000'000;

// True if the condition holds; the log gets the text if it doesn't.
bool check(bool condition, const char* failure) {
    if (!condition)
        TVR_LOG(unit_test_log, "%s", failure);
    return condition;
}

// A header with two to four values, and the file it is read from.
struct header_reader {
    header_reader(const std::string& path, std::uint32_t signature,
                  std::initializer_list<std::uint32_t> defaults)
        : header(signature) {
        std::size_t i = 0;
        for (const std::uint32_t value : defaults)
            header.add(values.at(i++), value);
        opened = file.open_to_read(path);
    }
    bool is_behind_header() {
        std::uint32_t word = 0;
        return file.read_u32(word) && word == behind_header;
    }

    std::array<std::uint32_t, 4> values{1, 1, 1, 1};
    fileheader header;
    file_stream file;
    bool opened = false;
};

bool test_fileheader(const std::string& folder) {
    const std::string path = folder + "filehead.tst";
    std::array<std::uint32_t, 3> values{1, 1, 1};
    fileheader written(header_signature);
    written.add(values[0], 4).add(values[1], 5).add(values[2], 6);
    bool good = check(values == std::array<std::uint32_t, 3>{4, 5, 6},
                      "[-] add operation doesn't initialize default values");
    file_stream out;
    if (!out.create_to_write(path) || !written.write(out) || !out.write_u32(behind_header) || !out.close())
        return check(false, "[-] fileheader write returned false. Halting the further testing");

    const char* halt = "[-] fileheader read returned false. Halting the further testing";
    header_reader fewer(path, header_signature, {7, 8});
    if (!check(fewer.header.read(fewer.file), halt))
        return false;
    good &= check(fewer.is_behind_header(), "[-] fileheader with less value reads wrong size");
    header_reader more(path, header_signature, {5, 6, 7, 8});
    if (!check(more.header.read(more.file), halt))
        return false;
    good &= check(more.is_behind_header(), "[-] fileheader with more value reads wrong size");
    good &= check(more.values == std::array<std::uint32_t, 4>{4, 5, 6, 8},
                  "[-] fileheader with more value doesn't set the extra to default");

    header_reader foreign(path, header_signature + 1, {5, 6, 7});
    good &= check(!foreign.header.read(foreign.file), "[-] fileheader failed - it recepted wrong signature");
    good &= check(foreign.header.readheader_s(foreign.file, header_signature) &&
                      foreign.header.signature == header_signature + 1,
                  "[-] fileheader failed - it doesn read value with given signature");
    good &= check(foreign.is_behind_header(), "[-] fileheader with readheader_s value reads wrong size");

    std::uint32_t word = 0;
    header_reader hinted(path, header_signature + 1, {5, 6, 7});
    good &= check(hinted.file.read_u32(word) && !hinted.header.read(hinted.file, 2),
                  "[-] fileheader by hint instead of signature failed");
    if (!check(hinted.header.read(hinted.file, 3), halt))
        return false;
    return check(hinted.is_behind_header(), "[-] fileheader with hint reads wrong size") && good;
}

bool append_message(file_stream& cache, const char* msid, bool spam, const char* token) {
    message_record record;
    record.msid = msid;
    record.flags = spam ? message_flag::spam : 0;
    record.time = some_time;
    const std::uint32_t often = 9;
    return record.token_table._assign(token, &often) && record.write(cache);
}

// Folds a message of either kind into a base of its own, and looks at what is published.
bool test_transaction(transaction& pipeline, const std::string& folder) {
    close_statistic(); // so that these messages don't count
    settings& set = *current_settings();
    set.schema(schema_mode::basic_defaults);
    set.schema(schema_mode::advanced_defaults);
    set.working_directory.expanded = folder;
    const std::string base = folder + names::base_folder;
    platform::create_directory(base);
    platform::create_directory(base + "transact");
    file_stream cache;
    if (!cache.create_to_write(base + names::transact_folder + names::cache) || !cache.write_u32(2) ||
        !append_message(cache, "<spam>", true, "B offer") ||
        !append_message(cache, "<good>", false, "B meeting") || !cache.close())
        return check(false, "[-] the messages can't be written");

    pipeline.init();
    pipeline.force_retrain();
    const std::uint32_t start = platform::tick_count();
    while (!file_exists(base + names::base_mark)) {
        if (platform::tick_count() - start > patience)
            return check(false, "[-] no base was published");
        platform::sleep_for(5);
    }
    pipeline.shutdown();
    hashreg published;
    return check(published.load(base + names::base), "[-] the published base can't be read") &&
           check(published.header().spam_messages == 1 && published.header().nonspam_messages == 1,
                 "[-] the published base is of other messages") &&
           check(std::abs(published.grade("B offer") - 0.99) < 1e-6 &&
                     std::abs(published.grade("B meeting") - 0.01) < 1e-6,
                 "[-] the published base has other grades");
}

void fill_at_random(dword_map& map) {
    std::minstd_rand random(platform::tick_count() | 1U);
    std::string token;
    while (map.count() < token_count) {
        token.resize(1 + random() % longest_token);
        for (char& c : token)
            c = static_cast<char>(random() >> 8);
        const std::uint32_t value = static_cast<std::uint32_t>(random());
        if (!map._assign(token, &value))
            return;
    }
}

bool test_dword_map(const std::string& folder) {
    TVR_LOG(unit_test_log, "[i] hashmap_impl test");
    const std::string path = folder + "hashmap.tst";
    dword_map map;
    fill_at_random(map);
    const auto wanted = static_cast<int>(token_count);
    if (map.count() != token_count) {
        TVR_LOG(unit_test_log,
                "[-] test failed on 1-st stage: wrong number of elements added - %d (must be %d)",
                static_cast<int>(map.count()), wanted);
        return false;
    }
    TVR_LOG(unit_test_log,
            "[i] testing flush_ordered (%d elements) with timing. See also profiler.log for details", wanted);
    file_stream file;
    file.create_to_write(path);
    {
        const profiler watch("flush_ordered", true);
        map.flush_ordered(file);
    }
    file.close();
    if (!check(file.open_to_read(path) && map.init_from_file(file), "[-] init_from_file() failed"))
        return false;
    if (map.count() != token_count) {
        TVR_LOG(unit_test_log,
                "[-] test failed on 3-rd stage: wrong number of elements read (%d). Must be %d",
                static_cast<int>(map.count()), wanted);
        return false;
    }
    std::uint32_t last = 0;
    std::string_view key;
    std::uint8_t* value = nullptr;
    for (map.rewind(); map.next(key, value);) {
        const std::uint32_t hash = order_hash(key);
        if (hash < last) {
            TVR_LOG(unit_test_log, "[-] test failed: unordered values %d and %d", static_cast<int>(last),
                    static_cast<int>(hash));
            return false;
        }
        last = hash;
    }
    return true;
}

// A folder that is the current one as long as this lives.
class scratch_folder {
public:
    explicit scratch_folder(const std::string& path) : m_path(path), m_before(platform::current_directory()) {
        platform::create_directory(m_path);
        m_entered = platform::set_current_directory(m_path);
        if (m_entered)
            temp_folder::empty_folder(m_path); // what a test that died has left
    }
    ~scratch_folder() {
        if (!m_entered)
            return;
        platform::set_current_directory(m_before);
        temp_folder::empty_folder(m_path);
        platform::remove_directory(m_path);
    }
    scratch_folder(const scratch_folder&) = delete;
    scratch_folder& operator=(const scratch_folder&) = delete;

    [[nodiscard]] bool entered() const noexcept { return m_entered; }

private:
    std::string m_path;
    std::string m_before;
    bool m_entered = false;
};

} // namespace

void run_self_tests(transaction& pipeline) {
    TVR_LOG(default_log, "[i] running with /test key - only testing");
    logger::instance().rotate(unit_test_log);
    const std::string path = platform::temp_folder_path() + "tvrtest\\";
    const scratch_folder scratch(path);
    const bool usable = check(scratch.entered(), "[-] the scratch folder can't be entered");
    check(usable && test_fileheader(path), "[-] filehead test FAILED");
    check(usable && test_transaction(pipeline, path), "[-] transaction test FAILED");
    check(usable && test_dword_map(path), "[-] dword_map test FAILED");
    TVR_LOG(unit_test_log, "[i] all tests completed");
}

} // namespace tvr
