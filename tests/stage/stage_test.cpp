#include <numeric>
#include <set>

#include "stage/temp_folder.h"
#include "support/test.h"

namespace tvr {
namespace {

using namespace std::literals;

class Stage : public testing::Test {
protected:
    Stage() {
        std::filesystem::create_directories(transact);
        holder.init(root.engine_path("base\\"));
    }
    temp_folder& folder() { return holder.folder(); }
    std::string engine(const std::string& name) const { return root.engine_path("base\\transact\\" + name); }
    // The files below a stage folder with their contents, folders with a slash.
    std::string listed(const char* stage) const {
        std::set<std::string> all;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(transact / stage))
            all.insert(entry.path().lexically_relative(transact / stage).generic_string() +
                       (entry.is_directory() ? "/" : "=" + read_file(entry.path())) + " ");
        return std::accumulate(all.begin(), all.end(), std::string());
    }
    void unpack(std::string_view archive) {
        folder().prepare(3);
        write_file(transact / "archive", archive);
        folder().unpack(3, engine("archive"));
    }

    test_root root;
    const std::filesystem::path transact = root.path() / "base" / "transact";
    tmpfld_holder holder;
};

TEST_F(Stage, NamesAndMarkers) {
    EXPECT_EQ(folder().path(0), engine("0000")) << "a new object, without a backslash";
    EXPECT_EQ(folder().path(2), engine("0002\\"));
    EXPECT_EQ(folder().path(0), engine("0000\\"));
    EXPECT_EQ(folder().path(0x1AF), engine("01AF\\"));
    EXPECT_EQ(folder().path_of(6, "base.rgd"), engine("0006\\base.rgd"));
    EXPECT_EQ(holder.main_path("x.lst"), root.engine_path("base\\x.lst"));

    EXPECT_FALSE(holder._is_success(2));
    holder._mark_prepared(2); // no folder, no marker
    EXPECT_FALSE(holder._is_success(2));
    folder().prepare(2);
    write_file(transact / "0002" / "prepared.txt", "a marker of another length");
    EXPECT_TRUE(holder._is_success(2));
    holder._mark_prepared(2);
    EXPECT_EQ(listed("0002"), "prepared.txt=prepared\0 "s);
    EXPECT_FALSE(holder._is_success(3));
    holder._mark_unsuccess(2);
    EXPECT_EQ(listed("0002"), "");
    holder._mark_prepared(2);
    folder().remove(2);
    EXPECT_FALSE(std::filesystem::exists(transact / "0002"));
    EXPECT_FALSE(holder._is_success(2));

    tmpfld_holder unready;
    unready._mark_prepared(2);
    unready._mark_unsuccess(2);
    EXPECT_FALSE(unready._is_success(2));
}

TEST_F(Stage, PreparesAndCleans) {
    write_file(transact / "0001", "a file of that name");
    folder().prepare(1);
    EXPECT_TRUE(std::filesystem::is_directory(transact / "0001"));
    const auto fill = [&] {
        write_file(transact / "0001" / "a" / "b" / "deep", "1");
        write_file(transact / "0001" / "locked", "2");
        ASSERT_TRUE(platform::set_attributes(engine("0001\\locked"), platform::attribute::read_only));
        ASSERT_TRUE(platform::set_attributes(engine("0001\\a"), platform::attribute::read_only));
    };
    fill();
    folder().create(1);
    EXPECT_EQ(listed("0001"), "a/ a/b/ a/b/deep=1 locked=2 ");
    folder().prepare(1);
    EXPECT_EQ(listed("0001"), "");
    fill();
    folder().remove(1);
    EXPECT_FALSE(std::filesystem::exists(transact / "0001"));
    folder().clean(1); // of what isn't there
    folder().remove(1);

    // A file in use ends the cleaning at once, and the folder stays.
    for (const char* name : {"1", "2", "3"})
        write_file(transact / "0001" / name, name);
    platform::file held;
    ASSERT_TRUE(held.open(engine("0001\\2"), platform::access::read, platform::share::read,
                          platform::creation::open_existing));
    folder().remove(1);
    EXPECT_EQ(listed("0001"), "2=2 3=3 ");
    held.close();
    folder().remove(1);
    EXPECT_FALSE(std::filesystem::exists(transact / "0001"));
}

TEST_F(Stage, FindsAndMakesTemporaryFiles) {
    folder().prepare(1);
    std::string found = "as it was";
    EXPECT_FALSE(folder().find_first(1, &found, "dis"));
    EXPECT_EQ(found, "as it was");
    std::string name, path;
    ASSERT_TRUE(folder().tmp_filename_for_stage(1, name, false));
    ASSERT_TRUE(folder().tmp_filename_for_stage(1, path, true, "other"));
    EXPECT_TRUE(name.starts_with("dis") && name.ends_with(".tmp")) << name;
    EXPECT_TRUE(path.starts_with(engine("0001\\oth"))) << path;
    EXPECT_EQ(listed("0001"), name + "= " + path.substr(engine("0001\\").size()) + "= ");
    EXPECT_TRUE(folder().find_first(1, &found, "dis"));
    EXPECT_EQ(found, engine("0001\\") + name);
    EXPECT_TRUE(folder().find_first(1, nullptr, "oth"));
    EXPECT_FALSE(folder().find_first(1, nullptr, "is"));
    EXPECT_FALSE(folder().tmp_filename_for_stage(7, path, true)) << "no folder";
}

// Packed with or without a library, the tags stand around the same files.
TEST_F(Stage, Archives) {
    folder().prepare(2);
    write_file(transact / "0002" / "a.txt", std::string(5000, 'a') + "end");
    write_file(transact / "0002" / "b.txt", "short");
    write_file(transact / "0002" / "sub" / "c.txt", "inner");
    std::string archive;
    folder().pack(archive, 2);
    ASSERT_FALSE(archive.empty());
    const std::string bytes = read_file(platform::display_path(archive));
    EXPECT_TRUE(bytes.starts_with("\3\0\1\5a.txt"s));
    EXPECT_TRUE(holds(bytes, "\2\1\5b.txt") && holds(bytes, "\2\3\3sub\1\5c.txt"));
    EXPECT_TRUE(bytes.ends_with("\2\4\4\5"));

    // By hand in the plain form. deliberate: a file after a folder isn't restored.
    unpack("\3\0\1\5a.txt"s + le(3) + "abc" + "\2\1\1b" + le(0) + "\2\3\3sub\1\1c" + le(1) + "c\2\4\1\1d" +
           le(1) + "d\2\4\5");
    EXPECT_EQ(listed("0003"), "a.txt=abc b= sub/ sub/c=c ");
}

TEST_F(Stage, SurvivesDamagedArchives) {
    const std::string good = "\3\0\1\1a"s + le(1) + "a\2";
    std::string deep = "\3\0"s;
    for (int i = 0; i < 10000; ++i)
        deep += "\3\1x";
    const std::tuple<const char*, std::string, std::string> cases[] = {
        {"nothing", "", ""},
        {"foreign", "this is none", ""},
        {"cut in a name", good + "\1\7abc", "a=a "},
        {"cut in front of a size", good + "\1\1b\1\0"s, "a=a "},
        {"size over the end", good + "\1\1b" + le(900) + "b", "a=a "},
        {"4 billion bytes", good + "\1\1b" + le(0xFFFFFFFF) + "b", "a=a "},
        {"packed head that lies", good + "\1\1b" + le(0x26072105, 2, 0xFFFFFFFF, 8) + "b", "a=a "},
        {"packed garbage", good + "\1\1b" + le(0x26072105, 2, 3, 4) + "abcd\2\4\5", "a=a b=\0\0\0 "s},
        {"leaves its folder", good + "\1\7../evil" + le(1) + "e\2", "a=a "},
        {"leaves it otherwise", good + "\1\7..\\evil" + le(1) + "e\2", "a=a "},
        {"folder outside", good + "\3\2..\1\4evil" + le(1) + "e\2", "a=a "},
        {"no name", good + "\1\0"s + le(1) + "e\2", "a=a "},
    };
    for (const auto& [what, bytes, restored] : cases) {
        unpack(bytes);
        EXPECT_EQ(listed("0003"), restored) << what;
        EXPECT_FALSE(std::filesystem::exists(transact / "evil"));
    }
    unpack(deep);
    EXPECT_LT(listed("0003").size(), 3000U) << "folders without end";
    folder().remove(3);
    EXPECT_FALSE(std::filesystem::exists(transact / "0003"));
    folder().unpack(3, engine("missing"));
}

} // namespace
} // namespace tvr
