#include "client/verdict/verdict_file.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

#include "common/bytes.h"
#include "common/file_names.h"
#include "common/file_stream.h"
#include "common/files.h"
#include "common/path.h"
#include "dict/dictbase.h"
#include "platform/error.h"
#include "platform/file.h"
#include "platform/fnv.h"

namespace tvr {

namespace {

constexpr std::uint32_t version = 1;
constexpr std::size_t checked_from = 16; // what stands in front is signature, version and the check itself
constexpr std::size_t head_size = 64;
constexpr std::size_t tops_size = verdict_state::top_scores * 2;
constexpr std::size_t weights_size = feature::learned * 8;
constexpr std::size_t message_size = verdict_message_size;
constexpr std::size_t memory_size = token_memory::places * 2;
constexpr std::size_t fixed_size = head_size + tops_size + weights_size + memory_size;
static_assert(verdict_messages_at == fixed_size &&
              largest_verdict == fixed_size + verdict_state::most_messages * message_size &&
              largest_verdict <= std::size_t{1} << 20 && fixed_size % 8 == 0 && message_size % 8 == 0);

constexpr unsigned is_spam = 1, is_crossed = 2; // marks of a message
constexpr double largest_weight = 1e6;

// Any single changed word changes it, since each step can be undone.
std::uint64_t check_of(const std::uint8_t* at, std::size_t size) noexcept {
    std::uint64_t check = size;
    for (std::size_t i = 0; i < size; i += 8) {
        check = (check ^ load_le<std::uint64_t>(at + i)) * 0xD6E8FEB86659FD93ULL;
        check ^= check >> 32;
    }
    return check;
}

class byte_writer {
public:
    explicit byte_writer(std::size_t size) : m_bytes(size) {}
    template <class T>
    void put(T value) {
        store_le(m_bytes.data() + m_at, value);
        m_at += sizeof value;
    }
    void skip_to(std::size_t place) { m_at = place; }
    std::vector<std::uint8_t> take() { return std::move(m_bytes); }

private:
    std::vector<std::uint8_t> m_bytes;
    std::size_t m_at = 0;
};

class byte_reader {
public:
    explicit byte_reader(const std::vector<std::uint8_t>& bytes) : m_bytes(bytes) {}
    template <class T>
    T get() {
        const T value = load_le<T>(m_bytes.data() + m_at);
        m_at += sizeof value;
        return value;
    }
    void skip_to(std::size_t place) { m_at = place; }

private:
    const std::vector<std::uint8_t>& m_bytes;
    std::size_t m_at = 0;
};

void put_message(byte_writer& out, const judged_message& message) {
    out.put(message.id);
    out.put(message.time);
    out.put(message.what.spam_messages);
    out.put(message.what.ham_messages);
    out.put(message.what.memory);
    out.put(message.score);
    out.put(message.learned_score);
    out.put(
        static_cast<std::uint16_t>((message.spam ? is_spam : 0) | (message.what.crossed ? is_crossed : 0)));
    for (const auto& kind : message.what.counts)
        for (const std::uint8_t count : kind)
            out.put(count);
}

judged_message get_message(byte_reader& in) {
    judged_message message;
    message.id = in.get<std::uint64_t>();
    message.time = in.get<std::uint32_t>();
    message.what.spam_messages = in.get<std::uint16_t>();
    message.what.ham_messages = in.get<std::uint16_t>();
    message.what.memory = in.get<std::int16_t>();
    message.score = in.get<std::int16_t>();
    message.learned_score = in.get<std::int16_t>();
    const auto marks = in.get<std::uint16_t>();
    message.spam = (marks & is_spam) != 0;
    message.what.crossed = (marks & is_crossed) != 0;
    for (auto& kind : message.what.counts)
        for (std::uint8_t& count : kind)
            count = in.get<std::uint8_t>();
    return message;
}

} // namespace

std::int16_t pack_score(double logit) noexcept {
    const double scaled = std::clamp(logit, -250.0, 250.0) * score_unit;
    return static_cast<std::int16_t>(scaled < 0 ? scaled - 0.5 : scaled + 0.5);
}

std::uint64_t id_of(std::string_view msid) noexcept {
    return fnv_64(msid);
}

std::string verdict_path(std::string_view working_directory) {
    return std::string(working_directory) + names::verdict;
}

std::string verdict_lock_path(std::string_view working_directory) {
    return std::string(working_directory) + names::verdict_lock;
}

std::vector<std::uint8_t> verdict_bytes(const verdict_state& state) {
    byte_writer out(fixed_size + state.messages.size() * message_size);
    out.put(verdict_signature);
    out.put(version);
    out.skip_to(checked_from);
    out.put(static_cast<std::uint32_t>(state.messages.size()));
    out.put(state.unlearned);
    out.put(state.judged);
    out.put(state.trust);
    out.put(state.memory.bias);
    out.put(state.recent_ham);
    out.put(static_cast<std::uint32_t>(state.ham_scores.size()));
    out.skip_to(head_size);
    for (const std::int16_t score : state.ham_scores)
        out.put(score);
    out.skip_to(head_size + tops_size);
    for (std::size_t i = 0; i < feature::learned; ++i)
        out.put(state.weights[i]);
    for (const std::int16_t weight : state.memory.weights())
        out.put(weight);
    for (const judged_message& message : state.messages)
        put_message(out, message);
    std::vector<std::uint8_t> bytes = out.take();
    store_le(bytes.data() + 8, check_of(bytes.data() + checked_from, bytes.size() - checked_from));
    return bytes;
}

bool parse_verdict(const std::vector<std::uint8_t>& bytes, verdict_state& state) {
    state = {};
    if (bytes.size() < fixed_size || load_u32(bytes.data()) != verdict_signature ||
        load_u32(bytes.data() + 4) != version)
        return false;
    const std::size_t count = load_u32(bytes.data() + checked_from);
    if (count > verdict_state::most_messages || bytes.size() != fixed_size + count * message_size ||
        load_le<std::uint64_t>(bytes.data() + 8) !=
            check_of(bytes.data() + checked_from, bytes.size() - checked_from))
        return false;
    byte_reader in(bytes);
    verdict_state read;
    in.skip_to(checked_from + 4);
    read.unlearned = in.get<std::uint32_t>();
    read.judged = in.get<std::uint64_t>();
    read.trust = in.get<double>();
    read.memory.bias = in.get<std::int32_t>();
    read.recent_ham = in.get<std::uint32_t>();
    const std::size_t tops = in.get<std::uint32_t>();
    if (!(read.trust >= 0 && read.trust <= 1) || tops > verdict_state::top_scores || tops > read.recent_ham ||
        std::abs(std::int64_t{read.memory.bias}) > token_memory::most_bias)
        return false;
    in.skip_to(head_size);
    read.ham_scores.resize(tops);
    for (std::int16_t& score : read.ham_scores)
        score = in.get<std::int16_t>();
    in.skip_to(head_size + tops_size);
    for (std::size_t i = 0; i < feature::learned; ++i) {
        read.weights[i] = in.get<double>();
        if (!(std::abs(read.weights[i]) <= largest_weight))
            return false;
    }
    for (std::int16_t& weight : read.memory.weights())
        weight = in.get<std::int16_t>();
    read.messages.reserve(count);
    for (std::size_t i = 0; i < count; ++i)
        read.messages.push_back(get_message(in));
    state = std::move(read);
    return true;
}

verdict_file_result load_verdict(std::string_view path, verdict_state& state) {
    state = {};
    file_stream file;
    if (!file.open_to_read(path)) {
        const std::uint32_t code = platform::last_error();
        return code == platform::error::file_not_found || code == platform::error::path_not_found
                   ? verdict_file_result::missing
                   : verdict_file_result::failed;
    }
    std::vector<std::uint8_t> bytes(largest_verdict + 1); // one more tells a file that is too long
    std::size_t got = 0;
    if (!file.read(bytes.data(), bytes.size(), got))
        return verdict_file_result::failed;
    bytes.resize(got);
    return parse_verdict(bytes, state) ? verdict_file_result::loaded : verdict_file_result::damaged;
}

bool save_verdict(std::string_view path, const verdict_state& state) {
    const std::vector<std::uint8_t> bytes = verdict_bytes(state);
    return rewrite_durably(std::string(path), [&bytes](file_stream& file) {
               return file.write(bytes.data(), bytes.size());
           }) == rewritten::done;
}

bool replace_verdict(std::string_view working_directory, const verdict_state* state) {
    const std::string path = verdict_path(working_directory);
    file_lock lock(verdict_lock_path(working_directory));
    if (!lock.acquire_within(verdict_patience))
        return false;
    const bool done =
        state ? save_verdict(path, *state)
              : platform::delete_file(path) || platform::last_error() == platform::error::file_not_found;
    const std::uint32_t code = platform::last_error();
    lock.release();
    platform::set_last_error(code);
    return done;
}

} // namespace tvr
