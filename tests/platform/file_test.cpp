#include "platform/file.h"

#include <array>
#include <functional>

#include "platform/change_hook.h"
#include "platform/library.h"
#include "platform/mapping.h"
#include "support/child_process.h"
#include "support/platform_limits.h"
#include "support/platform_objects.h"
#include "support/test.h"

namespace tvr {
namespace {

using namespace platform;
using namespace std::literals;

// --- share modes ---

// What a second open may be while a first one is there: '+' it succeeds, '-' it fails with 32. The rows are
// the first, the columns the second; both count "read", "write", "both" times the sharing of nothing,
// "read", "write", "both".
constexpr std::array<std::string_view, 12> sharing_table = {
    "------------", // read: nothing
    "-+-+--------", //       read
    "-----+-+----", //       write
    "-+-+-+-+-+-+", //       both
    "------------", // write
    "--++--------", //
    "------++----", //
    "--++--++--++", //
    "------------", // both
    "---+--------", //
    "-------+----", //
    "---+---+---+", //
};

std::string shared_path() {
    return temp_folder_path() + "shared";
}

bool open_shared(file& target, std::size_t number) {
    return target.open(shared_path(), static_cast<access>(number / 4 + 1), static_cast<share>(number % 4),
                       creation::open_existing);
}

const child_role holder("file holder", [](std::string_view number) {
    file held;
    return open_shared(held, std::stoul(std::string(number))) ? raise_and_wait("ready") : 1;
});

std::string second_opens() {
    std::string outcome;
    for (std::size_t number = 0; number < sharing_table.size(); ++number) {
        file second;
        set_last_error(0);
        if (open_shared(second, number))
            outcome += '+';
        else
            outcome += last_error() == error::sharing_violation ? '-' : '?';
    }
    return outcome;
}

class share_modes : public testing::TestWithParam<std::size_t> {
protected:
    void SetUp() override { write_file(root.path() / "tmp" / "shared", "text"); }
    static void expect_held() {
        EXPECT_EQ(second_opens(), sharing_table[GetParam()]);
        EXPECT_TRUE(failed_with(error::sharing_violation, delete_file(shared_path())));
        EXPECT_TRUE(failed_with(error::sharing_violation, move_file(shared_path(), shared_path() + "2")));
    }

    test_root root;
    std::string path = shared_path(); // makes the folder
};

TEST_P(share_modes, hold_until_the_file_is_closed_or_its_process_dies) {
    file first;
    ASSERT_TRUE(open_shared(first, GetParam()));
    expect_held();
    file looker;
    EXPECT_TRUE(looker.open(path, access::none, share::none, creation::open_existing));
    EXPECT_EQ(looker.size(), 4U);
    first.close();
    EXPECT_EQ(second_opens(), "++++++++++++");

    named_event ready("ready");
    child_process other("file holder", std::to_string(GetParam()));
    ASSERT_TRUE(ready.wait(patience));
    expect_held();
    EXPECT_EQ(other.kill(), child_process::killed);
    EXPECT_EQ(second_opens(), "++++++++++++");
    EXPECT_TRUE(move_file(path, path + "2") && delete_file(path + "2"));
}

INSTANTIATE_TEST_SUITE_P(all, share_modes, testing::Range<std::size_t>(0, sharing_table.size()));

TEST(file_test, a_refused_open_changes_nothing) {
    const test_root root;
    const std::string path = root.engine_path("held");
    write_file(root.path() / "held", "text");
    file first, second;
    ASSERT_TRUE(first.open(path, access::read, share::read, creation::open_existing));
    for (const creation how : {creation::create_always, creation::truncate_existing, creation::open_always})
        EXPECT_TRUE(
            failed_with(error::sharing_violation, second.open(path, access::write, share::read_write, how)));
    EXPECT_FALSE(copy_file(path, path, false));
    EXPECT_EQ(read_file(root.path() / "held"), "text");
}

// --- answers ---

class files : public testing::Test {
protected:
    files() {
        std::filesystem::create_directories(root.path() / "folder" / "full");
        write_file(root.path() / "file", "0123456789");
        write_file(root.path() / "empty", "");
        write_file(root.path() / "locked", "read-only");
        write_file(root.path() / "folder" / "full" / "inner", "x");
        EXPECT_TRUE(set_attributes(at("locked"), attribute::read_only));
    }
    [[nodiscard]] std::string at(const std::string& name) const { return root.engine_path(name); }
    bool open(file& target, const std::string& name, access rights,
              creation how = creation::open_existing) const {
        return target.open(at(name), rights, share::none, how);
    }

    // Everything below the root, with what can be told about it.
    [[nodiscard]] std::map<std::string, std::string> tree() const {
        std::map<std::string, std::string> all;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(root.path())) {
            auto& facts = all[entry.path().string()];
            facts = std::to_string(static_cast<unsigned>(entry.status().permissions()));
            if (entry.is_regular_file())
                facts += read_file(entry.path()) +
                         std::to_string(entry.last_write_time().time_since_epoch().count());
        }
        return all;
    }

    test_root root;
    file f;
    mapping map;
    std::size_t got = 0;
};

TEST_F(files, failures_have_their_numbers_and_change_nothing) {
    file reading, writing, empty;
    directory_search search;
    directory_entry entry;
    library lib;
    char byte = 0;
    write_file(root.path() / "free", "held by nobody");
    ASSERT_TRUE(open(reading, "file", access::read));
    ASSERT_TRUE(open(writing, "folder\\full\\inner", access::write));
    ASSERT_TRUE(open(empty, "empty", access::read_write));
    const std::tuple<std::uint32_t, const char*, std::function<bool()>> table[] = {
        {2, "open missing", [&] { return open(f, "no", access::read); }},
        {3, "open below missing", [&] { return open(f, "no\\a", access::read); }},
        {3, "open below a file", [&] { return open(f, "file\\a", access::read); }},
        {3, "no path", [&] { return f.open("", access::read, share::read, creation::open_always); }},
        {80, "make present", [&] { return open(f, "empty", access::write, creation::create_new); }},
        {5, "open folder", [&] { return open(f, "folder", access::read); }},
        {5, "look at folder", [&] { return open(f, "folder", access::none); }},
        {87, "cut unwritten", [&] { return open(f, "file", access::read, creation::truncate_existing); }},
        {2, "delete missing", [&] { return delete_file(at("no")); }},
        {5, "delete folder", [&] { return delete_file(at("folder")); }},
        {5, "delete read-only", [&] { return delete_file(at("locked")); }},
        {2, "move missing", [&] { return move_file(at("no"), at("new")); }},
        {183, "move onto", [&] { return move_file(at("locked"), at("file")); }},
        {2, "replace by missing", [&] { return replace_file(at("no"), at("file")); }},
        {5, "replace folder", [&] { return replace_file(at("free"), at("folder")); }},
        {5, "replace read-only", [&] { return replace_file(at("free"), at("locked")); }},
        {3, "move below missing", [&] { return move_file(at("locked"), at("no\\a")); }},
        {2, "copy missing", [&] { return copy_file(at("no"), at("new"), false); }},
        {80, "copy onto", [&] { return copy_file(at("locked"), at("empty"), true); }},
        {2, "link missing", [&] { return create_hard_link(at("new"), at("no")); }},
        {183, "link onto", [&] { return create_hard_link(at("locked"), at("file")); }},
        {5, "link folder", [&] { return create_hard_link(at("new"), at("folder")); }},
        {183, "make folder", [&] { return create_directory(at("folder")); }},
        {3, "make folder below", [&] { return create_directory(at("no\\a")); }},
        {145, "remove full", [&] { return remove_directory(at("folder\\full")); }},
        {2, "remove missing", [&] { return remove_directory(at("no")); }},
        {267, "remove file", [&] { return remove_directory(at("locked")); }},
        {2, "attributes", [&] { return get_attributes(at("no")).has_value(); }},
        {2, "set attributes", [&] { return set_attributes(at("no"), attribute::read_only); }},
        {267, "temporary file", [&] { return make_temp_file(at("no"), "tvr").has_value(); }},
        {2, "search nothing", [&] { return search.first(at("folder\\*.bye"), entry); }},
        {3, "search missing", [&] { return search.first(at("no\\*"), entry); }},
        {6, "read closed", [&] { return f.read(&byte, 1, got); }},
        {6, "write closed", [&] { return f.write("x", 1); }},
        {5, "read unreadable", [&] { return writing.read(&byte, 1, got); }},
        {5, "write unwritable", [&] { return reading.write("x", 1); }},
        {131, "seek before 0", [&] { return reading.seek(-11, origin::end).has_value(); }},
        {1006, "map empty", [&] { return map.create(empty, true, 0); }},
        {8, "map behind the end", [&] { return map.create(reading, false, 11); }},
        {5, "map unwritable", [&] { return map.create(reading, true, 10); }},
        {6, "view unmapped", [&] { return map.map_view(); }},
        {126, "library", [&] { return lib.load("tvr_no_such.dll"); }},
    };
    const auto before = tree();
    for (const auto& [number, what, act] : table) {
        set_last_error(4711);
        EXPECT_TRUE(failed_with(number, act())) << what;
    }
    EXPECT_EQ(tree(), before);
}

TEST_F(files, have_a_position_and_an_end) {
    std::array<char, 32> buffer{};
    const auto read = [&](std::size_t size) {
        EXPECT_TRUE(f.read(buffer.data(), size, got));
        return std::string(buffer.data(), got);
    };
    ASSERT_TRUE(open(f, "file", access::read_write));
    EXPECT_EQ(read(4), "0123");
    EXPECT_TRUE(f.write("ab", 2));
    EXPECT_EQ(f.seek(-1, origin::current), 5U);
    EXPECT_EQ(read(99), "b6789");
    EXPECT_EQ(read(1), "");
    EXPECT_EQ(f.seek(3, origin::end), 13U);
    EXPECT_EQ(f.size(), 10U);
    EXPECT_EQ(read(1), "");
    EXPECT_TRUE(f.write("z", 1));
    EXPECT_EQ(f.seek(-5, origin::end), 9U);
    EXPECT_EQ(read(99), "9\0\0\0z"s);
    EXPECT_EQ(f.seek(2, origin::begin), 2U);
    EXPECT_TRUE(f.set_end());
    EXPECT_EQ(f.seek(2, origin::current), 4U);
    EXPECT_TRUE(f.set_end() && f.flush());
    f.close();
    EXPECT_EQ(read_file(root.path() / "file"), "01\0\0"s);
}

TEST_F(files, times_count_in_100_ns) {
    ASSERT_TRUE(open(f, "file", access::read_write));
    // 2001-09-09 01:46:40 UTC is the second 1000000000 since 1970 and so 12644473600 since 1601.
    constexpr std::uint64_t moments[] = {126'444'736'000'000'000, 126'444'736'000'000'001,
                                         126'444'736'009'999'999};
    for (const std::uint64_t moment : moments) {
        EXPECT_TRUE(f.set_last_write_time(moment));
        EXPECT_EQ(f.last_write_time(), moment);
    }
    using namespace std::chrono;
    const auto seconds = file_clock::to_sys(std::filesystem::last_write_time(root.path() / "file"));
    EXPECT_EQ(floor<std::chrono::seconds>(seconds).time_since_epoch().count(), 1'000'000'000);
    f.close();
    EXPECT_TRUE(set_attributes(at("file"), attribute::read_only));
    EXPECT_TRUE(copy_file(at("file"), at("copy"), true));
    ASSERT_TRUE(open(f, "copy", access::read));
    EXPECT_EQ(f.last_write_time(), moments[2]);
    EXPECT_EQ(get_attributes(at("copy")), attribute::archive | attribute::read_only);
}

TEST_F(files, read_only_files_are_kept) {
    if (!read_only_holds(root.path() / "locked"))
        GTEST_SKIP() << "whoever runs this may write in read-only files";
    for (const auto& [rights, how] : {std::pair(access::write, creation::open_existing),
                                      {access::write, creation::create_always},
                                      {access::read, creation::create_always}})
        EXPECT_TRUE(failed_with(error::access_denied, open(f, "locked", rights, how)));
    EXPECT_EQ(get_attributes(at("locked")), attribute::archive | attribute::read_only);
    EXPECT_EQ(get_attributes(at("folder\\")), attribute::directory);
    EXPECT_FALSE(copy_file(at("file"), at("locked"), false));
    EXPECT_EQ(read_file(root.path() / "locked"), "read-only");
    EXPECT_TRUE(move_file(at("locked"), at("moved")));
    EXPECT_TRUE(set_attributes(at("moved"), attribute::normal));
    EXPECT_TRUE(delete_file(at("moved")));
    ASSERT_TRUE(f.open(at("born"), access::write, share::none, creation::create_new, attribute::read_only));
    EXPECT_TRUE(f.write("x", 1));
    f.close();
    EXPECT_FALSE(open(f, "born", access::write));
}

TEST_F(files, a_link_is_the_file_and_a_copy_another) {
    ASSERT_TRUE(create_hard_link(at("folder\\link"), at("file")));
    ASSERT_TRUE(copy_file(at("file"), at("copy"), true));
    write_file(root.path() / "file", "ABC");
    EXPECT_TRUE(delete_file(at("file")));
    EXPECT_EQ(read_file(root.path() / "folder" / "link"), "ABC");
    EXPECT_EQ(read_file(root.path() / "copy"), "0123456789");
    std::string bytes(9'000'001, 'x'); // more than is copied in one go
    for (std::size_t i = 0; i < bytes.size(); i += 4093)
        bytes[i] = static_cast<char>(i);
    write_file(root.path() / "long", bytes);
    EXPECT_TRUE(copy_file(at("long"), at("copy"), false));
    EXPECT_TRUE(read_file(root.path() / "copy") == bytes);
}

TEST_F(files, durable_are_files_and_folders_that_are_there) {
    ASSERT_TRUE(f.open(at("file"), access::read_write, share::read_write, creation::open_existing));
    ASSERT_TRUE(f.write("x", 1) && create_hard_link(at("other"), at("file")));
    EXPECT_TRUE(has_other_names(at("file")) && !has_other_names(at("missing")));
    EXPECT_TRUE(make_durable({at("file"), at("other"), at(""), at("file")}));
    EXPECT_TRUE(failed_with(error::file_not_found, make_durable({at("missing"), at("")})));
}

TEST_F(files, path_forms) {
    const std::string before = current_directory();
    ASSERT_TRUE(set_current_directory(at("folder\\")));
    EXPECT_EQ(current_directory(), at("folder"));
    for (const char* name : {"full\\inner", ".\\full\\inner", "..\\folder\\full\\inner", "full/inner"})
        EXPECT_TRUE(get_attributes(name)) << name;
    EXPECT_FALSE(get_attributes("inner"));
    EXPECT_FALSE(get_attributes("full\\inner\0"s));
    EXPECT_TRUE(set_current_directory(before));
}

TEST_F(files, temporary_names) {
    const std::string start = at("folder\\pre");
    for (const char* folder : {"folder", "folder\\"}) {
        const auto made = make_temp_file(at(folder), "prefix");
        ASSERT_TRUE(made && made->starts_with(start));
        EXPECT_EQ(made->find_first_not_of("0123456789abcdefABCDEF", start.size()), made->find(".tmp"));
        EXPECT_TRUE(get_attributes(*made));
    }
    EXPECT_NE(make_temp_file(at("folder"), "x"), make_temp_file(at("folder"), "x"));
    EXPECT_EQ(get_attributes(temp_folder_path()), attribute::directory);
}

// --- searches ---

TEST(directory_search_test, patterns_find_sorted_names) {
    const test_root root;
    for (const char* name :
         {"b0.bye", "B1.BYE", "a.b.c", "data.bys", "plain", "x1", "x2", "x10", "spam0001.bye"})
        write_file(root.path() / name, "");
    std::filesystem::create_directory(root.path() / "sub.bye");
    using names = std::vector<std::string>;
    const std::pair<const char*, names> table[] = {
        {"*X*", {"x1", "x10", "x2"}},
        {"*.*",
         {"B1.BYE", "a.b.c", "b0.bye", "data.bys", "plain", "spam0001.bye", "sub.bye", "x1", "x10", "x2"}},
        {"*.bye", {"B1.BYE", "b0.bye", "spam0001.bye", "sub.bye"}},
        {"b?.Bye", {"B1.BYE", "b0.bye"}},
        {"*a*.b*", {"a.b.c", "data.bys", "spam0001.bye"}},
        {"spam????.bye", {"spam0001.bye"}},
        {"x?", {"x1", "x2"}},
        {"plain.*", {"plain"}},
        {"x", {}},
        {"?.bye", {}},
    };
    for (const auto& [pattern, expected] : table) {
        directory_search search;
        directory_entry entry;
        names found;
        bool more = search.first(root.engine_path(pattern), entry);
        EXPECT_EQ(last_error() == error::file_not_found && !more, expected.empty()) << pattern;
        for (; more; more = search.next(entry)) {
            if (entry.name == "." || entry.name == "..") {
                EXPECT_TRUE(found.empty()) << pattern;
                continue;
            }
            EXPECT_EQ(entry.attributes,
                      entry.name.starts_with("sub") ? attribute::directory : attribute::archive);
            found.push_back(entry.name);
        }
        EXPECT_EQ(found, expected) << pattern;
        EXPECT_EQ(last_error(), expected.empty() ? error::file_not_found : error::no_more_files);
    }
}

// --- the change hook ---

std::vector<std::pair<change, std::string>> asked;
std::size_t refused = 0; // the number of the question that is answered by an error

std::uint32_t ask(change what, std::string_view path) {
    asked.emplace_back(what, path);
    return asked.size() == refused ? 4711U : 0U;
}

TEST_F(files, every_change_can_be_refused) {
    using enum change;
    const auto reopen = [&] { return open(f, "file", access::read_write); };
    const auto make = [&] { return open(f, "new", access::read, creation::open_always); };
    const auto cut = [&] { return open(f, "file", access::write, creation::create_always); };
    const auto lock = [&] { return platform::set_attributes(at("file"), attribute::read_only); };
    const auto grow = [&] { return reopen() && f.seek(99, origin::end) && f.set_end(); };
    struct {
        const char* path;
        std::vector<change> changes;
        std::function<bool()> act;
    } const table[] = {
        {"new", {create_file}, make},
        {"file", {truncate_file}, cut},
        {"file", {truncate_file}, grow},
        {"file", {truncate_file}, [&] { return reopen() && map.create(f, true, 99); }},
        {"file", {write_file}, [&] { return reopen() && f.write("abc", 3); }},
        {"file", {set_time}, [&] { return reopen() && f.set_last_write_time(1); }},
        {"file", {delete_file}, [&] { return platform::delete_file(at("file")); }},
        {"new", {rename_file}, [&] { return move_file(at("file"), at("new")); }},
        {"new", {rename_file}, [&] { return replace_file(at("file"), at("new")); }},
        {"new", {create_file, write_file, set_time}, [&] { return copy_file(at("file"), at("new"), true); }},
        {"new", {link_file}, [&] { return create_hard_link(at("new"), at("file")); }},
        {"new", {create_folder}, [&] { return create_directory(at("new")); }},
        {"void", {remove_folder}, [&] { return remove_directory(at("void")); }},
        {"file", {set_attributes}, lock},
    };
    for (const auto& row : table) {
        std::filesystem::remove(root.path() / "new");
        std::filesystem::create_directory(root.path() / "void");
        tvr::write_file(root.path() / "file", "0123456789");
        const auto before = tree();
        SCOPED_TRACE(&row - table);
        set_change_hook(ask);
        for (refused = 1; refused <= row.changes.size(); ++refused) {
            asked.clear();
            EXPECT_TRUE(failed_with(4711, row.act()));
            f.close();
            EXPECT_EQ(tree(), before);
        }
        refused = 0;
        asked.clear();
        EXPECT_TRUE(row.act());
        std::vector<std::pair<change, std::string>> expected;
        for (const change each : row.changes)
            expected.emplace_back(each, at(row.path));
        EXPECT_EQ(asked, expected);
        EXPECT_NE(tree(), before);
        set_change_hook(nullptr);
        f.close();
        map.close();
    }
}

// --- mappings ---

TEST_F(files, a_mapping_grows_the_file_and_shows_it) {
    ASSERT_TRUE(f.open(at("file"), access::read_write, share::read, creation::open_existing));
    ASSERT_TRUE(map.create(f, true, 70'000) && map.map_view());
    EXPECT_TRUE(f.size() == 70'000 && map.size() == 70'000);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(map.data()), 70'000),
              "0123456789" + std::string(69'990, '\0'));
    file g;
    ASSERT_TRUE(g.open(at("file"), access::read, share::read_write, creation::open_existing));
    mapping reading;
    ASSERT_TRUE(reading.create(g, false, 0) && reading.map_view());
    EXPECT_EQ(reading.size(), 70'000U);
    map.data()[69'999] = 'z';
    EXPECT_EQ(reading.data()[69'999], 'z');
    map.close();
    EXPECT_TRUE(!map.has_mapping() && map.data() == nullptr);
    ASSERT_TRUE(map.create(f, true, 5) && map.map_view());
    EXPECT_EQ(f.size(), 70'000U);
    map.data()[0] = 'a';
    char first = 0;
    EXPECT_TRUE(g.read(&first, 1, got));
    EXPECT_EQ(first, 'a');
}

} // namespace
} // namespace tvr
