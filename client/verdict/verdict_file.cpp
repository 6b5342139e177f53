#include "client/verdict/verdict_file.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <functional>
#include <span>
#include <utility>

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

// Any single changed word changes it, since each step can be undone. `bytes` are whole words.
std::uint64_t go_on_checking(std::uint64_t check, std::span<const std::uint8_t> bytes) noexcept {
    for (std::size_t i = 0; i < bytes.size(); i += 8) {
        check = (check ^ load_le<std::uint64_t>(bytes.data() + i)) * 0xD6E8FEB86659FD93ULL;
        check ^= check >> 32;
    }
    return check;
}

// Gives out a file piece by piece, and checks it on the way.
class checked_input {
public:
    using source = std::function<bool(void* to, std::size_t size)>;

    // `size`: bytes that are checked, all that comes.
    checked_input(const source& from, std::size_t size) : m_from(from), m_check(size) {}

    bool read(std::span<std::uint8_t> to) {
        if (!m_from(to.data(), to.size()))
            return false;
        m_check = go_on_checking(m_check, to);
        return true;
    }
    [[nodiscard]] std::uint64_t check() const noexcept { return m_check; }

private:
    const source& m_from;
    std::uint64_t m_check;
};

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
    explicit byte_reader(std::span<const std::uint8_t> bytes) : m_bytes(bytes) {}
    template <class T>
    T get() {
        const T value = load_le<T>(m_bytes.data() + m_at);
        m_at += sizeof value;
        return value;
    }

private:
    std::span<const std::uint8_t> m_bytes;
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
    out.put(verdict_version);
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
    out.skip_to(verdict_messages_at);
    for (const judged_message& message : state.messages)
        put_message(out, message);
    std::vector<std::uint8_t> bytes = out.take();
    store_le(bytes.data() + 8,
             go_on_checking(bytes.size() - checked_from, std::span(bytes).subspan(checked_from)));
    return bytes;
}

namespace {

bool read_front(checked_input& in, verdict_state& read, std::size_t& count) {
    std::array<std::uint8_t, head_size - checked_from + tops_size + weights_size> room;
    if (!in.read(room))
        return false;
    byte_reader head(room);
    count = head.get<std::uint32_t>();
    read.unlearned = head.get<std::uint32_t>();
    read.judged = head.get<std::uint64_t>();
    read.trust = head.get<double>();
    read.memory.bias = head.get<std::int32_t>();
    read.recent_ham = head.get<std::uint32_t>();
    const std::size_t tops = head.get<std::uint32_t>();
    if (!(read.trust >= 0 && read.trust <= 1) || tops > verdict_state::top_scores || tops > read.recent_ham ||
        std::abs(std::int64_t{read.memory.bias}) > token_memory::most_bias)
        return false;
    byte_reader scores(std::span<const std::uint8_t>(room).subspan(head_size - checked_from));
    read.ham_scores.resize(tops);
    for (std::int16_t& score : read.ham_scores)
        score = scores.get<std::int16_t>();
    byte_reader weights(std::span<const std::uint8_t>(room).subspan(head_size - checked_from + tops_size));
    for (std::size_t i = 0; i < feature::learned; ++i) {
        read.weights[i] = weights.get<double>();
        if (!(std::abs(read.weights[i]) <= largest_weight))
            return false;
    }
    return true;
}

bool read_memory(checked_input& in, token_memory& memory) {
    const auto weights = memory.weights();
    return in.read({reinterpret_cast<std::uint8_t*>(weights.data()), weights.size_bytes()});
}

bool read_memory_of(checked_input& in, std::span<const token_key> tokens, token_memory& memory) {
    std::vector<std::pair<std::size_t, std::int16_t>> few;
    for (const token_key token : tokens)
        few.emplace_back(token_memory::place_of(token), std::int16_t{0});
    std::ranges::sort(few);
    few.erase(std::unique(few.begin(), few.end()), few.end());
    std::array<std::uint8_t, 16384> room;
    static_assert(memory_size % room.size() == 0);
    auto wanted = few.begin();
    for (std::size_t end = room.size() / 2; end <= token_memory::places; end += room.size() / 2) {
        if (!in.read(room))
            return false;
        for (; wanted != few.end() && wanted->first < end; ++wanted)
            wanted->second = load_le<std::int16_t>(room.data() + room.size() - (end - wanted->first) * 2);
    }
    memory.set_few(std::move(few));
    return true;
}

bool read_messages(checked_input& in, std::size_t count, bool keeps, std::vector<judged_message>& messages) {
    if (keeps)
        messages.reserve(count);
    std::array<std::uint8_t, 64 * message_size> room;
    for (std::size_t left = count; left != 0;) {
        const std::size_t some = std::min(left, room.size() / message_size);
        if (!in.read(std::span(room).first(some * message_size)))
            return false;
        byte_reader bytes(room);
        for (std::size_t i = 0; i < some && keeps; ++i)
            messages.push_back(get_message(bytes));
        left -= some;
    }
    return true;
}

// Takes nothing but a whole file, of `size` bytes.
bool parse(const checked_input::source& from, std::size_t size, const verdict_use& use,
           verdict_state& state) {
    std::array<std::uint8_t, checked_from> start;
    if (size < fixed_size || size > largest_verdict || !from(start.data(), start.size()) ||
        load_u32(start.data()) != verdict_signature || load_u32(start.data() + 4) != verdict_version)
        return false;
    checked_input in(from, size - checked_from);
    verdict_state read;
    std::size_t count = 0;
    if (!read_front(in, read, count) || count > verdict_state::most_messages ||
        size != fixed_size + count * message_size)
        return false;
    if (!(use.only ? read_memory_of(in, *use.only, read.memory) : read_memory(in, read.memory)) ||
        !read_messages(in, count, use.messages, read.messages) ||
        in.check() != load_le<std::uint64_t>(start.data() + 8))
        return false;
    state = std::move(read);
    return true;
}

} // namespace

bool parse_verdict(const std::vector<std::uint8_t>& bytes, verdict_state& state) {
    state = {};
    std::size_t at = 0;
    return parse(
        [&](void* to, std::size_t size) {
            if (size > bytes.size() - at)
                return false;
            std::memcpy(to, bytes.data() + at, size);
            at += size;
            return true;
        },
        bytes.size(), {}, state);
}

verdict_file_result load_verdict(std::string_view path, verdict_state& state, const verdict_use& use) {
    state = {};
    file_stream file;
    if (!file.open_to_read(path)) {
        const std::uint32_t code = platform::last_error();
        return code == platform::error::file_not_found || code == platform::error::path_not_found
                   ? verdict_file_result::missing
                   : verdict_file_result::failed;
    }
    const std::uint64_t size = std::min<std::uint64_t>(file.size().value_or(0), largest_verdict + 1);
    bool failed = false;
    const bool parsed = parse(
        [&](void* to, std::size_t wanted) {
            std::size_t got = 0;
            failed = failed || !file.read(to, wanted, got);
            return got == wanted;
        },
        static_cast<std::size_t>(size), use, state);
    return failed   ? verdict_file_result::failed
           : parsed ? verdict_file_result::loaded
                    : verdict_file_result::damaged;
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
