// GMime as the judge: both readers tell the same of all mail there is, but for what stands here with its
// reason.

#include <algorithm>
#include <functional>
#include <utility>

#include "client/mail/gmime_reader.h"
#include "client/mail/told_mail.h"
#include "support/test.h"

namespace tvr {
namespace {

namespace fs = std::filesystem;

// The names of the mails begin so; the reasons stand at length in client/mail/README.md.
constexpr const char* equal_signs =
    "two signs of equality in quoted-printable, the second at the end of the line";
constexpr const char* running_on = "a text in iso-2022-jp that goes on in the next encoded word";
constexpr const char* windows = "a byte of windows-1252 in what calls itself iso-8859-1";
constexpr const char* cut_off = "base-64 whose last character is missing";
constexpr const char* other_boundary = "a boundary that never comes as it is told";
const std::pair<const char*, const char*> known_differences[] = {
    {"hard-ham-1/00005", equal_signs},
    {"hard-ham-1/00039", running_on},
    {"hard-ham-1/00042", running_on},
    {"hard-ham-1/00149", windows},
    {"ham/hard-ham-1-00149", windows},
    {"spam-1/00256", cut_off},
    {"spam-1/00311", "a byte that means nothing is U+FFFD, not a question mark"},
    {"spam-1/00330", cut_off},
    {"spam-1/00467", other_boundary},
    {"spam-2/00204", "no semicolon in front of a parameter"},
    {"spam-2/00673", equal_signs},
    {"spam-2/00734", equal_signs},
    {"spam-2/01041", equal_signs},
    {"spam-2/01214", other_boundary},
    {"spam-2/01304", equal_signs},
};

// GMime keeps the fields of the content apart from those of the mail, and treats blanks around words in its
// own way.
class judged_mail : public told_mail {
public:
    using decoder = std::function<std::string(std::string_view)>;
    explicit judged_mail(decoder decode) : told_mail(true), m_decode(std::move(decode)) {}
    void header(std::string_view name, std::string_view value) override {
        if (starts_with_ignoring_case(name, "content-"))
            return;
        told_mail::header(name, value);
        if (value.find("=?") == std::string_view::npos)
            return;
        lines.push_back(m_decode(value));
        std::erase_if(lines.back(), [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; });
    }

private:
    decoder m_decode;
};

TEST(judge, reads_the_same) {
    mail_reader reader;
    word_decoder words;
    const auto compare = [&](const fs::path& path, const std::string& raw) {
        judged_mail ours([&](std::string_view value) { return std::string(words.decode(value)); });
        judged_mail theirs(decode_with_gmime);
        const unsigned our_parts = reader.read(raw, ours), their_parts = read_with_gmime(raw, theirs);
        const auto [a, b] = std::ranges::mismatch(ours.lines, theirs.lines);
        const bool same = our_parts == their_parts && a == ours.lines.end() && b == theirs.lines.end();
        const std::string name = path.parent_path().filename().string() + "/" + path.filename().string();
        const bool known = std::ranges::any_of(
            known_differences, [&](const auto& known_one) { return name.starts_with(known_one.first); });
        EXPECT_EQ(same, !known) << path << "\nours:  " << (a == ours.lines.end() ? "" : a->substr(0, 200))
                                << "\nGMime: " << (b == theirs.lines.end() ? "" : b->substr(0, 200));
    };
    for (const char* folder : {TVR_SAMPLE_MAIL "/ham", TVR_SAMPLE_MAIL "/spam", TVR_CORPUS}) {
        std::error_code none;
        for (const auto& entry : fs::recursive_directory_iterator(folder, none))
            if (entry.is_regular_file() && entry.path().extension() != ".js")
                compare(entry.path(), read_file(entry.path()));
    }
}

} // namespace
} // namespace tvr
