#include "msid/msid_access.h"
#include "support/test.h"

namespace tvr {
namespace {

TEST(MessageAccess, WorksOnACopy) {
    test_root root;
    const std::string before = "nSID" + le(2, 1, 0) + counted("old", 1);
    write_file(root.path() / "main" / "s.lst", before);
    write_file(root.path() / "work" / "s.lst", "an older one");
    msid_access access;
    access.add("nothing", 1);
    access.remove("nothing");
    EXPECT_EQ(access.lookup("nothing"), 0U);
    access.open(root.engine_path("main\\"), root.engine_path("work\\"), "s");
    EXPECT_EQ(access.lookup("old"), 1U);
    access.add("new", 2);
    access.remove("old");
    std::filesystem::rename(root.path() / "work" / "s.lst", root.path() / "taken.lst");
    EXPECT_EQ(read_file(root.path() / "taken.lst").substr(24), counted("new", 2));
    EXPECT_EQ(read_file(root.path() / "main" / "s.lst"), before);
    access.reopen();
    EXPECT_EQ(access.lookup("old"), 1U);
    EXPECT_EQ(access.lookup("new"), 0U);
}

TEST(MessageAccess, PurgesWhatTheRangesClaim) {
    test_root root;
    std::string list = "nSID" + le(2, 8, 0);
    for (const unsigned time : {9U, 10U, 20U, 21U, 30U, 30U, 30U, 31U})
        list += counted(std::to_string(list.size()), time);
    write_file(root.path() / "main" / "s.lst", list);
    std::filesystem::create_directory(root.path() / "work");
    msid_access access;
    access.open(root.engine_path("main\\"), root.engine_path("work\\"), "s");
    aged_out_list ranges = {{10, 20, false}, {30, 2, true}};
    access.purge(ranges);
    EXPECT_EQ(ranges[1].last, 0U) << "each claim lowers the count";
    // Of the three at 30 the first two are gone.
    EXPECT_EQ(access.lookup("16"), 9U);
    for (const char* id : {"23", "30", "44", "51"})
        EXPECT_EQ(access.lookup(id), 0U) << id;
    EXPECT_EQ(access.lookup("37"), 21U);
    EXPECT_EQ(access.lookup("58"), 30U);
    EXPECT_EQ(access.lookup("65"), 31U);
    EXPECT_FALSE(claims_time(ranges, 30));
    EXPECT_TRUE(claims_time(ranges, 10));
}

} // namespace
} // namespace tvr
