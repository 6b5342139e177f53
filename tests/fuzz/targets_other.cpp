// Counters, archives, logs, mail, the base as text, the onlooker's view of all files, and the stores of the
// settings.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <functional>
#include <memory>
#include <ostream>
#include <sstream>

#include <nlohmann/json.hpp>

#include "client/cache_writer.h"
#include "client/html_text.h"
#include "client/mail/charset.h"
#include "client/mail/mail_reader.h"
#include "client/record_batch.h"
#include "client/tokenizer.h"
#include "client/verdict/judge.h"
#include "common/bytes.h"
#include "common/file_stream.h"
#include "common/zfile.h"
#include "dict/message_record.h"
#include "memory_disk.h"
#include "server/log_merge.h"
#include "settings/storage.h"
#include "settings/transliteration.h"
#include "stage/temp_folder.h"
#include "stat/statistic.h"
#include "targets.h"
#include "tools/base_text/base_text.h"
#include "tools/formats/inspection.h"
#include "tools/host/host_session.h"
#include "tools/mail/record_stream.h"
#include "tools/settings/setting_file.h"
#include "tools/state/engine_view.h"
#include "tools/state/state_check.h"

namespace tvr::fuzz {

namespace {

const target statistic_target("statistic", {4096}, [](raw_bytes input) {
    put_file("\\work\\stat.bin", input);
    put_file("\\work\\~stat.bin", input);
    statistic counters;
    counters.read("\\work\\stat.bin");
    counters.add_message({2, 100, 213'000'000}, true, true);
    counters.add_message({0, 100, 213'000'000}, true, false);
    counters.save_transaction();
    statistic_record sum;
    counters.get_period(24, sum);
    counters.commit_transaction();
    counters.close();
    must(file_bytes("\\work\\stat.bin").size() <= input.size() * 2 + 40, "no more hours than there were");
});

const target archive_target("archive", {4096}, [](raw_bytes input) {
    put_file("\\work\\data.trr", input);
    static temp_folder folder("\\work\\base\\transact\\"); // loads zlib only once
    folder.prepare(2);
    folder.unpack(2, "\\work\\data.trr");
    for (const std::string& path : all_files())
        must(path.starts_with("\\work\\base\\transact\\0002\\") || path == "\\work\\data.trr" ||
                 path == "\\work\\base\\transact\\there",
             "nothing is restored outside of the folder");
    std::string packed;
    folder.pack(packed, 2);
    folder.prepare(3);
    folder.unpack(3, packed);
    folder.remove(2);
    folder.remove(3);
});

const target packed_target("packed", {4096}, [](raw_bytes input) {
    static zlib_loader zlib;
    static const bool loaded = zlib.load("zlib1.dll");
    must(loaded, "zlib is there");
    put_file("\\work\\packed", input);
    file_stream file;
    file.open_to_read("\\work\\packed");
    if (zlib.restore_file(file, "\\work\\plain"))
        must(file_bytes("\\work\\plain").size() <= input.size() * 1032 + 1024, "zlib packs no better");
    std::array<std::uint8_t, 4096> room;
    auto size = static_cast<std::uint32_t>(room.size());
    zlib.uncompress_block(input, room.data(), size);
    must(size <= room.size(), "no more than there is room for");
    static_cast<void>(zlib_loader::unpacked_size(input));
});

// A log for each part between two zero bytes.
const target logs_target("logs", {16384}, [](raw_bytes input) {
    constexpr std::array<const char*, 3> names = {"tvr_ipc.log", "tvr_srv.log", "transact.log"};
    std::string_view rest = text_of(input);
    for (const char* name : names) {
        const std::string_view part = rest.substr(0, rest.find('\0'));
        put_file("\\work\\" + std::string(name), part);
        rest.remove_prefix(std::min(rest.size(), part.size() + 1));
    }
    merge_logs("\\work");
    // A mark and a line's end for each line, which has one byte at least.
    must(file_bytes("\\work\\common.log").size() <= 12 * input.size(), "each line once");
});

const target html_target("html", {8192}, [](raw_bytes input) {
    static html_text html;
    html.strip(text_of(input));
    must(html.text().size() <= 4 * input.size() + 64, "the text is no longer than its source");
    must(html.links().size() <= html_text::most_links, "links have a bound");
});

// Takes every text, and looks at what is told of it.
class reader_probe final : public mail_visitor {
public:
    std::size_t bytes = 0;
    void header(std::string_view name, std::string_view value) override {
        must(!name.empty(), "a field has a name");
        must(is_utf8(m_words.decode(value)), "decoded words are UTF-8");
    }
    void end_of_headers() override {}
    void multipart(std::string_view) override {}
    void message(std::string_view subject) override { must(is_utf8(subject), "a subject is UTF-8"); }
    std::size_t part(const mail_part&) override { return wanted; }
    void text(const mail_part& part, std::string_view decoded) override {
        must(decoded.size() <= wanted, "no more text than was wanted");
        bytes += decoded.size();
        const std::string_view text = to_utf8(decoded, part.charset.value_or(""), m_room);
        must(is_utf8(text) && text.size() <= 3 * decoded.size(), "any text has its UTF-8");
    }

private:
    static constexpr std::size_t wanted = 4096;
    word_decoder m_words;
    std::string m_room;
};

const target reader_target("reader", {16384}, [](raw_bytes input) {
    static mail_reader reader;
    reader_probe probe;
    must(reader.read(text_of(input), probe) <= mail_limits().parts, "parts have a bound");
    // An attached mail may be told twice: encoded as it is, and opened.
    must(probe.bytes <= 2 * input.size(), "no text is told again and again");
});

const target mail_target("mail", {16384}, [](raw_bytes input) {
    static tokenizer cutter;
    cutter.tokenize(text_of(input));
    static_cast<void>(looks_like_mail(text_of(input)));
    must(cutter.tokens().size() <= tokenizer_limits().tokens, "tokens have a bound");
    record_batch batch;
    must(batch.add(describe(cutter.facts(), input.size(), true, false), cutter.tokens()),
         "any mail can be trained");
});

const target import_target("import", {32768}, [](raw_bytes input) {
    std::istringstream text{std::string(text_of(input))};
    base_text_sum sum;
    const std::string why = import_base(
        std::string(base_folder), text, [] { return std::string(); }, sum);
    must(why.empty() == has_file(in_base("transact\\0003\\prepared.txt")), "all of it, or nothing");
    if (!why.empty())
        return;
    // What was taken must come out again as it is. It stands in the folder of each half.
    for (const char* name : {"nspamdict", "spamdict"})
        for (const std::string& path : all_files())
            if (path.find(std::string("\\") + name) != std::string::npos)
                put_file(in_base(path.substr(path.rfind('\\') + 1)), file_bytes(path));
    base_text_sum exported;
    const auto drop = [](std::string_view) { return true; };
    must(export_base(std::string(base_folder), drop, exported).empty(), "an imported base can be exported");
    must(exported.atoms == sum.atoms && exported.tokens == sum.tokens && exported.messages == sum.messages,
         "with all that it has");
});

// Training records that another program has made.
const target records_target("records", {16384}, [](raw_bytes input) {
    std::istringstream stream{std::string(text_of(input))};
    record_reader reader(stream);
    record_batch batch;
    while (reader.next(batch))
        must(batch.bytes().size() <= input.size(), "no more records than the stream has");
    must(!reader.error().empty() || reader.position() == input.size(),
         "what isn't damaged is read to its end");
    const std::string path = in_base("transact\\autotrain.bys");
    must(cache_writer(path).append(batch) == append_result::done, "records can be appended");
    message_record record;
    file_stream cache;
    cache.open_to_read(path);
    cache.seek(4, platform::origin::begin);
    for (std::uint32_t i = 0; i < batch.count(); ++i)
        must(record.read_whole(cache), "each record is one for the engine");
});

// The first byte says which file of the working directory it is. All onlookers of tvrctl see it.
const target inspect_target("inspect", {16384}, [](raw_bytes input) {
    constexpr std::array<const char*, 12> names = {"base\\spamdict0000.bye",
                                                   "base\\cashe.rgd",
                                                   "base\\cashe.mrk",
                                                   "base\\spamdict.lst",
                                                   "base\\spamdict.idx",
                                                   "base\\transact\\0002\\spamdict.col",
                                                   "base\\transact\\autotrain.bys",
                                                   "base\\transact\\~autotrain.bys",
                                                   "stat.bin",
                                                   "base\\transact\\ipc.bin",
                                                   "base\\data.trr",
                                                   "settings.cfg"};
    if (input.empty())
        return;
    const std::string working(working_folder);
    const std::string path = working + names.at(input[0] % names.size());
    put_file(path, input.subspan(1));
    put_file(in_base("transact\\0002\\prepared.txt"), std::string_view("prepared\0", 9));
    for (const bool json : {false, true}) {
        std::ostringstream out, errors;
        const bool good = inspect_file(path, {.all = true, .json = json}, out, errors);
        must(good == errors.str().empty(), "what is wrong is told");
        must(out.str().size() <= 400 * input.size() + 4096, "the view is of the size of the file");
        must(!json || out.str().empty() || nlohmann::json::accept(out.str()), "it is JSON");
    }
    std::ostringstream told;
    state_check check(working, false, told);
    check.run();
    std::istringstream lines(told.str());
    std::size_t defects = 0;
    for (std::string line; std::getline(lines, line);)
        defects += !line.starts_with("note: ");
    must(check.defects() == defects, "a line for each defect");
    const engine_view view(working);
    static_cast<void>(view.half("spamdict"));
    static_cast<void>(view.base());
    static_cast<void>(view.stamp());
});

// A whole file around the input, with the right size and check: the input is what stands between the check
// and the memory, and the messages.
const target verdict_target("verdict", {2048, verdict_messages_at}, [](raw_bytes input) {
    constexpr std::size_t memory = 1120, checked = 16;
    static std::vector<std::uint8_t> bytes; // half a megabyte, zeros but for what is written below
    const raw_bytes front = input.first(std::min(input.size(), memory - checked));
    const raw_bytes messages = input.subspan(front.size());
    const std::size_t count = (messages.size() + verdict_message_size - 1) / verdict_message_size;
    bytes.resize(verdict_messages_at);
    bytes.resize(verdict_messages_at + count * verdict_message_size);
    std::fill_n(bytes.begin(), memory, std::uint8_t{0});
    store_u32(bytes.data(), verdict_signature);
    store_u32(bytes.data() + 4, verdict_version);
    std::ranges::copy(front, bytes.begin() + checked);
    std::ranges::copy(messages, bytes.begin() + verdict_messages_at);
    store_u32(bytes.data() + checked + 8, static_cast<std::uint32_t>(count));
    seal_verdict(bytes);
    verdict_state state, again;
    const bool parsed = parse_verdict(bytes, state);
    must(parsed || count != 0 || std::ranges::any_of(input, std::identity()), "zeros are a file");
    if (!parsed || (!input.empty() && bytes[8] != 0)) // the rest takes long
        return;
    must(!parse_verdict({bytes.begin() + 8, bytes.end()}, again), "nothing but a whole file is taken");
    const auto written = verdict_bytes(state);
    must(parse_verdict(written, again) && verdict_bytes(again) == written, "what is read can be written");
    learn(state);
    const double least = spam_logit(state, {});
    must(least > -701 && least < 701, "some score is spam, and some is not");
    for (const judged_message& message : state.messages)
        must(std::isfinite(logit_of(message.what, weights_of(state))), "each message has a score");
    must(parse_verdict(verdict_bytes(state), again), "what is learned can be read");
});
// Requests of an add-on, a line each.
const target host_target("host", {8192}, [](raw_bytes input) {
    class service final : public host_service {
        message_score grade(std::string_view raw, bool) override {
            return {.score = 1, .decision = verdict::ham, .known = raw.size(), .tokens = {{}}};
        }
        host_training train(const host_mail&, bool) override { return host_training::known; }
        void collect(const host_mail&, bool, folder_sum& sum) override { ++sum.learned; }
        void finish(folder_sum&) override {}
        std::uint32_t forget(const host_mail&) override { return 0; }
        nlohmann::json status() override { throw host_refusal{"failed", "\xFF"}; }
        nlohmann::json settings(const nlohmann::json& changes) override { return {{"settings", changes}}; }
    } behind;
    host_session session(behind, "1");
    std::istringstream lines{std::string(text_of(input))};
    for (std::string line; std::getline(lines, line);) {
        const auto reply = nlohmann::json::parse(session.answer(line));
        must(reply.contains("ok") != reply.contains("error") && reply.contains("id"), "each is answered");
    }
});

std::unique_ptr<settings> fresh_settings() {
    auto set = std::make_unique<settings>();
    set->schema(schema_mode::declare);
    set->schema(schema_mode::basic_defaults);
    set->schema(schema_mode::advanced_defaults);
    return set;
}

void walk(storage_object& store, const storage_handle* parent, unsigned levels) {
    for (storage_handle* each = store.find_section(nullptr, parent); each;
         each = store.next_release(each, true)) {
        if (each->entry->type() == entry_tag::section && levels != 0)
            walk(store, each, levels - 1);
        else if (each->entry->type() != entry_tag::section)
            store.set_at(each,
                         {static_cast<const storage_value&>(*each->entry).data(),
                          static_cast<const storage_value&>(*each->entry).size()},
                         each->entry->type());
    }
}

const target settings_target("settings", {4096}, [](raw_bytes input) {
    const std::string path = "\\work\\settings.cfg";
    put_file(path, input);
    const auto set = fresh_settings();
    const bool loaded = (set->load(&path, nullptr, store_binary) & store_binary) == 0;
    storage_file store(path);
    const bool opened = store.open(true);
    must(opened || !loaded, "settings come from a sound storage only");
    walk(store, nullptr, 3);
    if (!opened)
        must(store.find_section(nullptr, nullptr) == nullptr, "a damaged storage is empty");
    constexpr std::uint8_t byte = 1;
    store.set("a new one", nullptr, {&byte, 1}, entry_tag::byte, false);
    must(store.write(false), "what was read can be written");
    storage_file again(path);
    must(again.open(true), "and read again");
    if (!loaded)
        return;
    must(set->save(&path, nullptr, store_binary) == 0, "settings can be saved");
    must(fresh_settings()->load(&path, nullptr, store_binary) == 0, "and loaded again");
});

const target flat_target("flat", {4096}, [](raw_bytes input) {
    const auto set = fresh_settings();
    const std::string before = set->flat_export();
    if (!set->flat_import(text_of(input))) {
        must(set->flat_export() == before, "a damaged block changes nothing");
        return;
    }
    const std::string block = set->flat_export();
    must(block.size() == set->flat_size(), "the size is told before");
    const auto second = fresh_settings();
    must(second->flat_import(block) && second->flat_export() == block, "a block carries all settings");
    static_cast<void>(set->flat_export(text_of(input)));
});

const target text_target("text", {4096}, [](raw_bytes input) {
    const std::string path = "\\work\\advanced.ini";
    if (const auto changed = with_setting(text_of(input), "training delay", "77")) {
        put_file(path, *changed);
        settings all;
        all.schema(schema_mode::declare);
        must(all.read_text(path, 1) && all.training_delay == 77, "a changed setting counts");
    }
    put_file(path, input);
    const auto set = fresh_settings();
    for (const std::uint32_t group : {0U, 1U}) {
        must(set->read_text(path, group), "a text can be read");
        must(set->write_text("\\work\\copy.ini", group), "and written");
        must(fresh_settings()->read_text("\\work\\copy.ini", group), "and read again");
    }
});

// The first byte parts the input into table, alphabet and text.
const target transliteration_target("transliteration", {1024}, [](raw_bytes input) {
    const std::size_t cut = input.empty() ? 0 : input[0];
    const std::string_view table = text_of(input).substr(0, cut);
    std::string text(text_of(input).substr(table.size()));
    const std::size_t size = text.size();
    settings& set = make_current_settings();
    set.use_partically_translitting = 1;
    set.spam_transliteration_table = table;
    set.local_user_alphabet = table.substr(0, 8);
    must(partial_transliteration(text).size() == size, "a text keeps its length");
    put_file("\\work\\xlt\\local.bin", input);
    xlt_table whole;
    must(whole.load(" local\t") == !input.empty(), "any bytes are a table");
    whole.translate(text);
    must(text.size() == size, "a text keeps its length");
    set.use_partically_translitting = 0;
    set.spam_transliteration_table.clear();
    set.local_user_alphabet.clear();
    whole.load(text);
});

} // namespace

} // namespace tvr::fuzz
