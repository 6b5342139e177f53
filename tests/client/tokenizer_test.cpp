// What the tokenizer makes of mail.

#include <set>
#include <sstream>

#include "client/html_text.h"
#include "client/mail/charset.h"
#include "client/mail_date.h"
#include "client/tokenizer.h"
#include "settings/settings.h"
#include "support/test.h"

namespace tvr {
namespace {

namespace fs = std::filesystem;

std::set<std::string> tokens_of(std::string_view mail,
                                std::shared_ptr<const look_alikes> spelling = nullptr) {
    tokenizer cutter({}, std::move(spelling));
    cutter.tokenize(mail);
    std::set<std::string> all;
    cutter.tokens().for_each([&](std::string_view token, std::uint32_t) { all.emplace(token); });
    return all;
}

// Latin letters for Cyrillic ones in words that have some, and digits for letters beside a letter of the
// alphabet.
TEST(tokenizer, spells_look_alikes_plainly) {
    std::string same;
    for (char c = ' '; c < 127; ++c)
        same += c;
    same += '?'; // of 127
    const auto entry = [&](char code, const std::string& other) {
        return std::string(same).replace(static_cast<std::size_t>(code - ' '), 1, other);
    };
    const std::string ve = "\xD0\xB2", a = "\xD0\xB0", with_dots = "\xC3\xB6", bo = "b" + with_dots;
    const struct {
        std::string table, alphabet, mail, expected, unexpected;
    } rows[] = {
        {entry('a', a), ve + a, ve + "a data", ve + a, ve + "a"},
        {entry('0', "o"), with_dots, bo + "0t 100", bo + "ot", bo + "0t"},
        {entry('0', "o").substr(1), with_dots, bo + "0t 100", bo + "0t", bo + "ot"},
    };
    for (const auto& row : rows) {
        const auto set = std::make_shared<settings>();
        set->use_partically_translitting = 1;
        set->spam_transliteration_table = row.table;
        set->local_user_alphabet = row.alphabet;
        const auto all = tokens_of("Subject: " + row.mail + "\n\n" + row.mail + "\n",
                                   std::make_shared<const look_alikes>(set));
        for (const char* kind : {"B ", "H subject:"}) {
            EXPECT_TRUE(all.contains(kind + row.expected)) << row.expected;
            EXPECT_FALSE(all.contains(kind + row.unexpected)) << row.unexpected;
        }
        EXPECT_TRUE(all.contains("B data") || all.contains("B 100")) << "other words stay as they are";
    }
}

TEST(tokenizer, finds_what_a_mail_is_made_of) {
    const struct {
        const char* name;
        std::string mail;
        std::string tokens; // with | between them; ! before those that aren't there
    } cases[] = {
        {"headers",
         "From: Jane Doe <Jane@Shop.Example>\nTo: me@here.example\nSubject: Free OFFER\nX-Mailer: Bulk "
         "3\n\nHi\n",
         "F from:jane@shop.example|F from:shop.example|H from:Jane|H subject:Free|H subject:OFFER|"
         "H x-mailer:Bulk|M header:x-mailer|M no date|M no message-id|B Hi|!B from|!M no subject|!M no from"},
        {"verdicts of filters", "Subject: a\nX-Tessivar: spam, score=99.00\nX-Spam-Flag: YES\n\nHi\n",
         "B Hi|!M header:x-tessivar|!H x-tessivar:spam|!M header:x-spam-flag|!H x-spam-flag:YES"},
        {"how a header is made",
         "Return-Path: <bounce@list.example>\nReceived: from a by b; today\n"
         "Received: from Relay.example (HELO pc) (10.0.0.1) by mx.example with SMTP id q7;\n Thu\n"
         "Message-ID: <20Ab.x-7@mail.shop.example>\nFrom: \"Jane\" <jane99@www.Shop.example>\n"
         "Reply-To: jane@other.example\nTo: john@here.example, <max@here.example>\nSubject: For MAX "
         "only\n\nHi\n",
         "M hops 2|M hop shape:fromH(HELOw)(I)byHwithSMTPidw|M id shape:<92B.a-91|M id form:<9B.a-9|"
         "M message-id as from|M reply-to not from|M return-path not from|M to not from|M from shape:a9|"
         "M from form:quoted|M to form:name|M subject names to|!M return-path as from"},
        {"how a text looks", "Subject: a\n\n> you said\n>  so\n\nwin $5, $6, $7!!\n",
         "M plain quoted 3|M plain blank 4|M plain overlong 0|M plain exclamations 1|M plain dollars 1"},
        {"encoded words", "Subject: =?ISO-8859-1?Q?Gr=FC=DFe?= =?utf-8?B?w7ZsCg==?=\n\nx\n",
         "B Gr\u00FC\u00DFe\u00F6l|M encoded word:iso-8859-1"},
        {"quoted printable and charset",
         "Subject: a\nContent-Type: text/plain; charset=koi8-r\nContent-Transfer-Encoding: "
         "quoted-printable\n\n"
         "=F0=D2=C9=D7=C5=D4 soft=\nline\n",
         "B \xD0\x9F\xD1\x80\xD0\xB8\xD0\xB2\xD0\xB5\xD1\x82|B softline|M charset:koi8-r"},
        {"base64",
         "Subject: a\nContent-Type: text/plain\nContent-Transfer-Encoding: base64\n\naGVsbG8gd29ybGQ=\n",
         "B hello|B world|M encoding:base64|!B aGVsbG8gd29ybGQ"},
        {"HTML",
         "Subject: a\nContent-Type: text/html\n\n<p>Click <a "
         "href=\"http://u:p@www.pills.example:81/buy/now\">"
         "he<!-- x -->re</a> <b>bo</b>ld &amp; c&#104;eap<span style=\"display:none\">hidden</span></p>",
         "B Click|B here|B bold|B cheap|F link:www.pills.example|F link:pills.example|M link user|"
         "M link port:81|U buy|M type:text/html|!B hidden|!B span|!B href"},
        {"parts",
         "Subject: a\nContent-Type: multipart/mixed; boundary=XX\n\npreamble\n--XX\n\nfirst\n--XX\n"
         "Content-Type: application/octet-stream; name=\"run.exe\"\n\nMZbinary\n--XX--\n",
         "B first|M multipart:mixed|M type:application/octet-stream|M file:.exe|!B preamble|!B MZbinary"},
        {"links in text",
         "Subject: a\n\nsee http://10.20.30.40/x and www.Site.Example, mail joe@corp.example\n",
         "F link:10.20.30.40|F link:10.20.30|M link ip|F link:www.site.example|F mail:corp.example"},
        // More than 19 bytes: "h " and the hash of the text. Words of headers may have 96.
        {"long words", "Subject: abcdefghijklmnopqrstuvwxyz\n\nabcdefghijklmnopqrs abcdefghijklmnopqrst\n",
         "B abcdefghijklmnopqrs|H subject:abcdefghijklmnopqrstuvwxyz|!B abcdefghijklmnopqrst"},
        {"an mbox line", "From x@y Thu Aug 22 18:30:05 2002\nSubject: a\n\nbody\n", "B body|H subject:a"},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        const auto found = tokens_of(test.mail);
        std::istringstream tokens(test.tokens);
        for (std::string token; std::getline(tokens, token, '|');)
            EXPECT_EQ(found.contains(token.substr(token[0] == '!')), token[0] != '!') << token;
    }
}

TEST(tokenizer, makes_the_message_id_and_the_time) {
    tokenizer cutter;
    const auto facts_of = [&](std::string_view mail) {
        cutter.tokenize(mail);
        return cutter.facts();
    };
    const std::string head = "From: f\nDate: Thu, 22 Aug 2002 18:26:25 +0700\nMessage-ID: <a@b>\n";
    const auto facts = facts_of(head + "Subject: s\n\nx\n");
    EXPECT_EQ(facts.msid.substr(0, 6), "<a@b>_");
    EXPECT_EQ(facts.msid.size(), 14U);
    EXPECT_EQ(facts.time, 211'241'486U); // 11:26 UTC
    EXPECT_NE(facts_of(head + "Subject: another\n\nx\n").msid, facts.msid);
    // Without an ID of its own it is called by its content.
    EXPECT_NE(facts_of("Subject: s\n\nx\n").msid, facts_of("Subject: s\n\ny\n").msid);
    EXPECT_EQ(facts_of("Subject: s\n\ny\n").time, 0U);
    EXPECT_EQ(facts_of("From x@y Thu Aug 22 18:30:05 2002\nSubject: a\nDate: once\n\nx\n").time,
              211'241'910U);
    EXPECT_EQ(facts_of("Subject: s\nMessage-ID: <" + std::string(400, 'i') + ">\n\n").msid.size(), 254U);
}

TEST(tokenizer, reads_dates) {
    const std::pair<const char*, std::uint32_t> cases[] = {
        {"Thu, 01 Jan 1970 00:01:00 +0000", 194'074'561},
        {"1 Jan 2000 12:00 EST", 209'853'660},
        {"Sat, 01-Jan-00 12:00:59 -0500 (EST)", 209'853'660},
        {"Sat Jan  1 17:00:59 2000", 209'853'660},
        {"Sat, 01 Jan 100 17:00:00 GMT", 209'853'660}, // years since 1900
        {"tomorrow", 0},
        {"", 0},
        {"99 Foo 2000 12:00", 0},
    };
    for (const auto& [text, expected] : cases)
        EXPECT_EQ(minutes_from_mail_date(text), expected) << text;
}

TEST(tokenizer, tells_mail_from_other_files) {
    for (const char* mail :
         {"Subject: x\n\n", "From a Thu Aug 22 18:30:05 2002\nReceived: x", "X-A: b\n c\nTo: d\n",
          ">From x\nTo: y\n", "\n\nrubbish, more\nX-A: b\nTo: d\nFrom: e\n"})
        EXPECT_TRUE(looks_like_mail(mail)) << mail;
    for (const char* other : {"", "\n", "root:x:0:0:root:/root:/bin/bash\n", "{\"from\": 1}", "\177ELF",
                              "Dear sir,\n", "Dear sir,\nSubject: x\nX-A: b\n", "x\n\nTo: d\nFrom: e\n"})
        EXPECT_FALSE(looks_like_mail(other)) << other;
}

TEST(tokenizer, takes_real_mail) {
    tokenizer cutter;
    std::size_t files = 0;
    for (const auto& entry : fs::recursive_directory_iterator(TVR_SAMPLE_MAIL)) {
        if (entry.path().extension() != ".eml")
            continue;
        ++files;
        cutter.tokenize(read_file(entry.path()));
        EXPECT_GT(cutter.tokens().size(), 20U) << entry.path();
        EXPECT_NE(cutter.facts().time, 0U) << entry.path();
    }
    EXPECT_EQ(files, 62U);
}

TEST(tokenizer, stays_within_its_limits) {
    std::string deep = "Subject: a\nContent-Type: multipart/mixed; boundary=b0\n\n";
    for (int i = 0; i < 3000; ++i)
        deep += "--b" + std::to_string(i) + "\nContent-Type: multipart/mixed; boundary=b" +
                std::to_string(i + 1) + "\n\n";
    std::string many = "Subject: a\n\n";
    for (int i = 0; i < 200'000; ++i)
        many += "word" + std::to_string(i) + " ";
    std::string tags = "Subject: a\nContent-Type: text/html\n\n" + std::string(1 << 20, '<');
    tokenizer cutter;
    for (const std::string* mail : {&deep, &many, &tags}) {
        cutter.tokenize(*mail);
        EXPECT_LE(cutter.tokens().size(), tokenizer_limits().tokens);
    }
}

} // namespace
} // namespace tvr
