// The message cache, atoms, column files and the compiled base.

#include "client/cache_writer.h"
#include "client/score.h"
#include "common/file_stream.h"
#include "common/path.h"
#include "compiled/dict_pair.h"
#include "compiled/hashreg.h"
#include "dict/atom.h"
#include "dict/dictbase.h"
#include "dict/hashmap.h"
#include "dict/message_reader.h"
#include "dict/message_record.h"
#include "dict/ring.h"
#include "memory_disk.h"
#include "targets.h"
#include "transact/training_plan.h"
#include "transact/transaction.h"

namespace tvr::fuzz {

namespace {

constexpr std::uint32_t some_time = 213'000'000; // minutes

std::string a_record(std::string_view msid) {
    token_table tokens;
    tokens.add("B money", 3);
    tokens.add("H subject:free", 2);
    record_batch batch;
    batch.add({.msid = msid, .spam = true, .size = 100, .time = some_time}, tokens);
    return std::string(reinterpret_cast<const char*>(batch.bytes().data()), batch.bytes().size());
}

// Looks up every key, adds one, drops the zeros, and writes both forms, which must read back the same.
void use_map(hashmap_impl& map) {
    std::string_view key;
    std::uint8_t* value = nullptr;
    std::uint32_t entries = 0;
    for (map.rewind(); map.next(key, value); ++entries)
        if (!key.empty())
            must(map._get_value(key) != nullptr, "a stored key is found");
    must(entries == map.count(), "a map has as many entries as it counts");
    constexpr std::uint32_t one = 1;
    must(map._assign("B new", &one) && map._get_value("B new") != nullptr, "a map takes a new key");
    map.compact();
    file_stream file;
    const std::string path = in_base("map");
    must(file.create_to_write(path) && map.flush_ordered(file) && file.close(), "a map can be written");
    dword_map again;
    must(file.open_to_read(path) && again.init_from_file(file), "a written map can be read");
    must(again.count() == map.count() && again.datasize() == map.datasize(), "it is the same");
}

void run_map(raw_bytes input) {
    put_file(in_base("block"), input);
    file_stream file;
    file.open_to_read(in_base("block"));
    dword_map map;
    if (!map.init_from_file(file))
        must(map.count() == 0, "a map that can't be read is empty");
    use_map(map);
    file.seek(0, platform::origin::begin);
    hashmap_impl::skip(file);
}
const target map_target("map", run_map, 4096);

void run_cache(raw_bytes input) {
    const std::string path = in_base("transact\\autotrain.bys");
    put_file(path, input);
    {
        file_stream cache;
        std::uint32_t count = 0;
        cache.open(path, platform::access::read_write, platform::share::read,
                   platform::creation::open_existing);
        cache.read_u32(count);
        std::vector<std::uint64_t> places;
        message_head head;
        while (head.read(cache) && places.size() < 1000)
            places.push_back(head.position);
        message_reader reader;
        reader.open(path);
        std::size_t sum = 0;
        for (const std::uint64_t place : places)
            if (reader.read(place))
                reader.tokens.for_each([&](std::string_view token, std::uint32_t) { sum += token.size(); });
        if (!places.empty()) {
            message_record whole;
            cache.seek(static_cast<std::int64_t>(places.back()), platform::origin::begin);
            whole.read_whole(cache);
            remark(cache, places.front(), true, true);
            mark_deleted(cache, places.back());
        }
    }
    const std::size_t before = file_bytes(path).size();
    must(before <= input.size() + 64, "marking leaves the size");
    token_table tokens;
    tokens.add("B money");
    record_batch batch;
    batch.add({.msid = "<new>", .spam = true, .manual = true, .size = 1, .time = some_time}, tokens);
    cache_writer writer(path);
    must(writer.append(batch) == append_result::done, "any cache can be appended to");
    dictbase cache;
    cache.init(path);
    must(cache.has_manual_marks(), "a record behind whatever was there is met");
    put_file(tilde_name(path), input);
    cache.try_snapshot_to_tilda();
    must(!has_file(path) && has_file(tilde_name(path)), "the snapshot takes it");
}
const target cache_target("cache", run_cache, 16384);

// The sorting of a batch, and the half that comes of it: what the engine does with a cache.
void run_batch(raw_bytes input) {
    const std::string path = in_base("transact\\0002\\data.bys");
    put_file(path, input);
    bye_ring::atom_size = 3;
    bye_ring::base_limit = 20;
    trainingplan plan(stage_number::sorted, base_folder, "spamdict");
    {
        file_stream batch;
        std::uint32_t count = 0;
        batch.open_to_read(path);
        batch.read_u32(count);
        message_head head;
        for (unsigned records = 0; records < 100 && head.read(batch); ++records) {
            plan.add(head);
            if (head.flags & message_flag::marked)
                plan.remove(head);
        }
    }
    bye_ring ring;
    ring.open(base_folder, "spamdict", stage_number::sorted);
    plan.add_to(ring, 2, 2);
    aged_out_list ranges;
    ring.forget_oldest(ranges);
    ring.save_col(stage_number::sorted);
    msid_access msids;
    msids.open(base_folder, ring.folder().path(stage_number::sorted), "spamdict");
    msids.purge(ranges);
    ring.folder().create(stage_number::ready_spam);
    ring.finalize(stage_number::ready_spam, path, msids);
}
const target batch_target("batch", run_batch, 16384);

void run_atom(raw_bytes input) {
    const std::string path = in_base("spamdict0000.bye");
    put_file(path, input);
    put_file(in_base("transact\\data"), "\1\0\0\0" + a_record("<one>"));
    bye_atom atom;
    atom.open(path);
    atom.add_message(4, some_time, true);
    message_reader reader;
    reader.open(in_base("transact\\data"));
    msid_access msids;
    msids.open(base_folder, in_base("transact\\"), "spamdict");
    dword_map final;
    atom.apply_changes(final, reader, msids);
    const std::string target = in_base("out\\");
    put_file(target + "x", "");
    atom.rewrite(final, target, !atom.is_ordinal());
    bye_atom second;
    second.open(target + "spamdict0000.bye");
    dword_map folded;
    second.fold(folded, reader, msids, &atom);
}
const target atom_target("atom", run_atom, 16384);

// Both halves, made of one input, and the base that is generated from them.
void run_generation(raw_bytes input) {
    make_current_settings().optimal_one_dict_size = 40;
    put_file(in_base("spamdict0000.bye"), input);
    put_file(in_base("spamdict0001.bye"), input.first(input.size() / 2));
    put_file(in_base("nspamdict0000.bye"), input);
    dict_pair pair(base_folder);
    pair.generate_base(in_base("base.rgd"));
    hashreg base;
    must(base.load(in_base("base.rgd")), "a base that was generated can be loaded");
    std::string_view key;
    std::uint8_t* value = nullptr;
    for (base.rewind(); base.next(key, value);) {
        const double grade = base.grade(key);
        must(grade >= 0.0099 && grade <= 0.9901, "a grade lies between 0.01 and 0.99");
    }
}
const target generation_target("generation", run_generation, 16384);

void run_columns(raw_bytes input) {
    const std::string stage = in_base("transact\\0002\\");
    put_file(stage + "spamdict.col", input);
    put_file(stage + "data.bys", "\2\0\0\0" + a_record("<one>") + a_record("<two>"));
    put_file(stage + "spamdict0000.bye", std::string("\x02\x07\x78\x19\x05\0\0\0"
                                                     "\1\0\0\0\1\0\0\0\5\0\0\0\1\0\0\0\0\0\0\0"
                                                     "\1\0\0\0\x0C\0\0\0\7B money\5\0\0\0",
                                                     48));
    bye_ring ring;
    ring.open(base_folder, "spamdict", stage_number::sorted);
    ring.load_col(stage_number::sorted);
    must(ring.atoms().size() <= input.size() / 8 + 1, "no more atoms than the file has room for");
    ring.folder().create(stage_number::ready_spam);
    ring.save_col(stage_number::ready_spam);
    msid_access msids;
    msids.open(base_folder, stage, "spamdict");
    ring.finalize(stage_number::ready_spam, stage + "data.bys", msids);
    for (const std::string& path : all_files())
        must(path.starts_with(base_folder) || path.starts_with("\\temp\\"),
             "nothing is written beside the engine's folders");
}
const target columns_target("columns", run_columns, 8192);

void run_base(raw_bytes input) {
    const std::string path = in_base("cashe.rgd");
    put_file(path, input);
    hashreg base;
    const bool loaded = base.load(path);
    must(loaded || base.grade("B money") == 0.0, "without a base nothing has a grade");
    must(!base.is_file_fresher(path), "the file is as old as what was loaded");
    if (!loaded)
        return;
    token_table tokens(100);
    std::string_view key;
    std::uint8_t* value = nullptr;
    for (base.rewind(); base.next(key, value);)
        if (!key.empty())
            tokens.add(key);
    tokens.add("B FREE!");
    for (const score_rule rule :
         {score_rule::kinds, score_rule::graham, score_rule::robinson, score_rule::fisher}) {
        const mail_scorer scorer([&](std::string_view token) { return base.grade(token); }, {.rule = rule});
        const double score = scorer.score(tokens, true).score;
        must(score >= 0 && score <= 100, "a score lies between 0 and 100");
    }
    use_map(base);
}
const target base_target("base", run_base, 16384);

} // namespace

} // namespace tvr::fuzz
