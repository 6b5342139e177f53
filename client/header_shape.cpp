#include "client/header_shape.h"

#include <algorithm>
#include <array>
#include <cstddef>

#include "common/text.h"
#include "platform/ascii.h"

namespace tvr {

namespace {

using namespace std::string_view_literals;

constexpr std::size_t longest_shape = 60;
constexpr std::size_t longest_hop = 100;

// Words of a Received line that its server chose, not its client.
constexpr std::array hop_words = {"EHLO"sv,  "ESMTP"sv,   "HELO"sv, "HTTP"sv, "SMTP"sv, "by"sv,
                                  "esmtp"sv, "for"sv,     "from"sv, "helo"sv, "id"sv,   "localhost"sv,
                                  "smtp"sv,  "unknown"sv, "via"sv,  "with"sv};
static_assert(std::is_sorted(hop_words.begin(), hop_words.end()));

constexpr bool is_high(char c) {
    return static_cast<unsigned char>(c) >= 0x80;
}

std::string lowered(std::string_view text) {
    std::string result(text);
    for (char& c : result)
        c = lower(c);
    return result;
}

// The last two labels of the host of the last address in the value; empty if there is none.
std::string domain_of(std::string_view value) {
    const std::size_t sign = value.rfind('@');
    if (sign == std::string_view::npos)
        return {};
    value.remove_prefix(sign + 1);
    value = value.substr(0, value.find_first_of("> \t\r\n,;)\""));
    const std::size_t last = value.rfind('.');
    const std::size_t before =
        last == 0 || last == std::string_view::npos ? std::string_view::npos : value.rfind('.', last - 1);
    return lowered(before == std::string_view::npos ? value : value.substr(before + 1));
}

// What precedes the host of the same address.
std::string local_part_of(std::string_view value) {
    const std::size_t sign = value.rfind('@');
    if (sign == std::string_view::npos)
        return {};
    const std::size_t before = value.find_last_of("< \t\"", sign);
    const std::size_t start = before == std::string_view::npos ? 0 : before + 1;
    return lowered(value.substr(start, sign - start));
}

// How an address is written: alone, with or without brackets, or after a name.
std::string_view form_of(std::string_view value) {
    if (value.empty())
        return "absent";
    const std::size_t bracket = value.find('<');
    return bracket == std::string_view::npos ? "bare"sv
           : bracket == 0                    ? "bracket"sv
           : value[0] == '"'                 ? "quoted"sv
                                             : "name"sv;
}

std::string_view hop_word(std::string_view word) {
    if (is_ip(word))
        return "I";
    if (word.find('.') != std::string_view::npos)
        return "H";
    if (std::binary_search(hop_words.begin(), hop_words.end(), word))
        return word;
    return word.find('@') != std::string_view::npos ? "E"sv : "w"sv;
}

} // namespace

bool is_ip(std::string_view host) noexcept {
    return !host.empty() && host.find_first_not_of("0123456789.") == std::string_view::npos &&
           std::count(host.begin(), host.end(), '.') == 3;
}

std::string shape_of(std::string_view text, bool lengths) {
    std::string shape;
    for (std::size_t at = 0; at < text.size() && shape.size() < longest_shape;) {
        const std::size_t start = at;
        const auto pass = [&](auto belongs) {
            while (at < text.size() && belongs(text[at]))
                ++at;
            return text.substr(start, at - start);
        };
        if (is_digit(text[at])) {
            const std::string_view run = pass(is_digit);
            shape += '9';
            if (lengths)
                shape += std::to_string(run.size());
        } else if (is_letter(text[at])) {
            const std::string_view run = pass(is_letter);
            const auto capitals = static_cast<std::size_t>(std::count_if(run.begin(), run.end(), is_capital));
            shape += capitals == 0 ? 'a' : capitals == run.size() ? 'A' : 'B';
        } else if (is_high(text[at])) {
            pass(is_high);
            shape += '~';
        } else {
            shape += text[at++];
        }
    }
    return shape;
}

std::string shape_of_hop(std::string_view line) {
    line = line.substr(0, std::min(line.find(';'), std::size_t{1024}));
    std::string shape;
    std::size_t start = 0;
    for (std::size_t at = 0; at <= line.size(); ++at) {
        const char c = at < line.size() ? line[at] : ' ';
        if (is_letter(c) || is_digit(c) || c == '.' || c == '-' || c == '_' || c == '@')
            continue;
        if (at != start)
            shape += hop_word(line.substr(start, at - start));
        start = at + 1;
        if (c > ' ')
            shape += c;
    }
    shape.resize(std::min(shape.size(), longest_hop));
    return shape;
}

void header_marks(const header_lines& lines, const std::function<void(std::string_view)>& mark) {
    if (!lines.message_id.empty()) {
        const std::string_view id = lines.message_id.substr(0, lines.message_id.find('@'));
        mark("id shape:" + shape_of(id, true));
        mark("id form:" + shape_of(id, false));
    }
    mark("hops " + std::to_string(lines.hops));
    mark("hop shape:" + shape_of_hop(lines.oldest_hop));

    const std::string from = domain_of(lines.from);
    const auto compare = [&](std::string_view name, std::string_view value) {
        const std::string domain = domain_of(value);
        if (!domain.empty())
            mark(std::string(name) + (domain == from ? " as from" : " not from"));
    };
    compare("reply-to", lines.reply_to);
    compare("message-id", lines.message_id);
    compare("return-path", lines.return_path);
    compare("to", lines.to);
    mark("from shape:" + shape_of(local_part_of(lines.from), false));
    mark("from form:" + std::string(form_of(lines.from)));
    mark("to form:" + std::string(form_of(lines.to)));
    // A stranger knows no more of the recipient than the address.
    const std::string recipient = local_part_of(lines.to);
    if (recipient.size() > 2 && lowered(lines.subject).find(recipient) != std::string::npos)
        mark("subject names to");
}

} // namespace tvr
