// The conversation of a mail program's add-on with "tvrctl host": one JSON request, one JSON reply.
// docs/host.md tells the requests.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json_fwd.hpp>

#include "client/score.h"

namespace tvr {

// Why a request isn't done: a word for programs, and a text for the user.
struct host_refusal {
    std::string code;
    std::string text;
};

// What became of a message that was handed over.
enum class host_training {
    learned,  // it is in the cache
    known,    // it waited there or was learned already, with this verdict
    remarked, // it waited there with the other verdict
};

struct host_mail {
    std::string_view raw;   // as far as it was sent
    std::uint32_t size = 0; // of the whole message (bytes)
};

// What is behind the conversation. Every operation may throw a host_refusal.
class host_service {
public:
    virtual ~host_service() = default;

    virtual message_score grade(std::string_view raw, bool explain) = 0;
    // By the user's own hand: the engine trains at once.
    virtual host_training train(const host_mail& mail, bool spam) = 0;
    // Messages of a folder that the user names are collected, and handed over from time to time; the answers
    // of all that were then settled are counted. finish() settles the rest and makes the engine train.
    struct folder_sum {
        std::uint64_t learned = 0;
        std::uint64_t known = 0;
        std::uint64_t waiting = 0; // collected, and not handed over yet
    };
    virtual void collect(const host_mail& mail, bool spam, folder_sum& sum) = 0;
    virtual void finish(folder_sum& sum) = 0;
    // The number of records that won't be learned now.
    virtual std::uint32_t forget(const host_mail& mail) = 0;
    virtual nlohmann::json status() = 0;
    // An object of settings and their new numbers; returns all of them as they are now.
    virtual nlohmann::json settings(const nlohmann::json& changes) = 0;
};

// One client. Holds one message at most.
class host_session {
public:
    static constexpr std::size_t largest_request = std::size_t{1} << 20; // bytes of JSON
    static constexpr std::size_t piece = std::size_t{512} << 10;         // bytes of a message in one request
    static constexpr std::size_t most_shown = 40;                        // tokens of an explanation

    host_session(host_service& service, std::string version);

    // The reply to one request, of less than 256 KiB, in ASCII. Takes any bytes.
    std::string answer(std::string_view request);
    // The reply to a request that was too long to be read.
    static std::string too_large();

private:
    using operation = nlohmann::json (host_session::*)(const nlohmann::json& request);
    static operation find(std::string_view name);

    nlohmann::json hello(const nlohmann::json& request);
    nlohmann::json put(const nlohmann::json& request);
    nlohmann::json grade(const nlohmann::json& request);
    nlohmann::json explain(const nlohmann::json& request);
    nlohmann::json train(const nlohmann::json& request);
    nlohmann::json forget(const nlohmann::json& request);
    nlohmann::json status(const nlohmann::json& request);
    nlohmann::json settings(const nlohmann::json& request);
    nlohmann::json learn_folder(const nlohmann::json& request);
    nlohmann::json learn(const nlohmann::json& request);
    nlohmann::json learn_end(const nlohmann::json& request);

    host_mail mail_of(const nlohmann::json& request);
    nlohmann::json score(const nlohmann::json& request, bool explain);
    [[nodiscard]] nlohmann::json folder_reply() const;

    host_service& m_service;
    std::string m_version;
    std::string m_mail; // what was put, or the message of the present request
    std::optional<std::uint64_t> m_put;
    std::optional<bool> m_folder; // is spam; while a folder is being learned
    host_service::folder_sum m_sum;
};

} // namespace tvr
