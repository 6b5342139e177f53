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
        const auto result = tvrctl(arguments);
        EXPECT_EQ(result.code, 3) << arguments;
        EXPECT_TRUE(result.text.starts_with("tvrctl: this build parses no mail: ")) << arguments << "\n"
                                                                                    << result.text;
        EXPECT_EQ(std::count(result.text.begin(), result.text.end(), '\n'), 1) << result.text;
    }
    EXPECT_EQ(engine_root::process(), 0U);
    EXPECT_FALSE(std::filesystem::exists(root.transact() / "autotrain.bys"));
}

} // namespace
} // namespace tvr
