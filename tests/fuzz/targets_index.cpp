// The map of message IDs: list and index.

#include <set>

#include "common/bytes.h"
#include "common/file_stream.h"
#include "memory_disk.h"
#include "msid/list_record.h"
#include "msid/msidmap.h"
#include "msid/page_manager.h"
#include "targets.h"

namespace tvr::fuzz {

namespace {

constexpr std::uint32_t some_time = 213'000'000; // minutes

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

void run_list(raw_bytes input) {
    const std::string path = in_base("spamdict.lst");
    put_file(path, input);
    put_file(in_base("other.lst"), input);
    {
        msidmap map(base_folder, "spamdict");
        map.release_list();
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
}
const target list_target("list", run_list, 4096);

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
void run_index(raw_bytes input) {
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
}
const target index_target("index", run_index, 8192);

} // namespace

} // namespace tvr::fuzz
