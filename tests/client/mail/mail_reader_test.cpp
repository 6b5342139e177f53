// Mail that was broken on the way, or on purpose.

#include "client/mail/charset.h"
#include "client/mail/mail_reader.h"
#include "client/mail/told_mail.h"
#include "support/test.h"

namespace tvr {
namespace {

using namespace std::literals;

TEST(mail_reader, takes_broken_mail_apart_as_mail_programs_do) {
    const std::string mixed = "Content-Type: multipart/mixed; boundary=b\n\n";
    const struct {
        const char* name;
        std::string mail;
        std::string told; // with | between the lines
    } cases[] = {
        {"folds, CRLF, a line of blanks within",
         "Content-Type:\r\n text/html;\r\n \r\n\tcharset=\"x\"\r\n\r\na\r\n", "text/html charset=x|[a\r\n]"},
        {"bare CR", "Subject: s\rContent-Type: text/html\r\rbody\rmore", "text/html|[body\rmore]"},
        {"no empty line in front of the body", "Subject: s\nhello: there\nhello there\n",
         "text/plain|[hello there\n]"},
        {"NUL and bytes above 127", "Subject: \xFF\0x\n\n\0\xFF"s, "text/plain|[\0\xFF]"s},
        {"several types: the first that says something",
         "Content-Type: nonsense\nContent-Type: text/html\nContent-Type: image/gif\n\na", "text/html|[a]"},
        {"no semicolon between parameters", "Content-Type: text/html charset=\"a\\\"b\" name = c d\n\na",
         "text/html charset=a\"b file=c d|[a]"},
        {"text in pieces and with a charset",
         "Content-Type: text/plain; name*1*=%E9.t; name*0*=iso-8859-1'fr'caf; name*2=xt\n\n",
         "text/plain file=caf\u00E9.txt|[]"},
        {"an encoded word as a file name",
         "Content-Disposition: attachment; filename=\"=?koi8-r?B?8A==?= .exe\"\n\n",
         "text/plain is attachment file=\u041F .exe|[]"},
        {"false boundaries, no last one", mixed + "before\n--bb\n--b \n\n one\n--b\n\n--b-\ntwo",
         "multipart mixed|text/plain|[ one]|text/plain|[--b-\ntwo]"},
        {"nothing behind the last boundary", mixed + "--b\r\n\r\none\r\n--b--\r\n--b\r\n\r\ntwo\r\n",
         "multipart mixed|text/plain|[one]"},
        {"the outer boundary ends the inner parts",
         mixed + "--b\nContent-Type: multipart/alternative; boundary=\"b c\"\n\n--b "
                 "c\n\none\n--b\n\ntwo\n--b--\n",
         "multipart mixed|multipart alternative|text/plain|[one]|text/plain|[two]"},
        {"the same boundary twice",
         mixed + "--b\nContent-Type: multipart/related; boundary=b\n\n--b\n\none\n--b--\n--b\n\ntwo\n--b--\n",
         "multipart mixed|multipart related|text/plain|[one]|text/plain|[two]"},
        {"a header that a boundary ends", mixed + "--b\nContent-Type: text/html\n--b--\n",
         "multipart mixed|text/html|[]"},
        {"a boundary with a colon", "Content-Type: multipart/mixed; boundary=\"a:b\"\n\n--a:b\n--a:b\n\none",
         "multipart mixed|text/plain|[]|text/plain|[one]"},
        {"a boundary that isn't told",
         "Content-Type: multipart/mixed\n\n-- \n--q\nContent-Type: text/html\n\na\n--q--\n",
         "multipart mixed|text/html|[a]"},
        {"no boundary at all, and one that never comes",
         mixed + "--b\nContent-Type: multipart/mixed\n\n--\nwords\n--b\n"
                 "Content-Type: multipart/mixed; boundary=c\n\n--d\nwords\n--b--\n--c\nContent-Type: a/b\n",
         "multipart mixed|text/plain|[--\nwords]|text/plain|[--d\nwords]"},
        {"an attached mail and a digest",
         "Content-Type: multipart/digest; boundary=b\n\n--b\n\nSubject: =?utf-8?q?a?=\n\none\n--b\n"
         "Content-Type: text/plain\n\ntwo",
         "multipart digest|mail a|text/plain|[one]|text/plain|[two]"},
        {"an attached mail in base-64",
         mixed + "--b\nContent-Type: message/rfc822\nContent-Transfer-Encoding: base64\n\n"
                 "U3ViamVjdDogYQoKLS1iCg==\n--b\n\ntwo",
         "multipart mixed|mail a|text/plain|[--b\n]|text/plain|[two]"},
        {"base-64 with rubbish, and what a list put behind it",
         "Content-Transfer-Encoding: BASE64 \n\naGVs*bG8g\r\n!d29ybGQ=\r\nIQ==\r\n___\r\nList words here\r\n",
         "text/plain base64|[hello world!]"},
        {"quoted-printable with rubbish",
         "Content-Transfer-Encoding: quoted-printable\n\na=3Db= \r\nc=ZZ=e9==\nd=",
         "text/plain quoted-printable|[a=bc=ZZ\xE9=d]"},
        {"uuencode with rubbish",
         "Content-Transfer-Encoding: x-uue\n\nwords\nbegin 644 a.txt\n#0V%T\nrubbish "
         "here\n#0V%T\n`\nend\n#0V%T\n",
         "text/plain x-uuencode|[CatCat]"},
    };
    mail_reader reader;
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        told_mail told;
        reader.read(test.mail, told);
        std::string all;
        for (const std::string& line : told.lines)
            all += (all.empty() ? "" : "|") + line;
        EXPECT_EQ(all, test.told);
    }
}

TEST(mail_reader, keeps_its_limits) {
    std::string nested, flat = "Content-Type: multipart/mixed; boundary=b\n\n";
    for (int i = 0; i < 1000; ++i) {
        nested += "Content-Type: multipart/mixed; boundary=b" + std::to_string(i) + "\n\n--b" +
                  std::to_string(i) + "\n";
        flat += "--b\n\n";
    }
    mail_reader reader;
    told_mail told;
    EXPECT_EQ(reader.read(nested, told), 25U);
    EXPECT_EQ(reader.read(flat, told), 200U);
}

TEST(mail_reader, decodes_words_of_fields) {
    const std::pair<const char*, const char*> cases[] = {
        {"a =?utf-8?q?b_=63?= d", "a b c d"},
        {"=?utf-8?B?w7ZsCg?= =?UTF-8*en?Q?=C3?=\n =?utf-8?Q?=BC?=", "\u00F6l\n\u00FC"},
        {"(=?iso-8859-1?Q?=A3?=)\xE9", "(\u00A3)\u00E9"},
        {"=?utf-8?Q?a b?=c=?x?Z?d?=", "a bc=?x?Z?d?="},
        {"=?utf-8?Q?a", "=?utf-8?Q?a"},
    };
    word_decoder decoder;
    for (const auto& [given, expected] : cases)
        EXPECT_EQ(decoder.decode(given), expected) << given;
}

TEST(charset, reads_names_in_all_spellings_and_bytes_that_mean_nothing) {
    const struct {
        std::string_view charset, bytes, expected;
    } cases[] = {
        {"ISO_8859-5:1988", "\xB0", "\u0410"},
        {"x-cp1251", "\xC0\x98", "\u0410\uFFFD"},
        {"\"latin-1\"", "\xE9", "\u00E9"},
        {"iso8859-15", "\xA4", "\u20AC"},
        {"nobody-knows", "\x80", "\u20AC"},
        {"nobody-knows", "\xC3\xA9", "\u00E9"},
        {"us-ascii", "\xC3\xA9", "\u00E9"},
        {"UTF-16", "\xFF\xFE\xE9\0\x3D\xD8\x00\xDE\x00\xDC"sv, "\u00E9\U0001F600\uFFFD"},
        {"utf16", "a\0b\0"sv, "ab"},
        {"ucs-4", "\0\0\0\xE9\0\x11\0\0"sv, "\u00E9\uFFFD"},
        {"utf-7", "a+AOk-b+-+", "a\u00E9b++"},
        {"gb2312", "\xC4\xE3\xFFz\x81", "\u4F60\uFFFDz\uFFFD"},
        {"Big5", "\xA4\xA4\x80", "\u4E2D\uFFFD"},
        {"ks_c_5601-1987", "\xC7\xD1", "\uD55C"},
        {"Shift-JIS", "\x93\xFA\xB1\x93", "\u65E5\uFF71\uFFFD"},
        {"EUC-JP", "\xC6\xFC\x8E\xB1\xC6z", "\u65E5\uFF71\uFFFDz"},
        {"iso-2022-jp", "a\x1B$BF|\x1B(Bb", "a\u65E5b"},
        {"iso-2022-jp", "\x1B$BF\x1B(Bb", "\uFFFDb"},
        {"iso-2022-kr", "\x1B$)Ca\x0EGQ\17b", "a\uD55Cb"},
        {"hz-gb-2312", "a~{Dc~}b", "a\u4F60b"},
    };
    std::string room;
    for (const auto& test : cases)
        EXPECT_EQ(to_utf8(test.bytes, test.charset, room), test.expected) << test.charset;
}

} // namespace
} // namespace tvr
