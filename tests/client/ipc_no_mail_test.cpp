// The shared library of a build that parses no mail.

#include "client/tvr_ipc_c.h"
#include "support/test.h"

namespace tvr {
namespace {

TEST(ipc, takes_no_mail) {
    const test_root root;
    tvr_client* const client = tvr_open();
    const std::string mail = "Subject: free tickets\n\nhello there\n";
    EXPECT_EQ(tvr_append_mail(client, mail.data(), mail.size(), 0), tvr_no_mail);
    EXPECT_STREQ(tvr_error_text(), "this build of the library parses no mail");
    tvr_close(client);
}

} // namespace
} // namespace tvr
