#include "settings/storage.h"

#include <array>
#include <future>

#include "platform/change_hook.h"
#include "support/log_lines.h"
#include "support/platform_limits.h"
#include "support/test.h"

namespace tvr {
namespace {

using namespace std::literals;

using owned = std::unique_ptr<storage_handle>;

constexpr auto head = "abba\1\0\0\0"sv;
constexpr auto no_names = "\xFF\xFF\0"sv;

std::span<const std::uint8_t> bytes(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

std::string packed(const storage_object& store) {
    std::vector<std::uint8_t> out;
    return store.pack(out) ? std::string(out.begin(), out.end()) : "not packed";
}

// The file form of a root without names.
std::string nameless(std::string_view root) {
    return std::string(head).append(no_names).append(root);
}

std::string value(storage_object& store, const char* path, const storage_handle* parent = nullptr,
                  storage_handle** walk = nullptr) {
    std::array<char, 64> buffer{};
    std::size_t size = 0;
    if (!store.get(path, parent, buffer.data(), buffer.size(), &size, entry_tag::blob, walk))
        return "none";
    return {buffer.data(), size};
}

bool put(storage_object& store, const char* path, std::string_view text,
         const storage_handle* parent = nullptr, bool unique = false, entry_tag type = entry_tag::string) {
    return store.set(path, parent, bytes(text), type, unique);
}

TEST(storage_test, reads_every_form_and_refuses_damage) {
    constexpr auto refused = "refused";
    const auto blob = [](const std::string& header, std::size_t size) {
        return nameless("\x40\1\7\0"s + header + std::string(size, 'v'));
    };
    // Names in the order of their bytes; the root; section z with two children; the root's other children.
    const std::string every_tag = std::string(head) + "\4\0\0\6\0Z\0\2\0b\0\1\0z\0\5\0\xE4\0\xFF\xFF\0"s +
                                  "\x40\x08\1\0\x40\2\2\0\1v\2\0\2w\3\0\3vw\3\0\4vwxy\3\0\5stuvwxyz"s +
                                  "\4\0\6klmnopqrstuvwxyz\5\0\x47\3vwx\5\0\x48\4v\0w\0\6\0\x49\0"s;
    const std::pair<std::string, std::string> table[] = {
        // files, and what the storage packs then
        {every_tag, every_tag},
        {nameless("\0"sv), nameless("\x40\0"sv)},
        {nameless("\x40\2\7\0\7\7\0\0"sv), nameless("\x40\2\7\0\x47\0\7\0\x40\0"sv)},
        {blob("\x89\1\0"s, 1), blob("\x49\1", 1)},
        {blob("\xC9\xFF\0\0\0"s, 255), blob("\x49\xFF", 255)},
        {blob("\xC9\0\1\0\0"s, 256), blob("\x89\0\1"s, 256)},
        {blob("\xC9\xFF\xFF\0\0"s, 65535), blob("\x89\xFF\xFF", 65535)},
        {blob("\xC9\0\0\1\0"s, 65536), blob("\xC9\0\0\1\0"s, 65536)},
        {blob("\xC9\0\0\1\0"s, 65535), refused},
        {blob("\xC9\0\0\x40\0"s, storage_object::max_packed_size), refused},
        // An entry of fixed size takes its own; the size it tells must be there, and nothing may be left
        // over.
        {blob("\x43\0"s, 2), blob("\3", 2)},
        {blob("\x43\3", 2), refused},
        {blob("\x43\3", 3), refused},
        {blob("\3", 1), refused},
        {blob("\x48\3", 3), blob("\x48\2", 2)},
        // Unknown tags go with their headers alone.
        {nameless("\x40\2\7\0\x0A\7\0\1v"sv), blob("\1", 1)},
        {nameless("\x40\2\7\0\x7F\x33\7\0\1v"sv), blob("\1", 1)},
        {nameless("\xC0\xFF\xFF\xFF\xFF\7\0\1v"sv), refused},
        {nameless("\1v"sv), refused}, // the root is no section
        {"abba\2\0\0\0\xFF\xFF\0\x40\0"s, refused},
        {"abbA\1\0\0\0\xFF\xFF\0\x40\0"s, refused},
        {"abba\1xyz\xFF\xFFx\x40\0"s, nameless("\x40\0"sv)},
        {std::string(head) + "\1\0name", refused}, // endless
        {std::string(head) + "\1\0a\0\3\0a\0\xFF\xFF\0\x40\0"s,
         std::string(head) + "\3\0a\0\xFF\xFF\0\x40\0"s},
    };
    for (const auto& row : table) {
        SCOPED_TRACE(&row - table);
        const auto& [file, again] = row;
        storage_object store;
        put(store, "old", "old");
        EXPECT_EQ(store.load(bytes(file)), again != refused);
        EXPECT_TRUE(packed(store) == (again == refused ? nameless("\x40\0"sv) : again));
        EXPECT_FALSE(store.is_modified());
    }
    // Many sections, each in the one before.
    std::string deep;
    for (int level = 0; level != 200'000; ++level)
        deep += "\x40\1\7\0"s;
    deep = nameless(deep + "\x40\0"s);
    storage_object store;
    EXPECT_TRUE(store.load(bytes(deep)) && packed(store) == deep);
}

TEST(storage_test, paths_find_and_make_the_last_name_only) {
    storage_object store;
    EXPECT_FALSE(store.create_section("a\\b", nullptr, false)) << "the first name must be there";
    const owned first(store.create_section("a", nullptr, false));
    const owned second(store.create_section("a", nullptr, true));
    EXPECT_EQ(owned(store.create_section("a", nullptr, false))->entry, first->entry);
    EXPECT_TRUE(put(store, "a/x", "1") && put(store, "x", "2", second.get()) && put(store, "x", "3"));
    EXPECT_EQ(value(store, "a\\x") + value(store, "x", second.get()) + value(store, "x"), "123");
    EXPECT_TRUE(put(store, "x", "12345"));
    // Another tag, no section on the way, no path, no value, no tag, no size of a word.
    EXPECT_FALSE(put(store, "x", "5", nullptr, false, entry_tag::blob) || put(store, "x\\y", "5") ||
                 put(store, nullptr, "5") || put(store, "y", "", nullptr, false, entry_tag::section) ||
                 put(store, "y", "", nullptr, false, static_cast<entry_tag>(10)) ||
                 put(store, "y", "5", nullptr, false, entry_tag::word));
    EXPECT_FALSE(store.create_section("x", nullptr, false)) << "that is a value";
    const owned x(store.find_section("x", nullptr));
    EXPECT_FALSE(store.set_at(x.get(), bytes("1"), entry_tag::blob));
    std::array<char, 5> buffer{};
    std::size_t size = 0;
    const auto get = [&](const char* path, std::size_t room, entry_tag type) {
        return store.get(path, nullptr, room ? buffer.data() : nullptr, room, &size, type, nullptr);
    };
    EXPECT_TRUE(!get("x", 4, entry_tag::string) && size == 5 && buffer[0] == 0);
    EXPECT_TRUE(get("x", 0, entry_tag::string) && get("x", 5, entry_tag::string) && buffer[4] == '5');
    EXPECT_FALSE(get("x", 5, entry_tag::wide_string) || get("a", 5, entry_tag::blob));
    EXPECT_TRUE(store.set_at(x.get(), bytes("6"), entry_tag::string));
    EXPECT_EQ(value(store, "x"), "6");
}

TEST(storage_test, walks_from_handle_to_handle) {
    storage_object store;
    for (const auto& [text, other] : {std::pair("1", "4"), {"2", "5"}, {"3", "6"}})
        EXPECT_TRUE(put(store, "v", text, nullptr, true) && put(store, "other", other, nullptr, true));
    std::string seen;
    storage_handle* walk = nullptr;
    for (std::string each = value(store, "v", nullptr, &walk); walk; each = value(store, "v", nullptr, &walk))
        seen += each;
    for (const bool any : {false, true})
        for (auto* at = store.find_section(any ? nullptr : "v", nullptr); at;
             at = store.next_release(at, any))
            seen += static_cast<char>(*static_cast<storage_value&>(*at->entry).data());
    EXPECT_EQ(seen, "123123142536");
    // What is no handle of this storage does no harm, and neither does one whose place is gone.
    storage_object another;
    const owned foreign(another.create_section("v", nullptr, false));
    alignas(storage_handle) std::array<std::uint8_t, sizeof(storage_handle)> junk{};
    for (storage_handle* wrong : {foreign.get(), reinterpret_cast<storage_handle*>(junk.data())}) {
        EXPECT_FALSE(store.next(wrong, true) || store.next_release(wrong, true) ||
                     store.clear_section(wrong) || store.set_at(wrong, bytes("x"), entry_tag::string) ||
                     put(store, "x", "x", wrong) || store.create_section("x", wrong, false) ||
                     store.find_section(nullptr, wrong));
        EXPECT_EQ(value(store, "v", wrong) + value(store, "v", nullptr, &wrong), "nonenone");
        store.release(wrong);
    }
    EXPECT_FALSE(store.next(nullptr, true) || store.clear_section(nullptr));
    const owned section(store.create_section("s", nullptr, false));
    EXPECT_TRUE(put(store, "v", "4", section.get()) && put(store, "v", "5", section.get(), true));
    const owned stale(store.find_section("v", section.get()));
    EXPECT_TRUE(owned(store.next(stale.get(), false)));
    store.set_modified(false);
    EXPECT_FALSE(store.clear_section(stale.get())) << "a value";
    EXPECT_TRUE(store.clear_section(section.get()));
    EXPECT_FALSE(store.next(stale.get(), true) || store.find_section(nullptr, section.get()));
    store.clear();
    EXPECT_TRUE(!store.is_modified() && !store.next(section.get(), true));
    EXPECT_EQ(packed(store), nameless("\x40\0"sv));
}

TEST(storage_test, issues_ids) {
    const std::pair<std::string, int> table[] = {
        {"", 1},
        {"\5\0a\0\3\0b\0"s, 7}, // one is left out
        {"\xFE\x7Fz\0"s, 0x8000},
        {"\2\0a\0\xFF\x7Fy\0\xFD\xFFz\0"s, 4}}; // the upper half doesn't count
    for (const auto& [names, next] : table) {
        storage_object store;
        const std::string file = std::string(head) + names + std::string(no_names) + "\x40\0"s;
        ASSERT_TRUE(store.load(bytes(file)));
        EXPECT_EQ(owned(store.create_section("new", nullptr, false))->id, next);
    }
    storage_object store;
    for (int number = 0; number != 0xFFFE; ++number)
        ASSERT_TRUE(put(store, std::to_string(number).c_str(), "v", nullptr, true));
    EXPECT_FALSE(put(store, "one more", "v"));
    EXPECT_TRUE(put(store, "65533", "last") && store.load(bytes(packed(store))));
    EXPECT_EQ(value(store, "65533"), "last");
}

TEST(storage_test, a_handle_keeps_other_threads_out) {
    storage_object store;
    owned handle(store.create_section("a", nullptr, false));
    auto seen = std::async(std::launch::async, [&] { return value(store, "x"); });
    for (int number = 0; number != 100'000; ++number)
        put(store, "x", std::to_string(number));
    handle.reset();
    EXPECT_EQ(seen.get(), "99999");
}

TEST(storage_file_test, tells_what_fails) {
    const test_root root;
    log_lines log;
    storage_file file(root.engine_path("x.cfg"));
    const auto fails = [&](bool answer, const std::string& text, const std::string& end = {}) {
        EXPECT_FALSE(answer);
        EXPECT_EQ(log.take().back(), text + " \"" + root.engine_path("x.cfg") + "\"" + end);
    };
    EXPECT_TRUE(file.write(true) && !file.open(false) && log.take().empty())
        << "nothing to write, or to tell";
    fails(file.open(true), "can't open file");
    for (const auto& [content, text] : {std::pair(""s, "can't create file mapping from"),
                                        {nameless("\x40\0\0"sv), "can't unpack storage from"}}) {
        write_file(root.path() / "x.cfg", content);
        fails(file.open(false), text);
    }

    put(file, "a", "v");
    EXPECT_TRUE(file.write(true) && !file.is_modified());
    EXPECT_EQ(read_file(root.path() / "x.cfg"), std::string(head) + "\1\0a\0\xFF\xFF\0\x40\1\1\0\x47\1v"s);
    EXPECT_TRUE(file.open(true) && !file.is_modified() && value(file, "a") == "v");
    platform::set_change_hook([](platform::change what, std::string_view) -> std::uint32_t {
        return what == platform::change::write_file ? 112 : 0;
    });
    file.set_modified(true);
    fails(file.write(true), "error writing", ", err = 112");
    EXPECT_TRUE(file.is_modified());
    platform::set_change_hook([](platform::change, std::string_view) -> std::uint32_t { return 5; });
    fails(file.write(false), "can't create file");
    platform::set_change_hook(nullptr);
    if (const file_size_limit few(10); few.holds())
        fails(file.write(false), "can't write all data to", ", err = 112, wrote 10");
    put(file, "a", std::string(storage_object::max_packed_size, 'v'));
    fails(file.write(false), "can't pack data for");
}

} // namespace
} // namespace tvr
