// tvrctl and the engine on real mail.

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
    tvrctl("train --wait " + of_both, 0, "Left out: 62 that are known");
    EXPECT_EQ(engine_root::process(), 0U); // nothing to do for it
    tvrctl("train --wait --again " + of_both, 0);
    EXPECT_EQ(status()["base"]["spam_messages"], 60);
    const std::string copy = (root.path() / "copy").string();
    fs::copy_file(a_mail_of("/spam"), copy);
    tvrctl("train --wait --spam " + sample + "/spam --ham " + copy, 2,
           "copy: given as good mail, and as spam in ");
    tvrctl("train --later --ham " + copy, 0, "Training in the background");
}

TEST(mail, bad_input_is_named_and_counted) {
    engine_root root;
    const std::string program = (root.path() / "program").string();
    write_file(program, std::string(4096, '\x7F'));
    const std::string told =
        tvrctl("train --later --spam /absent " + program + " --ham - < " + sample + "/README.md", 3);
    for (const char* text : {"/absent: No such file or directory; skipped", "program: no mail",
                             "standard input: no mail", "Took 0 messages", "skipped 3."})
        EXPECT_TRUE(holds(told, text));
    EXPECT_EQ(engine_root::process(), 0U); // nothing to do for it
    tvrctl("train --later --spam " + program, 1);
    tvrctl("train --later --spam /absent --ham - < " + a_mail_of("/ham"), 3,
           "They are learned once 50 messages wait");
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
    tvrctl("forget --file " + sample + "/ham", 1, "Of 32 messages 0 won't be learned");
    tvrctl("train -q --later --again --spam " + mail, 0);
    tvrctl("forget --waiting", 0, "Taken back: 1 ");
    tvrctl("forget --waiting", 1);
}

TEST(mail, is_scored_by_the_published_base) {
    engine_root root;
    const std::string spam = a_mail_of("/spam");
    const std::string ham = a_mail_of("/ham");
    tvrctl("score " + spam, 3, "no base is published yet");
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
    EXPECT_TRUE(json["message"].is_null());
    const fs::path box = root.path() / "box";
    write_file(box, "From a\nSubject: 1\nMessage-ID: <1@x>\n\n\nFrom a\nSubject: 2\nMessage-ID: <2@x>\n\n");
    EXPECT_TRUE(holds(tvrctl("score --json " + box.string()).text, R"("message":2,"message_id":"2@x")"));

    // A forged verdict gives way, and nothing else changes.
    const std::string mail = "Subject: x\nX-Tessivar: ham, score=0.00\n folded\nTo: y\n\nX-Tessivar: body\n";
    write_file(root.path() / "mail", mail);
    const std::string filtered = tvrctl("score --filter -e < " + (root.path() / "mail").string(), 0);
    EXPECT_TRUE(filtered.starts_with("Subject: x\nTo: y\nX-Tessivar"));
    EXPECT_EQ(filtered.substr(filtered.find("\n\n")), "\n\nX-Tessivar: body\n");
    // What is no mail passes as it came; of a large one only the beginning is graded.
    const std::string large = "Subject: x\n\n" + std::string(5U << 20, 'x');
    for (const std::string& bytes : {std::string(), std::string("\0\1", 2), large}) {
        write_file(root.path() / "mail", bytes);
        const std::string out = tvrctl("score --filter < " + (root.path() / "mail").string()).text;
        EXPECT_EQ(out.size(), bytes.size() + (bytes.size() > 9 ? out.find("\n\n") - 10 : 0));
        EXPECT_TRUE(out.ends_with(bytes.substr(std::min<std::size_t>(bytes.size(), 12))));
    }
}

TEST(mail, is_graded_and_learned_by_requests_of_an_add_on) {
    engine_root root;
    tvrctl("train --wait -q " + of_both, 0);
    tvrctl("config set \"train corrections\" 0", 0); // so that they wait
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
    write_file(root.path() / "mail", "Subject: new loan\n\napproved rates");
    const auto told = nlohmann::json::parse(tvrctl("score --json -e " + (root.path() / "mail").string(), 0));
    const auto first =
        ask({R"({"id":1,"op":"explain",)" + fresh + "}", R"({"id":2,"op":"train","spam":true,)" + fresh + "}",
             R"({"id":3,"op":"train","spam":true,)" + fresh + "}",
             R"({"id":4,"op":"correct","spam":false,)" + fresh + "}",
             R"({"id":5,"op":"learn-folder","spam":false})", R"({"id":6,"op":"learn",)" + fresh + "}",
             R"({"id":7,"op":"learn-end"})", R"({"id":8,"op":"status"})"});
    ASSERT_EQ(first.size(), 8U);
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
    tvrctl(R"(config set "spam threshold" 90)", 0);
    const std::string told = tvrctl("eval -q " + of_both + " --report " + report.string(), 0);
    EXPECT_TRUE(holds(told, "1-ROCA"));
    EXPECT_TRUE(holds(told, "spam from 90, unsure from 75"));
    EXPECT_TRUE(fs::exists(report));
    EXPECT_EQ(engine_root::process(), 0U);
    EXPECT_FALSE(fs::exists(root.base() / "cashe.rgd"));
    const fs::path left = root.path() / "tmp";
    EXPECT_TRUE(!fs::exists(left) || fs::is_empty(left));
    for (const auto& refused : {"--spam /absent --ham " + sample + "/ham", of_both + " --report /absent/x",
                                of_both + " --split 90", of_both + " --stream"})
        tvrctl("eval -q " + refused, 3, "tvrctl: ");
}

// Ready records, which carry mail to a machine that can't read it.
TEST(mail, as_records_trains_as_it_would_itself) {
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
    tvrctl("train --later --records " + spam + " - <" + ham, 0, "Took 62 messages (30 spam, 32 ham)");
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
