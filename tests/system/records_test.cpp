// Ready records, which carry mail to a machine that can't read it.

#include "support/test.h"
#include "system/engine_root.h"

namespace tvr {
namespace {

namespace fs = std::filesystem;

const std::string sample = TVR_SAMPLE_MAIL;

auto tvrctl(const std::string& arguments) {
    return engine_root::tvrctl(arguments);
}

TEST(records, cut_from_mail_train_as_it_would_itself) {
    std::string expected;
    {
        engine_root root;
        EXPECT_EQ(tvrctl("train --later --spam " + sample + "/spam --ham " + sample + "/ham").code, 0);
        root.stop();
        expected = read_file(root.transact() / "autotrain.bys");
    }
    engine_root root;
    const std::string spam = (root.path() / "spam.records").string();
    const std::string ham = (root.path() / "ham.records").string();
    EXPECT_EQ(tvrctl("tokenize " + sample + "/spam --spam -o " + spam).code, 0);
    EXPECT_EQ(tvrctl("tokenize -q --threads 3 " + sample + "/ham --ham >" + ham).code, 0);
    const auto run = tvrctl("train --later --records " + spam + " - <" + ham);
    EXPECT_EQ(run.code, 0);
    EXPECT_NE(run.text.find("Took 62 messages (30 spam, 32 ham)"), std::string::npos) << run.text;
    root.stop();
    EXPECT_TRUE(read_file(root.transact() / "autotrain.bys") == expected);

    EXPECT_NE(tvrctl("train --records " + spam + ".absent").text.find(".absent: No such file"),
              std::string::npos);
    fs::resize_file(spam, fs::file_size(spam) - 1);
    const auto cut = tvrctl("train --later --records " + spam);
    EXPECT_EQ(cut.code, 3);
    EXPECT_NE(cut.text.find("spam.records: byte "), std::string::npos) << cut.text;
    EXPECT_NE(cut.text.find("Took 30 messages"), std::string::npos) << cut.text;
    EXPECT_EQ(tvrctl("tokenize --ham /absent >" + ham).code, 1);
    EXPECT_EQ(tvrctl("tokenize " + sample).code, 2);
    EXPECT_EQ(tvrctl("train --records " + spam + " --spam " + sample).code, 2);
}

} // namespace
} // namespace tvr
