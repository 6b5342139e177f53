#include "tools/host/host_session.h"

#include <algorithm>
#include <array>
#include <exception>
#include <limits>
#include <utility>

#include <nlohmann/json.hpp>

#include "client/mail/transfer_encoding.h"
#include "client/tokenizer.h"

namespace tvr {

namespace {

using nlohmann::json;

constexpr int deepest = 2; // a request is an object, whose members are plain or, for settings, such an object
constexpr std::size_t largest_mail = tokenizer_limits{}.mail; // nobody looks at more

[[noreturn]] void refuse(const char* code, std::string text) {
    throw host_refusal{code, std::move(text)};
}

const std::string& text_in(const json& request, const char* name) {
    const auto found = request.find(name);
    if (found == request.end() || !found->is_string())
        refuse("bad_request", std::string("\"") + name + "\" must be a text");
    return found->get_ref<const std::string&>();
}

bool truth_in(const json& request, const char* name) {
    const auto found = request.find(name);
    if (found == request.end() || !found->is_boolean())
        refuse("bad_request", std::string("\"") + name + "\" must be true or false");
    return found->get<bool>();
}

std::optional<std::uint64_t> number_in(const json& request, const char* name) {
    const auto found = request.find(name);
    if (found == request.end())
        return std::nullopt;
    if (!found->is_number_unsigned())
        refuse("bad_request", std::string("\"") + name + "\" must be a whole number");
    return found->get<std::uint64_t>();
}

// False if the text isn't Base64 in groups of four.
bool append_strict_base64(std::string_view text, std::string& out) {
    if (text.size() % 4 != 0)
        return false;
    std::size_t padding = 0;
    while (padding < 2 && text.ends_with('=')) {
        text.remove_suffix(1);
        ++padding;
    }
    std::uint32_t bits = 0;
    unsigned held = 0;
    for (const char c : text) {
        const int value = base64_digit(c);
        if (value < 0)
            return false;
        bits = bits << 6 | static_cast<std::uint32_t>(value);
        held += 6;
        if (held >= 8) {
            held -= 8;
            out += static_cast<char>(bits >> held & 0xFF);
        }
    }
    return true;
}

void append_mail(const std::string& text, std::string& out) {
    const std::size_t before = out.size();
    if (!append_strict_base64(text, out)) {
        out.resize(before);
        refuse("bad_request", "the message must be in Base64");
    }
    if (out.size() <= largest_mail)
        return;
    out.resize(before);
    refuse("too_large", "of a message only the first " + std::to_string(largest_mail) + " bytes are wanted");
}

const char* name_of(verdict decision) {
    return decision == verdict::spam ? "spam" : decision == verdict::ham ? "ham" : "unsure";
}

const char* name_of(host_training state) {
    return state == host_training::learned ? "learned" : state == host_training::known ? "known" : "remarked";
}

std::string text_of(const json& reply) {
    return reply.dump(-1, ' ', true, json::error_handler_t::replace);
}

std::string failure(const json& id, const host_refusal& why) {
    return text_of({{"id", id}, {"error", {{"code", why.code}, {"text", why.text}}}});
}

} // namespace

host_session::host_session(host_service& service, std::string version)
    : m_service(service), m_version(std::move(version)) {}

host_session::operation host_session::find(std::string_view name) {
    static constexpr std::array<std::pair<std::string_view, operation>, 12> operations{{
        {"hello", &host_session::hello},
        {"put", &host_session::put},
        {"grade", &host_session::grade},
        {"explain", &host_session::explain},
        {"train", &host_session::train},
        {"correct", &host_session::train},
        {"forget", &host_session::forget},
        {"status", &host_session::status},
        {"settings", &host_session::settings},
        {"learn-folder", &host_session::learn_folder},
        {"learn", &host_session::learn},
        {"learn-end", &host_session::learn_end},
    }};
    const auto* const found = std::find_if(operations.begin(), operations.end(),
                                           [&](const auto& each) { return each.first == name; });
    return found == operations.end() ? nullptr : found->second;
}

std::string host_session::answer(std::string_view request) {
    json id;
    try {
        // What lies too deep is dropped while it is read, however much it is.
        const json wanted = json::parse(
            request, [](int depth, json::parse_event_t, json&) { return depth <= deepest; }, false);
        if (!wanted.is_object())
            refuse("bad_request", "a request must be a JSON object");
        const auto number = number_in(wanted, "id");
        if (!number)
            refuse("bad_request", "\"id\" must be a whole number");
        id = *number;
        const std::string& name = text_in(wanted, "op");
        const operation run = find(name);
        if (!run)
            refuse("bad_request", "there is no operation \"" + name.substr(0, 40) + "\"");
        json reply = (this->*run)(wanted);
        reply["id"] = id;
        reply["ok"] = true;
        return text_of(reply);
    } catch (const host_refusal& why) {
        return failure(id, why);
    } catch (const std::exception& why) {
        return failure(id, {"broken", why.what()});
    }
}

std::string host_session::too_large() {
    return failure(nullptr, {"too_large", "a request may have " + std::to_string(largest_request) +
                                              " bytes; send a large message in pieces"});
}

json host_session::hello(const json&) {
    return {{"version", m_version}, {"protocol", 1}, {"piece", piece}, {"mail", largest_mail}};
}

// A piece of a message that a later request names.
json host_session::put(const json& request) {
    const auto number = number_in(request, "put");
    if (!number)
        refuse("bad_request", "\"put\" must be a whole number");
    if (m_put != number)
        m_mail.clear();
    m_put = number;
    append_mail(text_in(request, "mail"), m_mail);
    return {{"bytes", m_mail.size()}};
}

host_mail host_session::mail_of(const json& request) {
    if (const auto number = number_in(request, "put")) {
        if (m_put != number)
            refuse("bad_request", "no message was put under this number");
    } else {
        m_mail.clear();
        append_mail(text_in(request, "mail"), m_mail);
    }
    m_put.reset();
    if (!looks_like_mail(m_mail))
        refuse("not_mail", "this is no mail: it doesn't begin with a header");
    const std::uint64_t size = std::max<std::uint64_t>(number_in(request, "size").value_or(0), m_mail.size());
    constexpr std::uint64_t most = std::numeric_limits<std::uint32_t>::max();
    return {m_mail, static_cast<std::uint32_t>(std::min(size, most))};
}

json host_session::score(const json& request, bool explain) {
    const message_score result = m_service.grade(mail_of(request).raw, explain);
    json reply = {{"verdict", name_of(result.decision)}, {"score", result.score}, {"known", result.known}};
    if (!explain)
        return reply;
    json& tokens = reply["tokens"] = json::array();
    for (std::size_t i = 0; i < std::min(result.tokens.size(), most_shown); ++i) {
        const token_share& each = result.tokens[i];
        tokens.push_back({{"token", each.token}, {"grade", each.grade}, {"share", each.share}});
    }
    reply["deciding"] = result.tokens.size();
    return reply;
}

json host_session::grade(const json& request) {
    return score(request, false);
}

json host_session::explain(const json& request) {
    return score(request, true);
}

// The same for a correction: what is known of the message decides what there is to do.
json host_session::train(const json& request) {
    const bool spam = truth_in(request, "spam");
    return {{"state", name_of(m_service.train(mail_of(request), spam))}};
}

json host_session::forget(const json& request) {
    return {{"forgotten", m_service.forget(mail_of(request))}};
}

json host_session::status(const json&) {
    return m_service.status();
}

json host_session::settings(const json& request) {
    const auto changes = request.find("set");
    if (changes != request.end() && !changes->is_object())
        refuse("bad_request", "\"set\" must be an object");
    return m_service.settings(changes == request.end() ? json::object() : *changes);
}

json host_session::folder_reply() const {
    return {{"learned", m_sum.learned}, {"known", m_sum.known}, {"waiting", m_sum.waiting}};
}

json host_session::learn_folder(const json& request) {
    const bool spam = truth_in(request, "spam");
    if (m_folder)
        learn_end(request);
    m_folder = spam;
    m_sum = {};
    return folder_reply();
}

json host_session::learn(const json& request) {
    if (!m_folder)
        refuse("bad_request", "no folder is being learned");
    m_service.collect(mail_of(request), *m_folder, m_sum);
    return folder_reply();
}

json host_session::learn_end(const json&) {
    if (!m_folder)
        refuse("bad_request", "no folder is being learned");
    m_folder.reset();
    m_service.finish(m_sum);
    return folder_reply();
}

} // namespace tvr
