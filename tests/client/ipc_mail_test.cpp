// The shared library takes raw mail.

#include "client/tvr_ipc_c.h"
#include "support/test.h"

namespace tvr {
namespace {

TEST(ipc, appends_mail) {
    const test_root root;
    const auto cache = [&] {
        return read_file(root.path() / "appdata/Orvenix/Brackenhold/data/base/transact/autotrain.bys");
    };
    tvr_client* const client = tvr_open();
    ASSERT_NE(client, nullptr);
    const std::string mail = "From: a@b.example\nSubject: free tickets\nMessage-ID: <x@y>\n\nhello there\n";
    EXPECT_EQ(tvr_append_mail(client, mail.data(), mail.size(), tvr_mark_manual), tvr_ok);
    const std::string before = cache();
    for (const char* text : {"<x@y>_", "B hello", "H subject:tickets"})
        EXPECT_NE(before.find(text), std::string::npos) << text;
    EXPECT_EQ(tvr_append_mail(client, "no mail", 7, 0), tvr_bad_message);
    EXPECT_STRNE(tvr_error_text(), "");
    EXPECT_EQ(cache(), before);
    tvr_close(client);
}

} // namespace
} // namespace tvr
