#include "client/tokenizer.h"

#include <algorithm>
#include <array>

#include "client/mail/mail_reader.h"
#include "client/mail_date.h"
#include "client/mail_headers.h"
#include "client/mail_links.h"
#include "client/mail_parts.h"
#include "client/mail_tokens.h"
#include "client/mail_words.h"
#include "common/minutes.h"
#include "common/text.h"
#include "dict/message_record.h"
#include "platform/fnv.h"

namespace tvr {

using namespace std::string_view_literals;

class tokenizer::implementation final : private mail_visitor {
public:
    implementation(const tokenizer_limits& limits, std::shared_ptr<const look_alikes> spelling)
        : m_limits(limits), m_reader({limits.depth, limits.parts, limits.headers, limits.mail}),
          m_tokens(limits), m_links(m_tokens), m_words(m_tokens, m_links, std::move(spelling)),
          m_headers(m_tokens, m_words, m_links), m_parts(m_limits, m_tokens, m_words, m_links) {}

    void tokenize(std::string_view raw);
    [[nodiscard]] const token_table& tokens() const { return m_tokens.table(); }
    [[nodiscard]] const mail_facts& facts() const { return m_facts; }

private:
    void header(std::string_view name, std::string_view raw_value) override {
        m_headers.field(name, raw_value);
    }
    void end_of_headers() override { m_headers.end(); }
    void multipart(std::string_view subtype) override { m_parts.multipart(subtype); }
    void message(std::string_view subject) override { m_parts.message(subject); }
    std::size_t part(const mail_part& described) override { return m_parts.part(described); }
    void text(const mail_part& described, std::string_view decoded) override {
        m_parts.text(described, decoded);
    }

    void make_facts(std::string_view raw, std::string_view mbox_date);

    tokenizer_limits m_limits;
    mail_reader m_reader;
    mail_tokens m_tokens;
    mail_links m_links;
    mail_words m_words;
    mail_headers m_headers;
    mail_parts m_parts;
    mail_facts m_facts;
};

tokenizer::tokenizer(const tokenizer_limits& limits, std::shared_ptr<const look_alikes> spelling)
    : m_it(std::make_unique<implementation>(limits, std::move(spelling))) {}
tokenizer::~tokenizer() = default;

void tokenizer::tokenize(std::string_view raw) {
    m_it->tokenize(raw);
}
const token_table& tokenizer::tokens() const noexcept {
    return m_it->tokens();
}
const mail_facts& tokenizer::facts() const noexcept {
    return m_it->facts();
}

void tokenizer::implementation::make_facts(std::string_view raw, std::string_view mbox_date) {
    const header_lines& lines = m_headers.lines();
    std::string_view id = trim(lines.message_id, " \t\r\n<>");
    std::string made;
    if (id.empty()) {
        const std::uint64_t hash = fnv_64(raw);
        made = "no-id-" + to_hex(static_cast<std::uint32_t>(hash >> 32), 8) +
               to_hex(static_cast<std::uint32_t>(hash), 8);
        id = made;
    }
    m_facts.msid = make_msid(id, lines.subject, lines.date, lines.from);
    m_facts.time = minutes_from_mail_date(lines.date);
    if (m_facts.time == 0)
        m_facts.time = minutes_from_mail_date(lines.newest_hop.substr(lines.newest_hop.rfind(';') + 1));
    if (m_facts.time == 0)
        m_facts.time = minutes_from_mail_date(mbox_date);
    constexpr std::uint32_t day = 24 * 60;
    m_facts.arrival = arrival_time(lines.newest_hop, now_minutes() + day);
}

void tokenizer::implementation::tokenize(std::string_view raw) {
    const std::size_t full_size = raw.size();
    m_tokens.clear();
    m_links.clear();
    m_headers.clear();
    m_parts.clear();
    std::string_view mbox_date;
    if (raw.starts_with("From ")) {
        const std::string_view line = raw.substr(0, raw.find('\n'));
        mbox_date = line.substr(std::min(line.find(' ', 5), line.size()));
        raw.remove_prefix(std::min(raw.size(), line.size() + 1));
    }
    const unsigned parts = m_reader.read(raw.substr(0, m_limits.mail), *this);
    m_tokens.mark("parts ", power_of_two_below(parts));
    m_tokens.mark("size ", power_of_two_below(full_size));
    m_tokens.mark("text ", power_of_two_below(m_parts.text_seen()));
    m_tokens.mark("links ", power_of_two_below(m_links.count()));
    make_facts(raw, mbox_date);
}

// Lines that are none of a header may stand before it, as mail programs pass over them; then it takes
// two well-known names.
bool looks_like_mail(std::string_view raw) noexcept {
    constexpr std::size_t most_lines = 200;
    constexpr std::size_t most_rubbish = 10; // lines
    constexpr std::array names = {"from"sv,        "to"sv,           "subject"sv,      "date"sv,
                                  "received"sv,    "message-id"sv,   "reply-to"sv,     "mime-version"sv,
                                  "return-path"sv, "content-type"sv, "delivered-to"sv, "sender"sv};
    if (raw.starts_with("From ") || raw.starts_with(">From "))
        raw.remove_prefix(std::min(raw.size(), raw.find('\n') + 1));
    std::size_t rubbish = 0;
    std::size_t known = 0;
    bool has_begun = false;
    for (std::size_t line = 0; line < most_lines && !raw.empty(); ++line) {
        const std::string_view text = raw.substr(0, std::min(raw.find('\n'), raw.size()));
        std::size_t at = 0;
        while (at < text.size() && at < 100 && text[at] > ' ' && text[at] != ':' && text[at] != 127)
            ++at;
        const bool is_blank = text.find_first_not_of(" \t\r") == std::string_view::npos;
        if (is_blank && has_begun)
            return false;
        const bool is_continued = line != 0 && !text.empty() && (text[0] == ' ' || text[0] == '\t');
        const bool is_field = at != 0 && at < text.size() && text[at] == ':';
        if (!is_continued && !is_field &&
            (++rubbish > most_rubbish || text.find('\0') != std::string_view::npos))
            return false;
        if (is_field &&
            std::any_of(
                names.begin(), names.end(),
                [&](std::string_view name) { return equals_ignoring_case(text.substr(0, at), name); }) &&
            ++known > (rubbish != 0 ? 1U : 0U))
            return true;
        has_begun = has_begun || !is_blank;
        raw.remove_prefix(std::min(raw.size(), text.size() + 1));
    }
    return false;
}

} // namespace tvr
