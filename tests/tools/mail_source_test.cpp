// The forms in which people keep mail.

#include "support/test.h"
#include "tools/mail_source.h"

namespace tvr {
namespace {

namespace fs = std::filesystem;

class mail_source_test : public testing::Test {
protected:
    std::string put(const std::string& name, const std::string& content) {
        const fs::path path = m_root.path() / name;
        write_file(path, content);
        return path.string();
    }

    // All messages as "name after the root|text", and what was skipped.
    std::vector<std::string> read(const std::vector<std::string>& paths) {
        m_skipped.clear();
        mail_source source([this](const std::string& name, const std::string& why) {
            m_skipped.push_back(short_name(name) + ": " + why);
        });
        for (const std::string& path : paths)
            source.add(path, true);
        std::vector<std::string> found;
        mail_item item;
        while (source.next(item)) {
            EXPECT_TRUE(item.spam);
            found.push_back(short_name(item.name) + "|" + item.raw);
        }
        EXPECT_EQ(source.done(), source.total());
        return found;
    }

    std::string short_name(const std::string& name) const {
        return name.starts_with(m_root.path().string()) ? name.substr(m_root.path().string().size() + 1)
                                                        : name;
    }

    using list = std::vector<std::string>;
    test_root m_root;
    list m_skipped;
};

const std::string line_1 = "From a@b.example Thu Aug 22 18:30:05 2002\n";
const std::string line_2 = "From MAILER-DAEMON  Fri Aug 23 18:30:05 2002\n";

TEST_F(mail_source_test, splits_an_mbox) {
    const std::string one =
        line_1 + "Subject: 1\n\nFrom here on, text\nFrom x Thu Aug 22 1:00 no blank before\n\n";
    const std::string two = line_2 + "Subject: 2\r\n\r\nFrom Thursday on, text\n";
    EXPECT_EQ(read({put("box", one + two)}), (list{"box, message 1|" + one, "box, message 2|" + two}));
    EXPECT_EQ(read({put("single", one)}), (list{"single|" + one}));
    EXPECT_EQ(read({put("no_end", line_1 + "Subject: 1")}), (list{"no_end|" + line_1 + "Subject: 1"}));
    // A line longer than any buffer.
    const std::string wide = line_1 + "Subject: " + std::string(300'000, 'x') + "\n\n";
    EXPECT_EQ(read({put("wide", wide + two)}), (list{"wide, message 1|" + wide, "wide, message 2|" + two}));
    EXPECT_EQ(m_skipped, list());
}

TEST_F(mail_source_test, walks_folders_and_maildirs) {
    for (const char* name : {"box/cur/1:2,S", "box/new/2", "box/tmp/3", "box/.Sub/cur/4", "box/.Sub/new/5",
                             "box/dovecot.index", "plain/deep/6.eml", "plain/.hidden/7", "plain/.8"})
        put(name, "Subject: " + std::string(name) + "\n\n");
    fs::create_directories(m_root.path() / "box/.Sub/tmp");
    fs::create_directory_symlink(m_root.path() / "plain", m_root.path() / "plain/deep/round");
    EXPECT_EQ(
        read({(m_root.path() / "box").string()}),
        (list{"box/.Sub/cur/4|Subject: box/.Sub/cur/4\n\n", "box/.Sub/new/5|Subject: box/.Sub/new/5\n\n",
              "box/cur/1:2,S|Subject: box/cur/1:2,S\n\n", "box/new/2|Subject: box/new/2\n\n"}));
    EXPECT_EQ(read({(m_root.path() / "plain").string()}),
              (list{"plain/deep/6.eml|Subject: plain/deep/6.eml\n\n"}));
    EXPECT_EQ(m_skipped, list());
}

TEST_F(mail_source_test, names_what_it_skips) {
    const list found = read({put("empty", ""), put("blank", "\n \n"),
                             put("program", "\x7F"
                                            "ELF\0\1"),
                             put("mixed", line_1 + "no header\n\n" + line_2 + "Subject: 2\n\n"),
                             (m_root.path() / "absent").string()});
    EXPECT_EQ(found, (list{"mixed, message 2|" + line_2 + "Subject: 2\n\n"}));
    EXPECT_EQ(m_skipped, (list{"absent: No such file or directory", "empty: empty", "blank: empty",
                               "program: no mail: it doesn't begin with a header",
                               "mixed, message 1: no mail: it doesn't begin with a header"}));
}

} // namespace
} // namespace tvr
