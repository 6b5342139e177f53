// Ready records, which carry mail to a machine that can't read it.

#include "support/test.h"
#include "system/engine_root.h"

namespace tvr {
namespace {

namespace fs = std::filesystem;

const std::string sample = TVR_SAMPLE_MAIL;

TEST(records, cut_from_mail_train_as_it_would_itself) {
    std::string expected;
    {
        engine_root root;
        tvrctl("train --later --spam " + sample + "/spam --ham " + sample + "/ham", 0);
        root.stop();
        expected = read_file(root.transact() / "autotrain.bys");
    }
    engine_root root;
    const std::string spam = (root.path() / "spam.records").string();
    const std::string ham = (root.path() / "ham.records").string();
    tvrctl("tokenize " + sample + "/spam --spam -o " + spam, 0);
    tvrctl("tokenize -q --threads 3 " + sample + "/ham --ham >" + ham, 0);
    EXPECT_TRUE(holds(tvrctl("train --later --records " + spam + " - <" + ham, 0),
                      "Took 62 messages (30 spam, 32 ham)"));
    root.stop();
    EXPECT_TRUE(read_file(root.transact() / "autotrain.bys") == expected);

    EXPECT_TRUE(holds(tvrctl("train --records " + spam + ".absent").text, ".absent: No such file"));
    fs::resize_file(spam, fs::file_size(spam) - 1);
    const std::string told = tvrctl("train --later --again --records " + spam, 3);
    EXPECT_TRUE(holds(told, "spam.records: byte "));
    EXPECT_TRUE(holds(told, "Took 30 messages"));
    tvrctl("tokenize --ham /absent >" + ham, 3);
    tvrctl("tokenize " + sample, 2);
    tvrctl("train --records " + spam + " --spam " + sample, 2);
}

} // namespace
} // namespace tvr
