#include "common/token_hash.h"
#include "support/test.h"

namespace tvr {
namespace {

// probe_hash starts at 0x521365FF, rotated left by 5: 0x426CBFEA. One byte 'a': ^ 0x61 = 0x426CBF8B; one byte
// 0xFF is sign-extended: ^ 0xFFFFFFFF = 0xBD934015.
// step_hash starts at 0xAC645289, rotated left by 9: 0xC8A51358; 'a' gives 0xC8A51339.
TEST(TokenHash, ProbeAndStep) {
    EXPECT_EQ(probe_hash("a"), 0x426CBF8BU);
    EXPECT_EQ(probe_hash("\xFF"), 0xBD934015U);
    EXPECT_EQ(step_hash("a"), 0xC8A51339U);
    EXPECT_EQ(step_hash("\xFF"), 0x375AECA7U);
}

// Of five bytes only the first position has more than four bytes left, and takes a whole word: "bcdea" and
// the same text read byte by byte would differ. 0x426CBFEA ^ 0x64636261 ("abcd") = 0x260FDD8B; rotated
// 0xC1FBB164 ^ 'b' 62 = 0xC1FBB106; 0x3F7620D8 ^ 63 = 0x3F7620BB; 0xEEC41767 ^ 64 = 0xEEC41703;
// 0xD882E07D ^ 65 = 0xD882E018.
TEST(TokenHash, TakesOneWordOfFiveBytes) {
    EXPECT_EQ(probe_hash("abcde"), 0xD882E018U);
}

} // namespace
} // namespace tvr
