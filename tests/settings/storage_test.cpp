#include "settings/storage.h"

#include <array>
#include <atomic>
#include <gtest/gtest.h>
#include <string>
#include <vector>


#include "common/logger.h"
#include "platform/change_hook.h"
#include "platform/registry.h"
#include "platform/sync.h"
#include "tests/support/file_bytes.h"
#include "tests/support/test_root.h"

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

bool loads(storage_object& store, std::string_view text) {
    return store.load(bytes(text));
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

TEST(storage_test, writes_the_file_form) {
    storage_object store;
    EXPECT_EQ(packed(store), nameless("\x40\0"sv));
    EXPECT_FALSE(store.is_modified());
    {
        const owned section(store.create_section("z", nullptr, false));
        ASSERT_TRUE(section);
        EXPECT_TRUE(put(store, "b", "1", section.get(), false, entry_tag::byte));
        EXPECT_TRUE(put(store, "z\\b", "2", nullptr, true, entry_tag::octet));
        EXPECT_TRUE(put(store, "z/c", "34", nullptr, false, entry_tag::word));
        EXPECT_TRUE(put(store, "c", "5678", nullptr, false, entry_tag::dword));
        EXPECT_TRUE(put(store, "c", "12345678", nullptr, true, entry_tag::qword));
        EXPECT_TRUE(put(store, "", "0123456789abcdef", nullptr, false, entry_tag::block16));
        EXPECT_TRUE(put(store, "\xE4", "xyz"));
        EXPECT_TRUE(put(store, "\xE4", "p\0q\0r"sv, section.get(), false, entry_tag::wide_string));
        EXPECT_TRUE(put(store, "Z", "", nullptr, false, entry_tag::blob));
    }
    EXPECT_TRUE(store.is_modified());
    const std::string expected =
        std::string(head) + "\4\0\0\6\0Z\0\2\0b\0\3\0c\0\1\0z\0\5\0\xE4\0\xFF\xFF\0"s // names, by their bytes
                            "\x40\6\1\0\x40\4"s                                       // root, section "z"
                            "\2\0\1"s
                            "1"s
                            "\2\0\2"s
                            "2"s
                            "\3\0\3"s
                            "34"s
                            "\5\0\x48\4p\0q\0"s
                            "\3\0\4"s
                            "5678"s
                            "\3\0\5"s
                            "12345678"s
                            "\4\0\6"s
                            "0123456789abcdef"s
                            "\5\0\x47\3xyz"s
                            "\6\0\x49\0"s;
    EXPECT_EQ(packed(store), expected);
    storage_object copy;
    put(copy, "old", "old");
    EXPECT_TRUE(loads(copy, expected));
    EXPECT_FALSE(copy.is_modified());
    EXPECT_EQ(packed(copy), expected);
}

TEST(storage_test, sizes_have_the_smallest_form) {
    for (const auto& [size, form] : {std::pair(255U, "\x49\xFF"s),
                                     {256U, "\x89\0\1"s},
                                     {65535U, "\x89\xFF\xFF"s},
                                     {65536U, "\xC9\0\0\1\0"s}}) {
        storage_object store;
        EXPECT_TRUE(put(store, "x", std::string(size, 'v'), nullptr, false, entry_tag::blob));
        EXPECT_EQ(packed(store),
                  std::string(head) + "\1\0x\0\xFF\xFF\0\x40\1\1\0"s + form + std::string(size, 'v'));
        put(store, "x", std::string(storage_object::max_packed_size, 'v'), nullptr, false, entry_tag::blob);
        EXPECT_EQ(packed(store), "not packed");
    }
}

TEST(storage_test, reads_every_form_and_refuses_damage) {
    constexpr auto refused = "refused";
    struct {
        std::string file;
        std::string again; // what the storage packs then
    } const table[] = {
        {nameless("\0"sv), nameless("\x40\0"sv)},
        {nameless("\x80\0\0"sv), nameless("\x40\0"sv)},
        {nameless("\xC0\1\0\0\0\7\0\x89\1\0v"sv), nameless("\x40\1\7\0\x49\1v"sv)},
        {nameless("\x40\2\7\0\7\7\0\0"sv), nameless("\x40\2\7\0\x47\0\7\0\x40\0"sv)},
        // An entry of fixed size takes its own; the size it tells must be there.
        {nameless("\x40\1\7\0\x43\0vw"sv), nameless("\x40\1\7\0\3vw"sv)},
        {nameless("\x40\1\7\0\x43\2vw"sv), nameless("\x40\1\7\0\3vw"sv)},
        {nameless("\x40\1\7\0\x43\3vw"sv), refused},
        {nameless("\x40\1\7\0\x43\3vwx"sv), refused}, // one byte is left over
        {nameless("\x40\1\7\0\3v"sv), refused},
        {nameless("\x40\1\7\0\x48\3vwx"sv), nameless("\x40\1\7\0\x48\2vw"sv)},
        {nameless("\x40\1\7\0\x49\2v"sv), refused},
        // Unknown tags go with their headers alone.
        {nameless("\x40\2\7\0\x0A\7\0\1v"sv), nameless("\x40\1\7\0\1v"sv)},
        {nameless("\x40\2\7\0\x7F\x33\7\0\1v"sv), nameless("\x40\1\7\0\1v"sv)},
        {nameless("\xC0\xFF\xFF\xFF\xFF\7\0\1v"sv), refused},
        {nameless("\x40\1\7\0\xC0\xFF\xFF\xFF\xFF"sv), refused},
        {nameless("\x40\1\7\0\xC9\xFF\xFF\xFF\xFFv"sv), refused},
        {nameless("\x40\1\7\0\xC0\0\0"sv), refused},
        {nameless("\x40\0\0"sv), refused}, // left over
        {nameless("\1v"sv), refused},      // the root is no section
        {nameless(""), refused},
        {"abba\2\0\0\0\xFF\xFF\0\x40\0"s, refused},
        {"abbA\1\0\0\0\xFF\xFF\0\x40\0"s, refused},
        {"abba\1xyz\xFF\xFFx\x40\0"s, nameless("\x40\0"sv)},
        {std::string(head) + "\1\0name", refused}, // endless
        {std::string(head) + "\1\0a\0\xFF\xFF"s, refused},
        {std::string(head) + "\1\0a\0\3\0a\0\xFF\xFF\0\x40\0"s,
         std::string(head) + "\3\0a\0\xFF\xFF\0\x40\0"s},
        {nameless(std::string(storage_object::max_packed_size, '\0')), refused},
    };
    for (const auto& row : table) {
        const auto number = &row - table;
        storage_object store;
        put(store, "old", "old");
        EXPECT_EQ(loads(store, row.file), row.again != refused) << number;
        EXPECT_EQ(packed(store), row.again == refused ? nameless("\x40\0"sv) : row.again) << number;
        EXPECT_FALSE(store.is_modified());
    }
}

TEST(storage_test, lives_through_any_damage) {
    const std::string good = std::string(head) + "\1\0z\0\2\0b\0\xFF\xFF\0\x40\3\1\0\x40\2\2\0\4"s
                                                 "1234\2\0\x47\3xyz"s
                                                 "\2\0\x88\4\0p\0q\0\1\0\xC9\2\0\0\0vw"s;
    storage_object store;
    ASSERT_TRUE(loads(store, good));
    for (std::size_t place = 0; place != good.size(); ++place) {
        EXPECT_FALSE(loads(store, std::string(good, 0, place))) << place;
        for (int other = 0; other != 256; ++other) {
            std::string bad = good;
            bad[place] = static_cast<char>(other);
            // Never more than the bytes hold; and what was read can be written and read.
            if (loads(store, bad)) {
                const std::string again = packed(store);
                EXPECT_LE(again.size(), good.size() + 4) << place << " " << other;
                EXPECT_TRUE(loads(store, again)) << place << " " << other;
                EXPECT_EQ(packed(store), again) << place << " " << other;
            }
        }
    }
    // A million sections, each in the one before.
    std::string deep;
    for (int level = 0; level != 1'000'000; ++level)
        deep += "\x40\1\7\0"s;
    deep = nameless(deep + "\x40\0"s);
    EXPECT_TRUE(loads(store, deep));
    EXPECT_EQ(packed(store), deep);
}

TEST(storage_test, paths_find_and_make_the_last_name_only) {
    storage_object store;
    EXPECT_FALSE(store.create_section("a\\b", nullptr, false)) << "the first name must be there";
    const owned first(store.create_section("a", nullptr, false));
    const owned second(store.create_section("a", nullptr, true));
    const owned same(store.create_section("a", nullptr, false));
    ASSERT_TRUE(first && second && same);
    EXPECT_EQ(first->entry, same->entry);
    EXPECT_NE(first->entry, second->entry);
    EXPECT_TRUE(put(store, "a/x", "1") && put(store, "x", "2", second.get()) && put(store, "x", "3"));
    EXPECT_EQ(value(store, "a\\x"), "1");
    EXPECT_EQ(value(store, "x", second.get()), "2");
    EXPECT_TRUE(put(store, "x", "4"));
    EXPECT_EQ(value(store, "x"), "4");
    EXPECT_FALSE(put(store, "x", "55", nullptr, false, entry_tag::blob)) << "another tag stays";
    EXPECT_FALSE(put(store, "x\\y", "5")) << "no section";
    EXPECT_FALSE(put(store, nullptr, "5") || put(store, "x", "5", nullptr, false, entry_tag::word));
    EXPECT_FALSE(put(store, "y", "", nullptr, false, entry_tag::section) ||
                 put(store, "y", "", nullptr, false, static_cast<entry_tag>(10)));
    EXPECT_EQ(value(store, "x"), "4");
    EXPECT_FALSE(store.create_section("x", nullptr, false)) << "that is a value";

    std::size_t size = 9;
    std::array<char, 4> small{};
    const owned x(store.find_section("x", nullptr));
    EXPECT_TRUE(store.set_at(x.get(), bytes("12345"), entry_tag::string));
    EXPECT_FALSE(store.set_at(x.get(), bytes("1"), entry_tag::blob));
    EXPECT_FALSE(store.get("x", nullptr, small.data(), small.size(), &size, entry_tag::string, nullptr));
    EXPECT_EQ(size, 5U);
    EXPECT_TRUE(store.get("x", nullptr, nullptr, 0, nullptr, entry_tag::string, nullptr));
    EXPECT_FALSE(store.get("x", nullptr, nullptr, 0, nullptr, entry_tag::wide_string, nullptr));
    EXPECT_FALSE(store.get("a", nullptr, nullptr, 0, nullptr, entry_tag::blob, nullptr)) << "a section";
}

TEST(storage_test, walks_from_handle_to_handle) {
    storage_object store;
    for (const char* text : {"1", "2", "3"})
        EXPECT_TRUE(put(store, "v", text, nullptr, true) && put(store, "other", text, nullptr, true));
    std::string seen;
    storage_handle* walk = nullptr;
    for (std::string each = value(store, "v", nullptr, &walk); walk; each = value(store, "v", nullptr, &walk))
        seen += each;
    EXPECT_EQ(seen, "123");
    int same = 0, all = 0;
    for (storage_handle* at = store.find_section("v", nullptr); at; at = store.next_release(at, false))
        ++same;
    for (storage_handle* at = store.find_section(nullptr, nullptr); at; at = store.next_release(at, true))
        ++all;
    EXPECT_EQ(same, 3);
    EXPECT_EQ(all, 6);

    // What is no handle of this storage does no harm, and neither does one whose place is gone.
    storage_object another;
    const owned foreign(another.create_section("v", nullptr, false));
    alignas(storage_handle) std::array<std::uint8_t, sizeof(storage_handle)> junk{};
    auto* const no_handle = reinterpret_cast<storage_handle*>(junk.data());
    for (storage_handle* wrong : {foreign.get(), no_handle, static_cast<storage_handle*>(nullptr)}) {
        EXPECT_FALSE(store.next(wrong, true) || store.next_release(wrong, true) ||
                     store.clear_section(wrong) || store.set_at(wrong, bytes("x"), entry_tag::string));
        store.release(wrong);
        EXPECT_TRUE(!wrong || (!put(store, "x", "x", wrong) && !store.create_section("x", wrong, false) &&
                               !store.find_section(nullptr, wrong) && value(store, "v", wrong) == "none" &&
                               value(store, "v", nullptr, &wrong) == "none"));
    }
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
    struct {
        const char* names; // of the file
        std::size_t size;
        std::uint16_t next;
    } const table[] = {
        {"", 0, 1},
        {"\5\0a\0\3\0b\0", 8, 7}, // one is left out
        {"\xFE\x7F"
         "a\0",
         4, 0x8000},
        {"\xFF\x7F"
         "a\0",
         4, 1}, // the upper half doesn't count
        {"\2\0a\0\xFD\xFF"
         "b\0",
         8, 4},
    };
    for (const auto& row : table) {
        storage_object store;
        ASSERT_TRUE(loads(store, std::string(head).append(row.names, row.size).append(no_names) + "\x40\0"s));
        EXPECT_EQ(owned(store.create_section("new", nullptr, false))->id, row.next);
    }
    storage_object store;
    for (int number = 0; number != 0xFFFE; ++number)
        ASSERT_TRUE(put(store, std::to_string(number).c_str(), "v", nullptr, true));
    EXPECT_FALSE(put(store, "one more", "v"));
    EXPECT_TRUE(put(store, "65533", "last"));
    storage_object copy;
    EXPECT_TRUE(loads(copy, packed(store)));
    EXPECT_EQ(value(copy, "65533"), "last");
}

TEST(storage_test, a_handle_keeps_other_threads_out) {
    storage_object store;
    owned handle(store.create_section("a", nullptr, false));
    std::atomic<bool> is_there = false;
    std::string seen;
    platform::thread other;
    ASSERT_TRUE(other.start([&] {
        is_there = true;
        is_there.notify_one();
        seen = value(store, "x");
        return 0U;
    }));
    is_there.wait(false);
    EXPECT_TRUE(put(store, "x", "first") && put(store, "x", "second"));
    handle.reset();
    other.join();
    EXPECT_EQ(seen, "second");
}

std::string logged;

TEST(storage_file_test, tells_what_fails) {
    const test_root root;
    platform::registry_key key;
    ASSERT_TRUE(key.create(platform::registry_root::local_machine, "Software") &&
                key.set("EnableKWILLog", platform::registry_type::dword, le(2 + 16)));
    logger::instance().set_writer_hook([](const char*, std::string_view line) { logged += line; });
    const std::string path = root.engine_path("x.cfg");
    const auto is_logged = [&](const std::string& text, const std::string& end = {}) {
        return std::exchange(logged, {}) == text + " \"" + path + "\"" + end;
    };
    storage_file file(path);
    EXPECT_TRUE(file.write(true)) << "nothing to write";
    EXPECT_FALSE(file.open(false));
    EXPECT_EQ(logged, "") << "for level 2 only";
    EXPECT_FALSE(file.open(true));
    EXPECT_TRUE(is_logged("can't open file"));
    write_file(root.path() / "x.cfg", "");
    EXPECT_FALSE(file.open(true));
    EXPECT_TRUE(is_logged("can't create file mapping from"));
    write_file(root.path() / "x.cfg", nameless("\x40\0\0"sv));
    EXPECT_FALSE(file.open(true));
    EXPECT_TRUE(is_logged("can't unpack storage from"));

    put(file, "a", "v");
    EXPECT_TRUE(file.write(true) && !file.is_modified());
    const std::string content = std::string(head) + "\1\0a\0\xFF\xFF\0\x40\1\1\0\x47\1v"s;
    EXPECT_EQ(read_file(root.path() / "x.cfg"), content);
    EXPECT_TRUE(file.open(true) && !file.is_modified());
    EXPECT_EQ(value(file, "a"), "v");
    file.set_modified(true);
    platform::set_change_hook([](platform::change what, std::string_view) -> std::uint32_t {
        return what == platform::change::write_file ? 112 : 0;
    });
    EXPECT_FALSE(file.write(true));
    EXPECT_TRUE(is_logged("error writing", ", err = 112") && file.is_modified());
    platform::set_change_hook([](platform::change, std::string_view) -> std::uint32_t { return 5; });
    EXPECT_FALSE(file.write(false));
    EXPECT_TRUE(is_logged("can't create file"));
    platform::set_change_hook(nullptr);
    put(file, "a", std::string(storage_object::max_packed_size, 'v'));
    EXPECT_FALSE(file.write(false));
    EXPECT_TRUE(is_logged("can't pack data for"));
    EXPECT_EQ(read_file(root.path() / "x.cfg"), "");
}

} // namespace

} // namespace tvr
