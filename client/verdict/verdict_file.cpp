#include "client/verdict/verdict_file.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <functional>
#include <span>
#include <type_traits>
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
constexpr std::size_t messages_check_at = 16;
constexpr std::size_t head_size = 72;
constexpr std::size_t tops_size = verdict_state::top_scores * 2;
constexpr std::size_t weights_size = feature::learned * 8;
constexpr std::size_t message_size = verdict_message_size;
constexpr std::size_t memory_size = token_memory::places * 2;
constexpr std::size_t seen_size = sizeof(seen_tokens::bucket) << seen_tokens::bucket_bits;
constexpr std::size_t fixed_size = head_size + tops_size + weights_size + memory_size + seen_size;
static_assert(verdict_messages_at == fixed_size &&
              largest_verdict == fixed_size + verdict_state::most_messages * message_size &&
              largest_verdict <= std::size_t{1} << 20 && fixed_size % 8 == 0 && message_size % 8 == 0);
static_assert(sizeof(seen_tokens::bucket) == 24); // in the file as in memory

constexpr unsigned is_spam = 1, is_crossed = 2; // marks of a message
constexpr double largest_weight = 1e6;

// A check of whole words, in four lanes, which the processor works on at once. Any single changed word
// changes it, since each step can be undone.
class word_check {
public:
    explicit word_check(std::uint64_t size) noexcept : m_size(size) {}

    void add(std::span<const std::uint8_t> bytes) noexcept {
        std::size_t at = 0;
        const auto step = [&](std::uint64_t& lane) {
            lane = mixed(lane, load_le<std::uint64_t>(bytes.data() + at));
            at += 8;
        };
        for (; at < bytes.size() && m_next != 0; m_next = (m_next + 1) % m_lanes.size())
            step(m_lanes[m_next]);
        while (bytes.size() - at >= 8 * m_lanes.size())
            for (std::uint64_t& lane : m_lanes)
                step(lane);
        for (; at < bytes.size(); ++m_next)
            step(m_lanes[m_next]);
    }
    [[nodiscard]] std::uint64_t sum() const noexcept {
        std::uint64_t sum = m_size;
        for (const std::uint64_t lane : m_lanes)
            sum = mixed(sum, lane);
        return sum;
    }

private:
    static std::uint64_t mixed(std::uint64_t check, std::uint64_t word) noexcept {
        check = (check ^ word) * 0xD6E8FEB86659FD93ULL;
        return check ^ check >> 32;
    }

    std::uint64_t m_size;
    std::array<std::uint64_t, 4> m_lanes{};
    std::size_t m_next = 0; // lane
};

// Gives out a file piece by piece, and checks it on the way.
class checked_input {
public:
    using source = std::function<bool(void* to, std::size_t size)>;

    // `size`: bytes that are checked, all that comes.
    checked_input(const source& from, std::size_t size) : m_from(from), m_check(size) {}

    bool read(std::span<std::uint8_t> to) {
        if (!m_from(to.data(), to.size()))
            return false;
        m_check.add(to);
        return true;
    }
    [[nodiscard]] std::uint64_t check() const noexcept { return m_check.sum(); }

private:
    const source& m_from;
    word_check m_check;
};

class byte_writer {
public:
    explicit byte_writer(std::size_t size) : m_bytes(size) {}
    template <class T>
    void put(T value) {
        store_le(m_bytes.data() + m_at, value);
        m_at += sizeof value;
    }
    void put_bytes(std::span<const std::uint8_t> bytes) {
        std::ranges::copy(bytes, m_bytes.begin() + static_cast<std::ptrdiff_t>(m_at));
        m_at += bytes.size();
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

// The bytes of weights or entries, which are little-endian in memory as well.
template <class each_T>
auto bytes_of(std::span<each_T> all) {
    using byte_type = std::conditional_t<std::is_const_v<each_T>, const std::uint8_t, std::uint8_t>;
    return std::span(reinterpret_cast<byte_type*>(all.data()), all.size_bytes());
}

void put_graded(byte_writer& out, const graded_tokens& graded) {
    out.put(graded.spam_messages);
    out.put(graded.ham_messages);
    for (const auto& kind : graded.counts)
        out.put_bytes(kind);
}

void put_message(byte_writer& out, const judged_message& message) {
    out.put(message.id);
    out.put(message.time);
    out.put(
        static_cast<std::uint16_t>((message.spam ? is_spam : 0) | (message.what.crossed ? is_crossed : 0)));
    out.put(message.what.memory);
    out.put(message.score);
    out.put(message.learned_score);
    out.put(std::uint32_t{0});
    put_graded(out, message.what.by_base);
    put_graded(out, message.what.by_all);
}

void get_graded(byte_reader& in, graded_tokens& graded) {
    graded.spam_messages = in.get<std::uint16_t>();
    graded.ham_messages = in.get<std::uint16_t>();
    for (auto& kind : graded.counts)
        for (std::uint8_t& count : kind)
            count = in.get<std::uint8_t>();
}

judged_message get_message(byte_reader& in) {
    judged_message message;
    message.id = in.get<std::uint64_t>();
    message.time = in.get<std::uint32_t>();
    const auto marks = in.get<std::uint16_t>();
    message.spam = (marks & is_spam) != 0;
    message.what.crossed = (marks & is_crossed) != 0;
    message.what.memory = in.get<std::int16_t>();
    message.score = in.get<std::int16_t>();
    message.learned_score = in.get<std::int16_t>();
    in.get<std::uint32_t>();
    get_graded(in, message.what.by_base);
    get_graded(in, message.what.by_all);
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
    out.skip_to(messages_check_at + 8);
    out.put(static_cast<std::uint32_t>(state.messages.size()));
    out.put(state.unlearned);
    out.put(state.judged);
    out.put(state.trust);
    out.put(state.memory.bias);
    out.put(state.recent_ham);
    out.put(static_cast<std::uint32_t>(state.ham_scores.size()));
    out.put(state.seen.messages(true));
    out.put(state.seen.messages(false));
    out.skip_to(head_size);
    for (const std::int16_t score : state.ham_scores)
        out.put(score);
    out.skip_to(head_size + tops_size);
    for (std::size_t i = 0; i < feature::learned; ++i)
        out.put(state.weights[i]);
    out.put_bytes(bytes_of(state.memory.weights().all()));
    out.skip_to(head_size + tops_size + weights_size + memory_size);
    out.put_bytes(bytes_of(state.seen.buckets().all()));
    out.skip_to(verdict_messages_at);
    for (const judged_message& message : state.messages)
        put_message(out, message);
    std::vector<std::uint8_t> bytes = out.take();
    seal_verdict(bytes);
    return bytes;
}

void seal_verdict(std::span<std::uint8_t> bytes) {
    const auto check_of = [](std::span<const std::uint8_t> part) {
        word_check check(part.size());
        check.add(part);
        return check.sum();
    };
    store_le(bytes.data() + messages_check_at, check_of(bytes.subspan(fixed_size)));
    store_le(bytes.data() + 8, check_of(bytes.first(fixed_size).subspan(checked_from)));
}

namespace {

bool read_front(checked_input& in, verdict_state& read, std::uint64_t& messages_check, std::size_t& count) {
    std::array<std::uint8_t, head_size - checked_from + tops_size + weights_size> room;
    if (!in.read(room))
        return false;
    byte_reader head(room);
    messages_check = head.get<std::uint64_t>();
    count = head.get<std::uint32_t>();
    read.unlearned = head.get<std::uint32_t>();
    read.judged = head.get<std::uint64_t>();
    read.trust = head.get<double>();
    read.memory.bias = head.get<std::int32_t>();
    read.recent_ham = head.get<std::uint32_t>();
    const std::size_t tops = head.get<std::uint32_t>();
    const auto spam = head.get<std::uint32_t>();
    const auto ham = head.get<std::uint32_t>();
    read.seen.set_messages(spam, ham);
    if (std::max(spam, ham) >= seen_tokens::most_messages || !(read.trust >= 0 && read.trust <= 1) ||
        tops > verdict_state::top_scores || tops > read.recent_ham ||
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

// All places of a table, or the wanted ones.
template <class T, std::size_t places>
bool read_table(checked_input& in, place_table<T, places>& table,
                std::optional<std::vector<std::size_t>> wanted) {
    if (!wanted)
        return in.read(bytes_of(table.make_all()));
    std::ranges::sort(*wanted);
    wanted->erase(std::unique(wanted->begin(), wanted->end()), wanted->end());
    std::array<T, std::bit_floor(16384 / sizeof(T))> room;
    static_assert(places % room.size() == 0);
    typename place_table<T, places>::few few;
    auto next = wanted->begin();
    for (std::size_t start = 0; start < places; start += room.size()) {
        if (!in.read(bytes_of(std::span<T>(room))))
            return false;
        for (; next != wanted->end() && *next < start + room.size(); ++next)
            few.emplace_back(*next, room[*next - start]);
    }
    table.keep(std::move(few));
    return true;
}

// The places of the tokens, if only they are wanted.
std::optional<std::vector<std::size_t>> wanted_places(const verdict_use& use,
                                                      std::size_t place_of(token_key)) {
    if (!use.only)
        return std::nullopt;
    std::vector<std::size_t> wanted(use.only->size());
    std::ranges::transform(*use.only, wanted.begin(), place_of);
    return wanted;
}

bool read_messages(checked_input& in, std::size_t count, std::vector<judged_message>& messages) {
    messages.reserve(count);
    std::array<std::uint8_t, 64 * message_size> room;
    while (messages.size() != count) {
        const std::size_t some = std::min(count - messages.size(), room.size() / message_size);
        if (!in.read(std::span(room).first(some * message_size)))
            return false;
        byte_reader bytes(room);
        for (std::size_t i = 0; i < some; ++i)
            messages.push_back(get_message(bytes));
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
    verdict_state read;
    std::uint64_t messages_check = 0;
    std::size_t count = 0;
    checked_input front(from, fixed_size - checked_from);
    if (!read_front(front, read, messages_check, count) || count > verdict_state::most_messages ||
        size != fixed_size + count * message_size ||
        !read_table(front, read.memory.weights(), wanted_places(use, token_memory::place_of)) ||
        !read_table(front, read.seen.buckets(), wanted_places(use, seen_tokens::bucket_of)) ||
        front.check() != load_le<std::uint64_t>(start.data() + 8))
        return false;
    checked_input messages(from, count * message_size);
    if (use.messages &&
        (!read_messages(messages, count, read.messages) || messages.check() != messages_check))
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
