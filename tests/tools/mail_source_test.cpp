// The forms in which people keep mail.

#include "support/test.h"
#include "tools/mail/mail_source.h"

namespace tvr {
namespace {

namespace fs = std::filesystem;

struct mail_source_test : testing::Test {
    using list = std::vector<std::string>;

    std::string put(const std::string& name, const std::string& content) {
        write_file(m_root.path() / name, content);
        return (m_root.path() / name).string();
    }
    // All messages as "name after the root|text", and what was passed over.
    list read(const mail_paths& paths) {
        m_passed.clear();
        mail_source source(paths, [this](const passed_mail& passed) {
            m_passed.push_back(short_name(passed.name) + ": " + passed.reason);
        });
        list found;
        mail_item item;
        while (source.next(item))
            found.push_back(short_name(item.name) + "|" + item.raw);
        EXPECT_EQ(source.done(), source.total());
        return found;
    }
    list read(const std::string& name, const std::string& content) {
        return read({.ham = {put(name, content)}});
    }
    // The names, with the verdict where it is spam.
    std::string names(mail_paths paths) {
        for (list* some : {&paths.spam, &paths.ham})
            for (std::string& path : *some)
                path.insert(0, m_folder);
        std::string all;
        for (const mail_file& file : find_mail(paths, [](const passed_mail&) {}))
            all += short_name(file.path) + (file.spam ? "! " : " ");
        return all;
    }
    std::string short_name(const std::string& name) const {
        return name.starts_with(m_folder) ? name.substr(m_folder.size()) : name;
    }

    test_root m_root;
    const std::string m_folder = (m_root.path() / "").string();
    list m_passed;
};

const std::string line_1 = "From a@b.example Thu Aug 22 18:30:05 2002\n";
const std::string line_2 = "From MAILER-DAEMON  Fri Aug 23 18:30:05 2002\n";

TEST_F(mail_source_test, splits_an_mbox) {
    const std::string one =
        line_1 + "Subject: 1\n\nFrom here on, text\nFrom x Thu Aug 22 1:00 no blank before\n\n";
    const std::string two = line_2 + "Subject: 2\r\n\r\nFrom Thursday on, text\n";
    EXPECT_EQ(read("box", one + two), (list{"box, message 1|" + one, "box, message 2|" + two}));
    EXPECT_EQ(read("single", one), (list{"single|" + one}));
    EXPECT_EQ(read("no_end", line_1 + "Subject: 1"), (list{"no_end|" + line_1 + "Subject: 1"}));
    // A line longer than any buffer.
    const std::string wide = line_1 + "Subject: " + std::string(300'000, 'x') + "\n\n";
    EXPECT_EQ(read("wide", wide + two), (list{"wide, message 1|" + wide, "wide, message 2|" + two}));
    // Without dates, a header tells where a message begins.
    const std::string dateless_1 = "From a@b.example\nSubject: 1\n\nText\n\nFrom nobody\nmore text\n\n";
    const std::string dateless_2 = "From c@d.example\nSubject: 2\n\n";
    EXPECT_EQ(read("dateless", dateless_1 + dateless_2),
              (list{"dateless, message 1|" + dateless_1, "dateless, message 2|" + dateless_2}));
    EXPECT_EQ(m_passed, list());
}

TEST_F(mail_source_test, takes_the_beginning_of_a_large_message) {
    const std::string start = "Subject: 1\n\n";
    const std::string path = put("large", start + std::string(mail_source::largest, 'x'));
    mail_source source({.ham = {path}}, [](const passed_mail&) {});
    mail_item item;
    ASSERT_TRUE(source.next(item));
    EXPECT_EQ(item.raw.size(), mail_source::largest);
    EXPECT_EQ(item.size, mail_source::largest + start.size());
}

// Which files a set of paths means.
TEST_F(mail_source_test, each_mail_belongs_to_one_path) {
    std::error_code error;
    fs::create_directories(m_root.path() / "plain/deep");
    fs::create_directory_symlink(m_root.path() / "plain", m_root.path() / "plain/deep/round", error);
    if (error)
        GTEST_SKIP() << "no links to folders, and no Maildirs, on this system";
    for (const char* name :
         {"box/cur/1:2,S", "box/new/2", "box/tmp/3", "box/cur/x:2,ST", "box/cur/y:2,D", "box/.Spam/cur/4",
          "box/.Spam/new/5", "box/.Lists.a/cur/6", "box/.Trash.old/cur/7", "box/dovecot.index", "plain/a.eml",
          "plain/deep/b.eml", "plain/Junk/c.eml", "plain/Drafts", "plain/Inbox.mbox", "plain/good.eml",
          "plain/.hidden/d", "plain/.e"})
        put(name, "Subject: 1\n\n");
    for (const char* box : {"box/.Spam/new", "box/.Lists.a/new", "box/.Trash.old/new"})
        fs::create_directories(m_root.path() / box);
    const std::string spam = "box/.Spam/cur/4! box/.Spam/new/5! ", ham = "box/cur/1:2,S box/new/2 ";
    const std::pair<mail_paths, std::string> cases[] = {
        {{.ham = {"box"}}, ham},
        {{.spam = {"box/.Spam"}, .ham = {"box"}}, spam + ham},
        {{.ham = {"box"}, .recursive = true}, "box/.Lists.a/cur/6 " + ham},
        {{.spam = {"box/.Spam/"}, .ham = {"box"}, .recursive = true}, spam + "box/.Lists.a/cur/6 " + ham},
        {{.spam = {"box/.Lists.a/cur/6"}, .ham = {"box", "box"}, .recursive = true},
         "box/.Lists.a/cur/6! " + ham},
        {{.ham = {"plain"}}, "plain/Inbox.mbox plain/a.eml plain/deep/b.eml plain/good.eml "},
        {{.spam = {"plain"}, .ham = {"plain/deep"}},
         "plain/Junk/c.eml! plain/a.eml! plain/good.eml! plain/deep/b.eml "},
    };
    for (const auto& [paths, files] : cases)
        EXPECT_EQ(names(paths), files);

    const std::string box = m_folder + "box";
    EXPECT_EQ(path_conflict({.spam = {box}, .ham = {box + "/cur/.."}}),
              box + "/cur/..: given both as spam and as ham");
    EXPECT_EQ(path_conflict({.spam = {box}, .ham = {box + "/cur"}}), "");
}

TEST_F(mail_source_test, names_what_it_passes_over) {
    const list found = read({.ham = {put("empty", ""), put("blank", "\n \n"), put("program", "\177ELF\0\1"),
                                     put("mixed", line_1 + "no header\n\n" + line_2 + "Subject: 2\n\n" +
                                                      line_2 + "Subject: 3\nX-Mozilla-Status: 0009\n\n" +
                                                      line_2 + "Status: ROD\nSubject: 4\n\n"),
                                     m_folder + "absent"}});
    EXPECT_EQ(found, (list{"mixed, message 2|" + line_2 + "Subject: 2\n\n"}));
    EXPECT_EQ(m_passed, (list{"absent: No such file or directory", "empty: empty", "blank: empty",
                              "program: no mail: it doesn't begin with a header",
                              "mixed, message 1: no mail: it doesn't begin with a header",
                              "mixed, message 3: marked as deleted", "mixed, message 4: marked as deleted"}));
}

} // namespace
} // namespace tvr
