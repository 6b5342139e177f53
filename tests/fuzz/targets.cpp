#include "targets.h"

#include <cstdio>
#include <cstdlib>

#include "memory_disk.h"
#include "settings/settings.h"

namespace tvr::fuzz {

std::vector<target> all_targets() {
    std::vector<target> all;
    for (const auto group : {dictionary_targets(), index_targets(), settings_targets(), other_targets()})
        all.insert(all.end(), group.begin(), group.end());
    return all;
}

void must(bool condition, const char* text) {
    if (condition)
        return;
    std::fprintf(stderr, "not so: %s\n", text);
    std::abort();
}

std::string in_base(std::string_view name) {
    return std::string(base_folder) + std::string(name);
}

void run(const target& which, raw_bytes input) {
    if (input.size() > which.longest)
        return;
    clear_disk();
    put_file(in_base("transact\\there"), "");
    auto& set = make_current_settings();
    if (set.fields().empty())
        set.schema(schema_mode::declare);
    set.schema(schema_mode::basic_defaults);
    set.schema(schema_mode::advanced_defaults);
    set.working_directory = {std::string(working_folder), std::string(working_folder)};
    which.run(input);
    // Whatever was read, what came of it is of the same order.
    must(disk_bytes() <= (std::size_t{4} << 20) + 64 * input.size(), "the disk holds about the input's size");
}

} // namespace tvr::fuzz
