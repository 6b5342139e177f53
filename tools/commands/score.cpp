// tvrctl score: the verdict on messages.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <memory>
#include <optional>

#include <nlohmann/json.hpp>

#include "client/tokenizer.h"
#include "common/text.h"
#include "platform/process.h"
#include "tools/commands/mail_input.h"
#include "tools/mail/mail_reading.h"
#include "tools/mail/mail_source.h"
#include "tools/state/published_base.h"
#include "tools/text.h"

namespace tvr {

namespace {

constexpr std::size_t most_shown = 25; // tokens of an explanation
constexpr std::string_view header_name = "X-Tessivar";

struct score_options {
    std::vector<std::string> paths;
    std::string rule = "kinds";
    std::optional<double> threshold; // in place of the user's
    bool explain = false;
    bool json = false;
    bool filter = false;
    bool exit_zero = false;
    bool verbose = false;
};

namespace verdict_code {
constexpr int spam = 0, ham = 1, unsure = 2;
} // namespace verdict_code

int code_of(verdict decision) {
    return decision == verdict::spam  ? verdict_code::spam
           : decision == verdict::ham ? verdict_code::ham
                                      : verdict_code::unsure;
}

const char* name_of(verdict decision) {
    return decision == verdict::spam ? "spam" : decision == verdict::ham ? "ham" : "unsure";
}

std::string grade_text(double grade) {
    char text[16];
    std::snprintf(text, sizeof text, "%.3f", grade);
    return grade == 0 ? "unknown" : text;
}

// `is_sum`: the shares add up to the logit of the score.
void print_text(const mail_item& mail, const message_score& result, bool explain, bool is_sum) {
    std::printf("%-6s %6.2f  %s\n", name_of(result.decision), result.score, printable(mail.name).c_str());
    if (explain && result.known == 0)
        std::printf("    The base knows none of its tokens.\n");
    if (result.tokens.empty())
        return;
    std::printf("    %8s  %7s  %s\n", "share", "grade", "token");
    const std::size_t shown = std::min(result.tokens.size(), most_shown);
    for (std::size_t i = 0; i < shown; ++i)
        std::printf("    %+8.3f  %7s  %s\n", result.tokens[i].share,
                    grade_text(result.tokens[i].grade).c_str(), printable(result.tokens[i].token).c_str());
    if (is_sum) {
        double others = 0;
        for (std::size_t i = shown; i < result.tokens.size(); ++i)
            others += result.tokens[i].share;
        std::printf("    %+8.3f  %7s  %zu other tokens\n", others, "", result.tokens.size() - shown);
        std::printf("    %+8.3f  %7s  where every message begins\n", result.middle, "");
        std::printf("    %+8.3f  %7s  together: spam from %.2f on\n",
                    std::log(result.score / (100 - result.score)), "", result.spam_from);
    }
}

// The Message-ID within the ID of a cache record, or null.
nlohmann::json message_id(const std::string& msid) {
    const std::size_t end = msid.rfind(">_");
    if (end == std::string::npos || end <= 1)
        return nullptr;
    return msid.substr(1, end - 1);
}

void print_json(const mail_item& mail, const mail_facts& facts, const message_score& result, bool explain) {
    nlohmann::json json = {{"file", mail.file},
                           {"message", mail.number != 0 ? nlohmann::json(mail.number) : nlohmann::json()},
                           {"message_id", message_id(facts.msid)},
                           {"verdict", name_of(result.decision)},
                           {"score", result.score},
                           {"spam_from", result.spam_from},
                           {"known_tokens", result.known}};
    if (explain) {
        json["middle"] = result.middle;
        json["tokens"] = nlohmann::json::array();
        for (const token_share& token : result.tokens)
            json["tokens"].push_back(
                {{"token", token.token},
                 {"grade", token.grade == 0 ? nlohmann::json() : nlohmann::json(token.grade)},
                 {"share", token.share}});
    }
    std::printf("%s\n", json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
}

// The beginning of a message, with the verdict as the last line of its header, and without such lines that
// came with it. Unchanged if its header has no end here.
std::string with_verdict(const std::string& raw, bool is_whole, const message_score& result) {
    std::string out;
    out.reserve(raw.size() + 64);
    std::string_view rest = raw;
    bool drops = false;
    while (!rest.empty()) {
        const std::size_t end = std::min(rest.find('\n'), rest.size() - 1) + 1;
        const std::string_view line = rest.substr(0, end);
        if (line == "\n" || line == "\r\n")
            break;
        const bool is_continued = line[0] == ' ' || line[0] == '\t';
        if (!is_continued)
            drops = starts_with_ignoring_case(line, std::string(header_name) + ":");
        if (!drops)
            out += line;
        rest.remove_prefix(end);
    }
    if (rest.empty() && !is_whole)
        return raw;
    const char* const line_end = rest.starts_with("\r\n") ? "\r\n" : "\n";
    if (!out.empty() && out.back() != '\n')
        out += line_end;
    char verdict_line[80];
    std::snprintf(verdict_line, sizeof verdict_line, "%s: %s, score=%.2f%s", header_name.data(),
                  name_of(result.decision), result.score, line_end);
    return out.append(verdict_line).append(rest);
}

bool put(std::string_view bytes) {
    return std::fwrite(bytes.data(), 1, bytes.size(), stdout) == bytes.size();
}

// The rest of standard input, in pieces, as it comes. False if it can't be written.
bool copy_rest() {
    std::array<char, 65536> piece;
    while (std::cin.read(piece.data(), piece.size()), std::cin.gcount() > 0)
        if (!put({piece.data(), static_cast<std::size_t>(std::cin.gcount())}))
            return false;
    return true;
}

// Loads the base, or what these tokens need of it; tells of what is wrong.
bool load(published_base& base, const token_table* tokens) {
    const std::string why = tokens ? base.load_for(*tokens) : base.load();
    if (!why.empty())
        fail(why);
    if (!base.remark().empty())
        std::fprintf(stderr, "tvrctl: %s\n", base.remark().c_str());
    return why.empty();
}

// The beginning of standard input; `is_whole` if there is no more of it.
std::string read_beginning(bool& is_whole) {
    std::string raw;
    for (std::size_t room = 65536; raw.size() < mail_source::largest && std::cin; room *= 2) {
        const std::size_t had = raw.size();
        raw.resize(std::min(room, mail_source::largest));
        std::cin.read(raw.data() + had, static_cast<std::streamsize>(raw.size() - had));
        raw.resize(had + static_cast<std::size_t>(std::cin.gcount()));
    }
    is_whole = std::cin.eof();
    return raw;
}

// Whatever happens, the message comes out again: what is no mail, or can't be graded, as it came.
int filter(const score_options& options) {
    bool is_whole = false;
    std::string raw = read_beginning(is_whole);
    tokenizer cut;
    const bool is_mail = !std::cin.bad() && looks_like_mail(raw);
    if (is_mail)
        cut.tokenize(raw);
    published_base base;
    // The other rules ask for more than the tokens.
    const score_rule rule = rule_of(options.rule);
    int code = exit_code::failed;
    if (load(base, rule == score_rule::kinds ? &cut.tokens() : nullptr) && !std::cin.bad()) {
        code = verdict_code::unsure;
        if (is_mail) {
            const message_score result = base.scorer(rule, options.threshold).score(cut.tokens());
            raw = with_verdict(raw, is_whole, result);
            code = code_of(result.decision);
        }
    }
    const bool written = put(raw) && copy_rest() && std::fflush(stdout) == 0 && !std::cin.bad();
    return written ? code : exit_code::failed;
}

int score_all(const mail_scorer& scorer, const score_options& options) {
    int code = exit_code::failed;
    pass_log passed(options.verbose);
    mail_source source({.ham = options.paths, .everything = true},
                       [&](const passed_mail& mail) { passed.add(mail); });
    tokenizer cut;
    mail_item mail;
    while (source.next(mail)) {
        cut.tokenize(mail.raw);
        const message_score result = scorer.score(cut.tokens(), options.explain);
        if (options.json)
            print_json(mail, cut.facts(), result, options.explain);
        else
            print_text(mail, result, options.explain, options.rule == "kinds");
        code = code_of(result.decision);
    }
    passed.sum_up();
    return passed.count(passed_mail::kind::lost) != 0 ? exit_code::failed : code;
}

int score(const score_options& options) {
    platform::only_look();
    int code = exit_code::failed;
    published_base base;
    if (options.filter)
        code = filter(options);
    else if (load(base, nullptr))
        code = score_all(base.scorer(rule_of(options.rule), options.threshold), options);
    return options.exit_zero && code != exit_code::failed ? 0 : code;
}

} // namespace

void add_score(CLI::App& program, int& code) {
    auto options = std::make_shared<score_options>();
    CLI::App* command = program.add_subcommand("score", "Score mail: spam, unsure or ham");
    command->add_option("PATH", options->paths, "Messages, mbox files, folders, or - for standard input");
    command->add_flag("--explain", options->explain, "Show the tokens that decided");
    CLI::Option* json = command->add_flag("--json", options->json, "Print one JSON object for each message");
    command
        ->add_flag("--filter", options->filter,
                   "Copy a message from standard input to standard output, with the verdict in a header line")
        ->excludes(json);
    command->add_flag("-e,--exit-zero", options->exit_zero, "Exit with 0 whatever the verdict is");
    command->add_flag("-v,--verbose", options->verbose, "Name everything that is skipped");
    add_rule(*command, options->rule);
    command
        ->add_option("--threshold", options->threshold,
                     "Call spam what has at least this score, in place of the threshold that is set")
        ->type_name("SCORE")
        ->check(CLI::Range(0.0, 100.0));
    command->footer("Exit code, of the last message: 0 spam; 1 ham; 2 unsure, or wrong usage; 3 no mail, a "
                    "named path that\n"
                    "can't be read, or an error. Skipped files in folders don't change it. --filter copies "
                    "input that is no\n"
                    "mail unchanged, with 2, and every message unchanged, with 3, when it can't grade.\n\n"
                    "Examples:\n"
                    "  tvrctl score --explain message.eml\n"
                    "  tvrctl score --filter -e < message.eml");
    command->callback([options, &code] {
        if (options->paths.empty() != options->filter)
            throw CLI::RequiredError("PATH, or --filter alone,");
        code = score(*options);
    });
}

} // namespace tvr
