#include <gtest/gtest.h>

#include "common/token_hash.h"

namespace {

using namespace std::literals;

// Worked out by hand. order_hash leaves out the last byte: "ab" is 'a' alone, 0x61; "abc" is
// 0x61 * 16 + 0x62 = 0x672; "\xFFx" is -1, so 0xFFFFFFFF: its top four bits F0000000 >> 24 = F0 are folded
// in, FFFFFFFF ^ F0 = FFFFFF0F, and cleared: 0FFFFF0F.
TEST(TokenHash, OrderHash) {
    EXPECT_EQ(tvr::order_hash(""), 0U);
    EXPECT_EQ(tvr::order_hash("a"), 0U);
    EXPECT_EQ(tvr::order_hash("ab"), 0x61U);
    EXPECT_EQ(tvr::order_hash("ax"), 0x61U);
    EXPECT_EQ(tvr::order_hash("abc"), 0x672U);
    EXPECT_EQ(tvr::order_hash("\xFFx"), 0x0FFFFF0FU);
    // Seven bytes 'a' (the eighth doesn't count): 0x61, 0x671, 0x6771, 0x67771, 0x677771, 0x6777771; then
    // 0x67777771 has the top bits 6: ^ 0x60 = 0x67777711, cleared: 0x07777711.
    EXPECT_EQ(tvr::order_hash("aaaaaaab"), 0x07777711U);
}

// probe_hash starts at 0x521365FF, rotated left by 5: 0x426CBFEA. One byte 'a': ^ 0x61 = 0x426CBF8B; one byte
// 0xFF is sign-extended: ^ 0xFFFFFFFF = 0xBD934015.
// step_hash starts at 0xAC645289, rotated left by 9: 0xC8A51358; 'a' gives 0xC8A51339.
TEST(TokenHash, ProbeAndStep) {
    EXPECT_EQ(tvr::probe_hash("a"), 0x426CBF8BU);
    EXPECT_EQ(tvr::probe_hash("\xFF"), 0xBD934015U);
    EXPECT_EQ(tvr::step_hash("a"), 0xC8A51339U);
    EXPECT_EQ(tvr::step_hash("\xFF"), 0x375AECA7U);
}

// Of five bytes only the first position has more than four bytes left, and takes a whole word: "bcdea" and
// the same text read byte by byte would differ. 0x426CBFEA ^ 0x64636261 ("abcd") = 0x260FDD8B; rotated
// 0xC1FBB164 ^ 'b' 62 = 0xC1FBB106; 0x3F7620D8 ^ 63 = 0x3F7620BB; 0xEEC41767 ^ 64 = 0xEEC41703;
// 0xD882E07D ^ 65 = 0xD882E018.
TEST(TokenHash, TakesOneWordOfFiveBytes) {
    EXPECT_EQ(tvr::probe_hash("abcde"), 0xD882E018U);
}

} // namespace
