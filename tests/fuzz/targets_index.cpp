// The map of message IDs: list and index.

#include <array>
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

// Every live ID must be found with its value, and can be taken out.
void use_all(msidmap& map, const std::string& path) {
    map.release_list();
    const std::string list = file_bytes(path);
    std::set<std::string> seen;
    for_each_live({reinterpret_cast<const std::uint8_t*>(list.data()), list.size()},
                  [&](std::size_t, const list_record& record) {
                      if (seen.insert(std::string(record.id)).second)
                          static_cast<void>(map.search(record.id));
                  });
    must(map.insert("<new@id>", some_time) && map.search("<new@id>") == some_time, "a new ID is found");
    bool removes = false;
    for (const std::string& id : seen)
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
        use_all(map, path);
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

// A sound list of a few IDs, three of them in one chain, and the input as its index.
void run_index(raw_bytes input) {
    {
        msidmap map(base_folder, "spamdict");
        for (unsigned i = 0; i < 40; ++i)
            map.insert("<" + std::to_string(i * 7919) + "@mail.example>", some_time + i);
        for (const char* id : {"<ab@x>", "<ba@x>0000000000000000", "<ab@x>0000000000000000"})
            map.insert(id, some_time);
    }
    const std::string path = in_base("spamdict.idx");
    const std::string sound = file_bytes(path);
    put_file(path, input);
    {
        msidmap map(base_folder, "spamdict");
        use_all(map, in_base("spamdict.lst"));
        // Keys enough to divide pages.
        for (unsigned i = 0; i < 70; ++i)
            map.insert(std::to_string(i * 104729), some_time);
    }
    // The same without a list that could heal it.
    put_file(in_base("lone.idx"), input);
    msidtree tree(in_base("lone.idx"));
    for (unsigned i = 0; i < 40 && !tree.damaged(); ++i) {
        tree.insert(std::to_string(i * 104729), 600 - i, false);
        static_cast<void>(tree.find(std::to_string(i)));
    }
    must(file_bytes(in_base("lone.idx")).size() <= 2 * input.size() + (std::size_t{256} << 10),
         "an index grows by its pages only");
}

constexpr std::array<target, 2> targets = {{{"list", run_list, 4096}, {"index", run_index, 8192}}};

} // namespace

std::span<const target> index_targets() {
    return targets;
}

} // namespace tvr::fuzz
