#include "targets.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "memory_disk.h"
#include "transact/transaction.h"

namespace tvr::fuzz {

namespace {

std::vector<const target*>& targets() {
    static std::vector<const target*> all;
    return all;
}

} // namespace

target::target(const char* its_name, input_size its_size, body its_run)
    : name(its_name), size(its_size), run(its_run) {
    targets().push_back(this);
}

const std::vector<const target*>& all_targets() {
    return targets();
}

const target* find_target(std::string_view name) {
    const auto found = std::ranges::find(targets(), name, &target::name);
    return found == targets().end() ? nullptr : *found;
}

void must(bool condition, const char* text) {
    if (condition)
        return;
    std::fprintf(stderr, "not so: %s\n", text);
    std::abort();
}

settings& start_settings() {
    settings& set = make_current_settings();
    if (set.fields().empty())
        set.schema(schema_mode::declare);
    set.schema(schema_mode::basic_defaults);
    set.schema(schema_mode::advanced_defaults);
    set.working_directory = {std::string(working_folder), std::string(working_folder)};
    return set;
}

void train() {
    transaction engine;
    engine.init();
    engine.force_retrain();
    engine.shutdown();
}

std::string in_base(std::string_view name) {
    return std::string(base_folder) + std::string(name);
}

void run(const target& which, raw_bytes input) {
    if (input.size() > which.size.longest)
        return;
    clear_disk();
    put_file(in_base("transact\\there"), "");
    start_settings();
    which.run(input);
    // Whatever was read, what came of it is of the same order.
    must(disk_bytes() <= (std::size_t{4} << 20) + 64 * input.size(), "the disk holds about the input's size");
}

} // namespace tvr::fuzz
