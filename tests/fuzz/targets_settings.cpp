// The stores of the settings, and what hangs on them.

#include <memory>

#include "memory_disk.h"
#include "settings/storage.h"
#include "settings/transliteration.h"
#include "targets.h"

namespace tvr::fuzz {

namespace {

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

void run_settings(raw_bytes input) {
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
}
const target settings_target("settings", run_settings, 4096);

void run_flat(raw_bytes input) {
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
}
const target flat_target("flat", run_flat, 4096);

void run_text(raw_bytes input) {
    const std::string path = "\\work\\advanced.ini";
    put_file(path, input);
    const auto set = fresh_settings();
    for (const std::uint32_t group : {0U, 1U}) {
        must(set->read_text(path, group), "a text can be read");
        must(set->write_text("\\work\\copy.ini", group), "and written");
        must(fresh_settings()->read_text("\\work\\copy.ini", group), "and read again");
    }
}
const target text_target("text", run_text, 4096);

// The first byte parts the input into table, alphabet and text.
void run_transliteration(raw_bytes input) {
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
}
const target transliteration_target("transliteration", run_transliteration, 1024);

} // namespace

} // namespace tvr::fuzz
