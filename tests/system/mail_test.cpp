// tvrctl and the engine on real mail.

#include <fstream>

#include <nlohmann/json.hpp>

#include "common/path.h"
#include "platform/file.h"
#include "support/test.h"
#include "system/engine_root.h"

namespace tvr {
namespace {

namespace fs = std::filesystem;

nlohmann::json status() {
    return nlohmann::json::parse(tvrctl("status --json").text);
}

const std::string sample = TVR_SAMPLE_MAIL;

TEST(mail, a_folder_of_each_kind_gives_a_base) {
    engine_root root;
    EXPECT_TRUE(status()["base"].is_null());
    const auto run = tvrctl("train --wait --spam " + sample + "/spam --ham " + sample + "/ham");
    EXPECT_EQ(run.code, 0);
    EXPECT_TRUE(holds(run.text, "Took 62 messages (30 spam, 32 ham)"));
    EXPECT_TRUE(holds(run.text, "Published base: "));
    const auto state = status();
    EXPECT_TRUE(state["engine"]["running"]);
    EXPECT_EQ(state["base"]["spam_messages"], 30);
    EXPECT_EQ(state["base"]["ham_messages"], 32);
    EXPECT_EQ(state["base"]["bytes"], fs::file_size(root.base() / "cashe.rgd"));
    EXPECT_GT(state["base"]["tokens"], 500);
    EXPECT_EQ(state["spam"]["messages"], 30);
    EXPECT_EQ(state["ham"]["messages"], 32);
    EXPECT_EQ(state["cache"]["messages"], 0);

    tvrctl("stop", 0);
    EXPECT_FALSE(status()["engine"]["running"]);
    // deliberate: mail that is given twice counts twice.
    tvrctl("train --wait --spam " + sample + "/spam --ham " + sample + "/ham", 0);
    EXPECT_EQ(status()["base"]["spam_messages"], 60);
}

TEST(mail, bad_input_is_named_and_counted) {
    engine_root root;
    const std::string program = (root.path() / "program").string();
    write_file(program, std::string(4096, '\x7F'));
    auto run = tvrctl("train --later --spam /absent " + program + " --ham - < " + sample + "/README.md");
    EXPECT_EQ(run.code, 1);
    for (const char* text : {"/absent: No such file or directory; skipped", "program: no mail",
                             "standard input: no mail", "Took 0 messages", "skipped 3."})
        EXPECT_TRUE(holds(run.text, text));
    EXPECT_EQ(engine_root::process(), 0U); // nothing to do for it
    run = tvrctl("train --later --spam /absent --ham - < " + sample + "/ham/" +
                 fs::directory_iterator(sample + "/ham")->path().filename().string());
    EXPECT_EQ(run.code, 0);
    EXPECT_EQ(status()["cache"]["messages"], 1);
    tvrctl("train", 2);
    tvrctl("train --spam x --frobnicate", 2);
    tvrctl("nonsense", 2);
}

TEST(mail, that_waits_is_forgotten_by_its_file) {
    engine_root root;
    const std::string mail = fs::directory_iterator(sample + "/spam")->path().string();
    tvrctl("train -q --later --spam " + sample + "/spam");
    tvrctl("forget --file " + mail, 0);
    tvrctl("train -q --wait --ham " + sample + "/ham");
    EXPECT_EQ(root.messages(), 61U);
    tvrctl("forget --file " + mail, 1);
}

TEST(mail, is_scored_by_the_published_base) {
    engine_root root;
    const std::string spam = fs::directory_iterator(sample + "/spam")->path().string();
    const std::string ham = fs::directory_iterator(sample + "/ham")->path().string();
    const auto none = tvrctl("score " + spam);
    EXPECT_EQ(none.code, 3);
    EXPECT_TRUE(holds(none.text, "no base is published yet"));
    // Without a base the filter still lets the mail through.
    EXPECT_TRUE(tvrctl("score --filter < " + ham).text.ends_with(read_file(ham)));

    tvrctl("train --wait --spam " + sample + "/spam --ham " + sample + "/ham", 0);
    tvrctl("score " + spam, 0);
    tvrctl("score " + ham, 1);
    tvrctl("score - < " + ham, 1);
    tvrctl("score -e " + ham, 0);
    tvrctl("score " + spam + " /absent", 3);
    tvrctl("score", 2);
    const auto json = nlohmann::json::parse(tvrctl("score --json --explain " + spam).text);
    EXPECT_EQ(json["verdict"], "spam");
    EXPECT_EQ(json["file"], spam);
    EXPECT_GT(json["tokens"].size(), 10U);

    // A forged verdict gives way, and nothing else changes.
    const std::string mail = "Subject: x\nX-Tessivar: ham, score=0.00\n folded\nTo: y\n\nX-Tessivar: body\n";
    std::ofstream(root.path() / "mail") << mail;
    const auto filtered = tvrctl("score --filter -e < " + (root.path() / "mail").string());
    EXPECT_EQ(filtered.code, 0);
    EXPECT_EQ(filtered.text.substr(0, 27), "Subject: x\nTo: y\nX-Tessivar");
    EXPECT_EQ(filtered.text.substr(filtered.text.find("\n\n")), "\n\nX-Tessivar: body\n");
}

TEST(mail, is_evaluated_on_a_root_of_its_own) {
    engine_root root;
    const auto run = tvrctl("eval -q --spam " + sample + "/spam --ham " + sample + "/ham --report " +
                            (root.path() / "report.html").string());
    EXPECT_EQ(run.code, 0) << run.text;
    EXPECT_TRUE(holds(run.text, "ROC area"));
    EXPECT_TRUE(fs::exists(root.path() / "report.html"));
    EXPECT_EQ(engine_root::process(), 0U);
    EXPECT_FALSE(fs::exists(root.base() / "cashe.rgd"));
    const fs::path left = root.path() / "tmp";
    EXPECT_TRUE(!fs::exists(left) || fs::is_empty(left));
    tvrctl("eval -q --spam /absent --ham /absent", 3);
}

} // namespace
} // namespace tvr
