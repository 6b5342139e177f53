#include "msid/msid_key.h"

#include <gtest/gtest.h>
#include <string>

namespace {

TEST(MessageKey, FoldsByHand) {
    const struct {
        std::string id, key;
    } cases[] = {
        {"", "           "},
        {"abc", "\3abc       "},
        {"0123456789A", "\x0Bq123456789"}, // '0' ^ 'A' is 'q'
        {"aaaaaaaaaaaaaaaaaaaaB", "\x15"
                                  "B         "}, // two equal tens cancel each other out
        {std::string(256, 'x'), "       xxxx"},  // the low byte of 256 is 0; 25 tens and six more
        {std::string("\0\xFF", 2), "\2 \xFF        "},
    };
    for (const auto& c : cases) {
        std::string bytes(tvr::key11::size, '?');
        tvr::key11::of(c.id).store(reinterpret_cast<std::uint8_t*>(bytes.data()));
        EXPECT_EQ(bytes, c.key) << c.id;
    }
    // The order is that of unsigned bytes, with the length in front.
    EXPECT_LT(tvr::key11::of("zz"), tvr::key11::of("aaa"));
    EXPECT_LT(tvr::key11::of("a\x7F"), tvr::key11::of("a\x80"));
    EXPECT_LT(tvr::key11::of("aaaaaaaaa\x7F"), tvr::key11::of("aaaaaaaaa\x80"));
}

} // namespace
