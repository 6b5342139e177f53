// Seeds: every file that the engine makes on its way from some mails to a published base.

#include <algorithm>
#include <filesystem>
#include <sstream>

#include "client/cache_writer.h"
#include "client/tokenizer.h"
#include "client/verdict/verdict_file.h"
#include "common/minutes.h"
#include "common/path.h"
#include "memory_disk.h"
#include "settings/settings_file.h"
#include "stage/temp_folder.h"
#include "stat/statistic.h"
#include "support/file_bytes.h"
#include "targets.h"
#include "tools/base_text/base_text.h"
#include "tools/mail/record_stream.h"

namespace tvr::fuzz {

namespace {

using namespace std::string_literals;
using namespace std::string_view_literals;

constexpr std::size_t mails_of_each = 12;
constexpr std::size_t batch_size = 8;

struct mail {
    std::string text;
    bool spam = false;
};

// The smaller mails of both folders, in turn.
std::vector<mail> read_mails(const std::string& folder) {
    std::vector<mail> all;
    for (const bool spam : {false, true}) {
        std::vector<std::filesystem::path> paths;
        for (const auto& entry : std::filesystem::directory_iterator(folder + (spam ? "/spam" : "/ham")))
            paths.push_back(entry.path());
        std::ranges::sort(paths, {}, [](const auto& path) { return std::pair(file_size(path), path); });
        paths.resize(std::min(paths.size(), mails_of_each));
        for (const auto& path : paths)
            all.push_back({read_file(path), spam});
    }
    std::ranges::stable_sort(all, {}, [](const mail& each) { return each.text.size(); });
    return all;
}

// Which targets read a file of that name: by its end, or its beginning.
std::vector<const char*> readers_of(std::string_view name) {
    static const std::pair<std::string_view, std::vector<const char*>> readers[] = {
        {".bye", {"atom", "generation"}},
        {".col", {"columns"}},
        {".rgd", {"base"}},
        {".lst", {"list"}},
        {".idx", {"index"}},
        {".bys", {"cache", "batch"}},
        {"dis", {"cache", "batch"}},
        {"stat.bin", {"statistic"}},
    };
    for (const auto& [part, targets] : readers)
        if (name.ends_with(part) || name.starts_with(part))
            return targets;
    return {};
}

} // namespace

std::map<std::string, std::vector<std::string>> make_seeds(const std::string& mail_folder) {
    std::map<std::string, std::vector<std::string>> seeds;
    const auto add = [&](const char* target, const std::string& bytes) {
        auto& all = seeds[target];
        if (std::find(all.begin(), all.end(), bytes) == all.end())
            all.push_back(bytes);
    };
    clear_disk();
    kept_files files;
    keep_deleted(&files);
    settings& set = start_settings();
    set.optimal_one_dict_size = set.min_optimal_one_dict_size = 3;
    set.optimal_base_size_per_half = 9;
    const std::string cache = in_base("transact\\autotrain.bys");
    put_file(in_base("transact\\there"), "");
    {
        statistic counters;
        counters.read(std::string(working_folder) + "stat.bin");
        tokenizer cutter({.tokens = 40});
        std::size_t taken = 0;
        std::ostringstream records;
        record_writer stream(records);
        for (const mail& each : read_mails(mail_folder)) {
            cutter.tokenize(each.text);
            record_batch batch;
            batch.add(describe(cutter.facts(), each.text.size(), each.spam, false), cutter.tokens());
            cache_writer(cache).append(batch);
            if (taken < batch_size)
                stream.write(batch);
            add("mail", each.text);
            add("reader", each.text);
            if (each.text.find("<html") != std::string::npos || each.text.find("<HTML") != std::string::npos)
                add("html", each.text);
            if (++taken % batch_size == 0)
                train();
        }
        train();
        stream.finish();
        add("records", records.str());
    }
    keep_deleted(nullptr);
    for (const std::string& path : all_files())
        files.emplace_back(path, file_bytes(path));

    temp_folder folder(in_base("transact\\"));
    std::string archive;
    unsigned archived = 0;
    for (const auto& [path, bytes] : files) {
        const std::string name(file_part(path));
        for (const char* reader : readers_of(name)) {
            add(reader, bytes);
            if (name.ends_with(".col")) {
                folder.prepare(2);
                put_file(folder.path_of(2, name), bytes);
                folder.pack(archive, 2);
                add("archive", file_bytes(archive));
                if (++archived == 1) // tag, length and name stand before the packed file
                    add("packed", file_bytes(archive).substr(4 + name.size()));
            }
        }
        if (name.ends_with(".bye") && bytes.size() > 28) {
            add("map", bytes.substr(28));
            // The older form.
            add("generation", le(0x19780702, 3) + bytes.substr(8, 12) + bytes.substr(36));
            add("atom", bytes.substr(0, 20) + le(0, 0) + bytes.substr(28));
        }
    }
    add("packed", le(5) + "plain");
    std::string hours = "STAT"; // the mails are too old for it
    for (std::uint32_t hour = now_minutes() / 60 - 30; hour < now_minutes() / 60; hour += 10)
        hours += le(hour, hour % 100) + std::string(28, '\2');
    add("statistic", hours);

    // What follows the check, but for the memory.
    verdict_state verdict{.judged = 9, .trust = 0.5, .recent_ham = 2, .ham_scores = {300, -20}};
    for (unsigned i = 0; i < 4; ++i) {
        judged_message message{.id = i, .time = 213000000 + i, .spam = i % 2 == 0, .what = {}};
        message.what.by_base.counts[i % kind_count].fill(static_cast<std::uint8_t>(50 + 30 * i));
        message.what.by_all.counts[i % 3].fill(static_cast<std::uint8_t>(3 * i));
        message.what.memory = static_cast<std::int16_t>(400 - 300 * static_cast<int>(i));
        message.score = message.learned_score = message.what.memory;
        verdict.messages.push_back(message);
        const auto bytes = verdict_bytes(verdict);
        add("verdict", std::string(bytes.begin() + 16, bytes.begin() + 1120) +
                           std::string(bytes.begin() + verdict_messages_at, bytes.end()));
    }
    for (const char* op : {"hello", "put", "grade", "explain", "correct", "forget", "status", "learn-end"})
        add("host", std::string(R"({"id":1,"op":"learn-folder","spam":true})") + "\n" + R"({"id":2,"op":")" +
                        op +
                        R"(","put":7,"mail":"U3ViamVjdDogeAoKYWJj","spam":false,"size":99,"set":{"a":1}})" +
                        "\n" + R"({"id":3,"op":"learn","put":7})");

    base_text_sum sum;
    std::string text;
    static_cast<void>(export_base(
        std::string(base_folder), [&](std::string_view line) { return text += line, true; }, sum));
    add("import", text);
    add("import",
        "tessivar-base\t1\n"
        "atom\tnspamdict0000\tmessages=2\ttokens=2\toccurrences=9\toldest=213000000\tnewest=0\tids=1\n"
        "token\tnspamdict0000\t7\tB \\xE4\\\\\n"
        "token\tnspamdict0000\t2\tB zz\n"
        "atom-id\tnspamdict0000\t213000000\t<a>\n"
        "message\tnspamdict\t213000000\t<a>\n"
        "# a comment\n"
        "atom\tspamdict0000\tmessages=1\ttokens=0\toccurrences=0\toldest=1\tnewest=2\tids=-\n"
        "message\tspamdict\t1\t<b>\n"
        "message\tspamdict\t2\t<c>\n"
        "end\t9\n");

    const std::string path = "\\work\\settings.cfg";
    const std::string copy = "\\work\\advanced.ini";
    set.save(&path, &copy, store_binary | store_text);
    add("settings", file_bytes(path));
    add("text", file_bytes(copy));
    add("text", "; seed\nWorking Directory = %appdata%\\x ; there\nlog grades=\"0\"\n");
    add("flat", set.flat_export());
    add("flat", set.flat_export("log grades\0filter log\0\0"sv));
    std::string table;
    for (int c = 255; c >= 0; --c)
        table += static_cast<char>(c);
    add("transliteration", std::string(1, '\x60') + table);
    add("logs", "2006/01/02 10:00:00   [i] one\r\nreason\r\n2006/01/02 10:00:02   [i] two\r\n\0"
                "2006/01/02 10:00:01   [-] three\n\n\nshort\n\0"
                "2006/01/02 10:00:01   x\n"s);
    unsigned char kind = 0;
    for (const char* reader : {"atom", "base", "", "list", "index", "columns", "cache", "cache", "statistic",
                               "", "archive", "settings"}) {
        const auto found = seeds.find(reader);
        if (found != seeds.end())
            add("inspect", std::string(1, static_cast<char>(kind)) + found->second.back());
        ++kind;
    }
    kind = 0;
    for (const char* reader : {"cache", "atom", "list", "index"})
        add("training", std::string(1, static_cast<char>(kind++)) + seeds[reader].back());
    clear_disk();
    return seeds;
}

} // namespace tvr::fuzz
