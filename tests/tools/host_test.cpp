// The conversation with an add-on, byte by byte, and the manifest that starts it.

#include <cstdio>

#include <nlohmann/json.hpp>

#include "platform/registry.h"
#include "support/test.h"
#include "tools/host/host_manifest.h"
#include "tools/host/host_stream.h"

namespace tvr {
namespace {

using nlohmann::json;

// Answers from a table, and writes down what it was asked for.
class fake_service final : public host_service {
public:
    message_score grade(std::string_view raw, bool explain) override {
        m_asked += "grade " + std::to_string(raw.size()) + ";";
        message_score result{.score = 97.5, .decision = verdict::spam, .known = 3, .tokens = {}};
        if (explain)
            result.tokens.assign(1000, {.token = std::string(255, '\xFF'), .grade = 0.99, .share = 0.5});
        return result;
    }
    host_training train(const host_mail& mail, bool spam) override {
        m_asked += "train " + std::to_string(mail.size) + (spam ? " spam;" : " ham;");
        return host_training::remarked;
    }
    void collect(const host_mail&, bool spam, folder_sum& sum) override {
        m_asked += spam ? "collect spam;" : "collect ham;";
        sum.learned = ++sum.waiting;
    }
    void finish(folder_sum& sum) override {
        m_asked += "finish;";
        sum.waiting = 0;
    }
    std::uint32_t forget(const host_mail&) override { return 1; }
    json status() override { throw host_refusal{"failed", "no \xC3\xA4 folder"}; }
    json settings(const json& changes) override { return {{"settings", changes}}; }

    std::string m_asked;
};

// "Subject: x\n\nabc"
const std::string mail = R"("mail":"U3ViamVjdDogeAoKYWJj")";

struct host_test : testing::Test {
    std::string answer(const std::string& request) { return m_session.answer(request); }
    json reply(const std::string& fields) { return json::parse(answer("{" + fields + "}")); }

    fake_service m_service;
    host_session m_session{m_service, "1.2.3"};
};

TEST_F(host_test, requests_are_answered_under_their_ids) {
    const struct {
        std::string request, wanted;
    } rows[] = {
        {R"({"id":1,"op":"hello"})",
         R"({"id":1,"mail":4194304,"ok":true,"piece":524288,"protocol":1,"version":"1.2.3"})"},
        {R"({"id":2,"op":"grade",)" + mail + "}",
         R"({"id":2,"known":3,"ok":true,"score":97.5,"verdict":"spam"})"},
        {R"({"id":3,"op":"train","spam":true,)" + mail + "}", R"({"id":3,"ok":true,"state":"remarked"})"},
        {R"({"id":4,"op":"correct","spam":false,"size":9000,)" + mail + "}",
         R"({"id":4,"ok":true,"state":"remarked"})"},
        {R"({"id":5,"op":"forget",)" + mail + "}", R"({"forgotten":1,"id":5,"ok":true})"},
        {R"({"id":6,"op":"status"})", R"({"error":{"code":"failed","text":"no \u00e4 folder"},"id":6})"},
        {R"({"id":7,"op":"settings","set":{"a b":2}})", R"({"id":7,"ok":true,"settings":{"a b":2}})"},
        // In pieces: "Subject: x\n\n", "abc".
        {R"({"id":8,"op":"put","put":1,"mail":"AAAA"})", R"({"bytes":3,"id":8,"ok":true})"},
        {R"({"id":9,"op":"put","put":2,"mail":"U3ViamVjdDogeAoK"})", R"({"bytes":12,"id":9,"ok":true})"},
        {R"({"id":10,"op":"put","put":2,"mail":"YWI="})", R"({"bytes":14,"id":10,"ok":true})"},
        {R"({"id":11,"op":"grade","put":2})",
         R"({"id":11,"known":3,"ok":true,"score":97.5,"verdict":"spam"})"},
        {R"({"id":12,"op":"learn-folder","spam":true})",
         R"({"id":12,"known":0,"learned":0,"ok":true,"waiting":0})"},
        {R"({"id":13,"op":"learn",)" + mail + "}",
         R"({"id":13,"known":0,"learned":1,"ok":true,"waiting":1})"},
        {R"({"id":14,"op":"learn-end"})", R"({"id":14,"known":0,"learned":1,"ok":true,"waiting":0})"},
        {R"({"id":15,"op":"learn-folder","spam":true})",
         R"({"id":15,"known":0,"learned":0,"ok":true,"waiting":0})"},
        {R"({"id":16,"op":"learn-folder","spam":false})",
         R"({"id":16,"known":0,"learned":0,"ok":true,"waiting":0})"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(answer(row.request), row.wanted);
    EXPECT_EQ(m_service.m_asked,
              "grade 15;train 15 spam;train 9000 ham;grade 14;collect spam;finish;finish;");
}

TEST_F(host_test, what_is_wrong_gets_its_reason) {
    const struct {
        const char *request, *code, *text;
    } rows[] = {
        {"", "bad_request", "must be a JSON object"},
        {"\xFF\xFE", "bad_request", "must be a JSON object"},
        {"[]", "bad_request", "must be a JSON object"},
        {"{}", "bad_request", "\"id\""},
        {R"({"id":-1,"op":"hello"})", "bad_request", "\"id\""},
        {R"({"id":1})", "bad_request", "\"op\""},
        {R"({"id":1,"op":"dance"})", "bad_request", "dance"},
        {R"({"id":1,"op":"grade"})", "bad_request", "\"mail\""},
        {R"({"id":1,"op":"grade","mail":"A"})", "bad_request", "Base64"},
        {R"({"id":1,"op":"grade","mail":"A=AA"})", "bad_request", "Base64"},
        {R"({"id":1,"op":"grade","mail":"AAAA"})", "not_mail", "no mail"},
        {R"({"id":1,"op":"grade","put":5})", "bad_request", "number"},
        {R"({"id":1,"op":"train","mail":"AAAA"})", "bad_request", "\"spam\""},
        {R"({"id":1,"op":"learn","mail":"AAAA"})", "bad_request", "no folder"},
        {R"({"id":1,"op":"settings","set":[]})", "bad_request", "\"set\""},
    };
    for (const auto& row : rows) {
        const json told = json::parse(answer(row.request))["error"];
        EXPECT_EQ(told["code"], row.code) << row.request;
        EXPECT_TRUE(holds(told["text"].get<std::string>(), row.text)) << row.request;
    }
    EXPECT_EQ(m_service.m_asked, "");
}

TEST_F(host_test, keeps_within_its_bounds) {
    EXPECT_LT(answer(R"({"id":1,"op":"explain",)" + mail + "}").size(), std::size_t{1} << 18);
    EXPECT_EQ(reply(std::string(500000, '[') + R"("id":1,"op":"hello")")["error"]["code"], "bad_request");
    const std::string piece(std::size_t{699048}, 'A');
    for (int i = 0; i < 8; ++i)
        EXPECT_TRUE(reply(R"("id":1,"op":"put","put":1,"mail":")" + piece + '"').contains("ok"));
    EXPECT_EQ(reply(R"("id":1,"op":"put","put":1,"mail":")" + piece.substr(0, 24) + '"')["error"]["code"],
              "too_large");
}

TEST_F(host_test, frames_are_read_to_the_end) {
    const auto framed = [](const std::string& text) { return le(text.size()) + text; };
    const std::string hello = framed(R"({"id":1,"op":"hello"})");
    const std::string told = framed(answer(R"({"id":1,"op":"hello"})"));
    const std::string large = framed(std::string((1U << 20) + 1, 'x'));
    const struct {
        std::string input, output, why;
    } rows[] = {
        {"", "", ""},
        {hello + hello, told + told, ""},
        {large + hello, framed(host_session::too_large()) + told, ""},
        {hello + "\1", told, "the input ends within a request"},
        {hello + hello.substr(0, 9), told, "the input ends within a request"},
        {le(0xFFFFFFFF) + hello, "", "the input ends within a request"},
    };
    const test_root root;
    const auto in = root.path() / "in", out = root.path() / "out";
    for (const auto& row : rows) {
        write_file(in, row.input);
        std::FILE* const from = std::fopen(in.string().c_str(), "rb");
        std::FILE* const to = std::fopen(out.string().c_str(), "wb");
        EXPECT_EQ(run_host_stream(from, to, m_session), row.why);
        std::fclose(from);
        std::fclose(to);
        EXPECT_EQ(read_file(out), row.output);
    }
}

TEST(host_manifest_test, leads_to_the_program_until_it_is_taken_away) {
    const test_root root;
    for (const bool all_users : {false, true}) {
        std::string told;
        ASSERT_EQ(install_host("/opt/tvr ctl", all_users, told), "");
        ASSERT_EQ(install_host("/opt/tvrctl", all_users, told), "");
        const std::string path = told.substr(0, told.find(" names "));
        const json manifest = json::parse(read_file(path));
        EXPECT_EQ(manifest, json::parse(R"({"name":"tessivar","path":"/opt/tvrctl","type":"stdio",
            "description":"Tessivar, the spam filter that learns from your mail",
            "allowed_extensions":["tessivar@orvenix.example"]})"));
        ASSERT_EQ(uninstall_host(all_users, told), "");
        EXPECT_FALSE(std::filesystem::exists(path));
        EXPECT_EQ(uninstall_host(all_users, told), "");
        EXPECT_TRUE(holds(told, "wasn't there"));
    }
}

} // namespace
} // namespace tvr
