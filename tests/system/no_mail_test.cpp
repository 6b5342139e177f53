// A build that parses no mail says so in one line, wherever mail is asked for.

#include <algorithm>

#include "support/test.h"
#include "system/engine_root.h"

namespace tvr {
namespace {

TEST(no_mail, is_told_in_one_line) {
    engine_root root;
    for (const char* arguments :
         {"train --spam x --ham y", "score x", "score --filter --frobnicate", "eval --spam x --ham y",
          "tokenize x --spam", "watch --spam x", "forget --file x"}) {
        const std::string told = tvrctl(arguments, 3);
        EXPECT_TRUE(told.starts_with("tvrctl: this build parses no mail: ")) << told;
        EXPECT_EQ(std::ranges::count(told, '\n'), 1) << told;
    }
    EXPECT_EQ(engine_root::process(), 0U);
    EXPECT_FALSE(std::filesystem::exists(root.transact() / "autotrain.bys"));
}

} // namespace
} // namespace tvr
