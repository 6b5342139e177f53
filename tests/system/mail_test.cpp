// tvrctl and the engine on real mail.

#include <fstream>
#include <signal.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "common/path.h"
#include "platform/file.h"
#include "platform/process.h"
#include "support/child_process.h"
#include "support/test.h"
#include "system/engine_root.h"

namespace tvr {
namespace {

namespace fs = std::filesystem;

nlohmann::json status() {
    return nlohmann::json::parse(tvrctl("status --json").text);
}

const child_role shell("shell", [](std::string_view command) {
    return execl("/bin/sh", "sh", "-c", std::string(command).c_str(), nullptr);
});

const std::string sample = TVR_SAMPLE_MAIL;
const std::string of_both = "--spam " + sample + "/spam --ham " + sample + "/ham";

std::string a_mail_of(const char* folder) {
    return fs::directory_iterator(sample + folder)->path().string();
}

TEST(mail, a_folder_of_each_kind_gives_a_base) {
    engine_root root;
    EXPECT_TRUE(status()["base"].is_null());
    const std::string told = tvrctl("train --wait " + of_both, 0);
    EXPECT_TRUE(holds(told, "Took 62 messages (30 spam, 32 ham)"));
    EXPECT_TRUE(holds(told, "Published base: "));
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
    tvrctl("train --wait " + of_both, 0);
    EXPECT_EQ(status()["base"]["spam_messages"], 60);
}

TEST(mail, bad_input_is_named_and_counted) {
    engine_root root;
    const std::string program = (root.path() / "program").string();
    write_file(program, std::string(4096, '\x7F'));
    const std::string told =
        tvrctl("train --later --spam /absent " + program + " --ham - < " + sample + "/README.md", 1);
    for (const char* text : {"/absent: No such file or directory; skipped", "program: no mail",
                             "standard input: no mail", "Took 0 messages", "skipped 3."})
        EXPECT_TRUE(holds(told, text));
    EXPECT_EQ(engine_root::process(), 0U); // nothing to do for it
    tvrctl("train --later --spam /absent --ham - < " + a_mail_of("/ham"), 0);
    EXPECT_EQ(status()["cache"]["messages"], 1);
    tvrctl("train", 2);
    tvrctl("train --spam x --frobnicate", 2);
    tvrctl("nonsense", 2);
}

TEST(mail, that_waits_is_forgotten_by_its_file) {
    engine_root root;
    const std::string mail = a_mail_of("/spam");
    tvrctl("train -q --later --spam " + sample + "/spam");
    tvrctl("forget --file " + mail, 0);
    tvrctl("train -q --wait --ham " + sample + "/ham");
    EXPECT_EQ(root.messages(), 61U);
    tvrctl("forget --file " + mail, 1);
}

TEST(mail, is_scored_by_the_published_base) {
    engine_root root;
    const std::string spam = a_mail_of("/spam");
    const std::string ham = a_mail_of("/ham");
    EXPECT_TRUE(holds(tvrctl("score " + spam, 3), "no base is published yet"));
    // Without a base the filter still lets the mail through.
    EXPECT_TRUE(tvrctl("score --filter < " + ham).text.ends_with(read_file(ham)));

    tvrctl("train --wait " + of_both, 0);
    tvrctl("score " + spam, 0);
    tvrctl("score " + ham, 1);
    tvrctl("score - < " + ham, 1);
    tvrctl("score -e " + ham, 0);
    tvrctl("score --threshold 0 " + ham, 0);
    tvrctl("score " + spam + " /absent", 3);
    tvrctl("score", 2);
    const auto json = nlohmann::json::parse(tvrctl("score --json --explain " + spam).text);
    EXPECT_EQ(json["verdict"], "spam");
    EXPECT_EQ(json["file"], spam);
    EXPECT_GT(json["tokens"].size(), 10U);

    // A forged verdict gives way, and nothing else changes.
    const std::string mail = "Subject: x\nX-Tessivar: ham, score=0.00\n folded\nTo: y\n\nX-Tessivar: body\n";
    std::ofstream(root.path() / "mail") << mail;
    const std::string filtered = tvrctl("score --filter -e < " + (root.path() / "mail").string(), 0);
    EXPECT_TRUE(filtered.starts_with("Subject: x\nTo: y\nX-Tessivar"));
    EXPECT_EQ(filtered.substr(filtered.find("\n\n")), "\n\nX-Tessivar: body\n");
}

TEST(mail, is_graded_and_learned_by_requests_of_an_add_on) {
    engine_root root;
    tvrctl("train --wait -q " + of_both, 0);
    const fs::path requests = root.path() / "requests";
    const auto ask = [&](const std::vector<std::string>& texts) {
        std::string frames;
        for (const std::string& text : texts)
            frames += le(text.size()) + text;
        write_file(requests, frames);
        std::string rest = tvrctl("host < " + requests.string(), 0);
        std::vector<nlohmann::json> replies;
        while (!rest.empty()) {
            std::uint32_t size = 0;
            rest.copy(reinterpret_cast<char*>(&size), sizeof size);
            replies.push_back(nlohmann::json::parse(rest.substr(sizeof size, size)));
            rest.erase(0, sizeof size + size);
        }
        return replies;
    };
    // "Subject: new loan\n\napproved rates"
    const std::string fresh = R"("mail":"U3ViamVjdDogbmV3IGxvYW4KCmFwcHJvdmVkIHJhdGVz")";
    const auto first =
        ask({R"({"id":1,"op":"explain",)" + fresh + "}", R"({"id":2,"op":"train","spam":true,)" + fresh + "}",
             R"({"id":3,"op":"train","spam":true,)" + fresh + "}",
             R"({"id":4,"op":"correct","spam":false,)" + fresh + "}",
             R"({"id":5,"op":"learn-folder","spam":false})", R"({"id":6,"op":"learn",)" + fresh + "}",
             R"({"id":7,"op":"learn-end"})", R"({"id":8,"op":"status"})"});
    ASSERT_EQ(first.size(), 8U);
    write_file(root.path() / "mail", "Subject: new loan\n\napproved rates");
    const auto told = nlohmann::json::parse(tvrctl("score --json -e " + (root.path() / "mail").string(), 0));
    EXPECT_EQ(first[0]["verdict"], told["verdict"]);
    EXPECT_EQ(first[0]["score"], told["score"]);
    EXPECT_EQ(first[1]["state"], "learned");
    EXPECT_EQ(first[2]["state"], "known");
    EXPECT_EQ(first[3]["state"], "remarked");
    EXPECT_EQ(first[6]["known"], 1);
    EXPECT_EQ(first[7]["ham"]["messages"], 32);
}

TEST(mail, is_evaluated_on_a_root_of_its_own) {
    engine_root root;
    const fs::path report = root.path() / "report.html";
    EXPECT_TRUE(holds(tvrctl("eval -q " + of_both + " --report " + report.string(), 0), "1-ROCA"));
    EXPECT_TRUE(fs::exists(report));
    EXPECT_EQ(engine_root::process(), 0U);
    EXPECT_FALSE(fs::exists(root.base() / "cashe.rgd"));
    const fs::path left = root.path() / "tmp";
    EXPECT_TRUE(!fs::exists(left) || fs::is_empty(left));
    for (const auto& refused : {"--spam /absent --ham " + sample + "/ham", of_both + " --report /absent/x",
                                of_both + " --split 90", of_both + " --stream"})
        EXPECT_TRUE(holds(tvrctl("eval -q " + refused, 3), "tvrctl: "));
}

// What one that was killed has left the next one clears away.
TEST(mail, an_evaluation_leaves_nothing_however_it_ends) {
    engine_root root;
    for (const int signal : {SIGINT, SIGTERM, SIGKILL}) {
        child_process eval("shell", "exec '" + platform::display_path(module_folder()) +
                                        "tvrctl' eval -q --stream --block 1 " + of_both);
        const fs::path trial = root.path() / "tmp" / ("eval" + std::to_string(eval.id()));
        engine_root::wait_for("a base of the trial", [&] {
            return fs::exists(trial / "appdata/Orvenix/Brackenhold/data/base/cashe.rgd");
        });
        platform::set_environment_variable("TESSIVAR_ROOT", trial.string());
        const std::uint32_t engine = engine_root::process();
        platform::set_environment_variable("TESSIVAR_ROOT", root.path().string());
        EXPECT_NE(engine, 0U);
        kill(static_cast<pid_t>(eval.id()), signal);
        EXPECT_EQ(eval.join(), signal == SIGKILL ? child_process::killed : 3);
        if (signal == SIGKILL)
            tvrctl("eval -q --spam /absent --ham /absent", 3);
        EXPECT_FALSE(platform::process_exists(engine)) << signal;
        EXPECT_FALSE(fs::exists(trial)) << signal;
    }
}

} // namespace
} // namespace tvr
