// The message cache, atoms, column files, the compiled base, and the map of message IDs.

#include <set>

#include "client/cache_writer.h"
#include "client/score.h"
#include "common/bytes.h"
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
#include "msid/list_record.h"
#include "msid/msidmap.h"
#include "msid/page_manager.h"
#include "targets.h"
#include "transact/training_plan.h"

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

const target map_target("map", {4096}, [](raw_bytes input) {
    put_file(in_base("block"), input);
    file_stream file;
    file.open_to_read(in_base("block"));
    dword_map map;
    if (!map.init_from_file(file))
        must(map.count() == 0, "a map that can't be read is empty");
    use_map(map);
    file.seek(0, platform::origin::begin);
    hashmap_impl::skip(file);
});

const target cache_target("cache", {16384}, [](raw_bytes input) {
    const std::string path = in_base("transact\\autotrain.bys");
    put_file(path, input);
    std::vector<std::uint64_t> places;
    file_stream records;
    {
        std::uint32_t count = 0;
        records.open_to_read(path);
        records.read_u32(count);
        message_head head;
        while (head.read(records) && places.size() < 1000)
            places.push_back(head.position);
        message_reader reader;
        reader.open(path);
        for (const std::uint64_t place : places) {
            std::size_t sum = 0;
            if (reader.read(place))
                reader.tokens.for_each([&](std::string_view token, std::uint32_t) { sum += token.size(); });
            must(sum <= input.size(), "tokens lie in the file");
        }
    }
    if (!places.empty()) {
        records.open(path, platform::access::read_write, platform::share::read,
                     platform::creation::open_existing);
        message_record whole;
        records.seek(static_cast<std::int64_t>(places.back()), platform::origin::begin);
        whole.read_whole(records);
        remark(records, places.front(), true, true);
        mark_deleted(records, places.back());
    }
    records.close();
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
});

// The sorting of a batch, and the half that comes of it: what the engine does with a cache.
const target batch_target("batch", {16384}, [](raw_bytes input) {
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
});

const target atom_target("atom", {16384}, [](raw_bytes input) {
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
});

// Both halves, made of one input, and the base that is generated from them.
const target generation_target("generation", {16384}, [](raw_bytes input) {
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
});

const target columns_target("columns", {8192}, [](raw_bytes input) {
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
});

const target base_target("base", {16384}, [](raw_bytes input) {
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
});

using ids = std::vector<std::pair<std::string, std::uint32_t>>;

// The live records of a list file.
ids live_ids(const std::string& path) {
    ids found;
    const std::string list = file_bytes(path);
    for_each_live({reinterpret_cast<const std::uint8_t*>(list.data()), list.size()},
                  [&](std::size_t, const list_record& record) {
                      found.emplace_back(std::string(record.id), record.value);
                  });
    return found;
}

void must_find(msidmap& map, const ids& wanted) {
    for (const auto& [id, value] : wanted)
        must(map.search(id) == value, "every ID of the list is found");
}

void use(msidmap& map, const ids& known) {
    must(map.insert("<new@id>", some_time) && map.search("<new@id>") == some_time, "a new ID is found");
    bool removes = false;
    for (const auto& [id, value] : known)
        if ((removes = !removes))
            map.remove(id);
    must(map.remove("<new@id>") && map.search("<new@id>") == 0, "and not after it was taken out");
}

const target list_target("list", {4096}, [](raw_bytes input) {
    const std::string path = in_base("spamdict.lst");
    put_file(path, input);
    put_file(in_base("other.lst"), input);
    {
        msidmap map(base_folder, "spamdict");
        const ids known = live_ids(path);
        // A chain ends where another key begins: of those that a damaged list has torn apart only the first
        // is looked at.
        ids first_of_key;
        std::set<std::string> keys;
        for (const auto& each : known) {
            std::string key(key11::size, '\0');
            key11::of(each.first).store(reinterpret_cast<std::uint8_t*>(key.data()));
            if (keys.insert(key).second)
                first_of_key.push_back(each);
        }
        if (map.records() != 0) // else an empty index counts as fitting
            must_find(map, first_of_key);
        use(map, known);
        map.merge(in_base("other.lst"));
        bool yes = false;
        map.delete_if([&](std::string_view, std::uint32_t) { return yes = !yes; });
        msidmap::relabel(in_base("other.lst"), 7);
        file_stream out;
        out.create_to_write(in_base("out"));
        map.write_out(out);
        out.close();
        file_stream in;
        in.open_to_read(in_base("out"));
        msidmap copy(in);
        must(copy.records() <= input.size() / 6 + 2, "no more records than the list has room for");
        map.clear();
        must(map.insert("<after>", 1), "a cleared map takes an ID");
    }
    const msidmap again(base_folder, "spamdict");
    must(again.records() == 1, "what was closed is opened as it was");
});

// False for a head that can't be true of its file.
bool is_plausible(raw_bytes index) {
    if (index.size() < 1024 || load_u32(index.data()) != index_signature || load_u32(index.data() + 4) < 3)
        return index.size() >= 4 && load_u32(index.data()) == index_signature;
    const std::uint32_t root = load_u32(index.data() + 8);
    const std::uint32_t size = load_u32(index.data() + 12);
    return root % 512 == 0 && size % 512 == 0 && root >= 512 && root < size && size <= index.size();
}

// A sound list of a few IDs, three of them in one chain.
std::string make_list() {
    {
        msidmap map(base_folder, "spamdict");
        for (unsigned i = 0; i < 40; ++i)
            map.insert("<" + std::to_string(i * 7919) + "@mail.example>", some_time + i);
        for (const char* id : {"A123456789B", "B123456789A", "C123456789@"})
            map.insert(id, some_time);
    }
    return file_bytes(in_base("spamdict.lst"));
}

// The input as the index of that list.
const target index_target("index", {8192}, [](raw_bytes input) {
    static const std::string list = make_list();
    put_file(in_base("spamdict.lst"), list);
    const ids known = live_ids(in_base("spamdict.lst"));
    must(known.size() == 43, "the list holds them all");
    // The number of keys is made to fit, or nobody would look at the pages.
    std::vector<std::uint8_t> index(input.begin(), input.end());
    if (index.size() >= 20)
        store_u32(index.data() + 16, 43);
    put_file(in_base("spamdict.idx"), index);
    {
        msidmap map(base_folder, "spamdict");
        if (!is_plausible(input))
            must_find(map, known);
        use(map, known);
        // Keys enough to divide pages.
        for (unsigned i = 0; i < 30; ++i)
            map.insert(std::to_string(i * 104729), some_time);
    }
    // The same without a list that could heal it.
    put_file(in_base("lone.idx"), input);
    msidtree tree(in_base("lone.idx"));
    for (unsigned i = 0; i < 20 && !tree.damaged(); ++i) {
        tree.insert(std::to_string(i * 104729), 600 - i, false);
        static_cast<void>(tree.find(std::to_string(i)));
    }
    must(file_bytes(in_base("lone.idx")).size() <= 2 * input.size() + (std::size_t{256} << 10),
         "an index grows by its pages only");
});

// A whole training in which one file is the input; the first byte says which.
const target training_target("training", {8192, std::size_t{512} << 10}, [](raw_bytes input) {
    static constexpr std::array<const char*, 4> names = {"transact\\autotrain.bys", "spamdict0000.bye",
                                                         "spamdict.lst", "spamdict.idx"};
    static const std::string one("\1\0\0\0", 4);
    static const auto trained = [] {
        put_file(in_base(names[0]), one + a_record("<old>"));
        train();
        { msidmap(base_folder, "spamdict").search("<old>"); } // makes the index
        std::vector<std::pair<std::string, std::string>> files;
        for (const std::string& path : all_files())
            files.emplace_back(path, file_bytes(path));
        return files;
    }();
    if (input.size() < 2) // deliberate: an empty batch sticks, until somebody clears it away
        return;
    for (const auto& [path, bytes] : trained)
        put_file(path, bytes);
    put_file(in_base(names[0]), one + a_record("<new>"));
    put_file(in_base(names.at(input[0] % names.size())), input.subspan(1));
    train();
    hashreg published;
    must(published.load(in_base("cashe.rgd")), "what is published can be read");
});

} // namespace

} // namespace tvr::fuzz
