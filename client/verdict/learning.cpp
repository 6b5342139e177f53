#include "client/verdict/learning.h"

#include <algorithm>
#include <array>
#include <functional>
#include <numeric>
#include <unordered_map>

#include "client/verdict/cross_grading.h"
#include "client/verdict/judge.h"
#include "common/bytes.h"
#include "common/file_names.h"
#include "dict/dictbase.h"
#include "dict/message_record.h"
#include "platform/error.h"
#include "platform/file.h"

namespace tvr {

namespace {

// A base made of fewer messages of a half than this doesn't grade mail that comes with enough others: these
// grade each other.
constexpr std::uint32_t young = 50;
constexpr std::size_t enough_to_cross = 20; // messages of each half
constexpr std::size_t most_crossed = 600;   // messages

// The memory learns so many messages in turn, several times over; what it says of them is asked before.
constexpr std::size_t lot = 250;
constexpr unsigned rounds = 3;

constexpr std::size_t record_head = 32; // bytes of a record in front of its message ID

// Learning anew pays once a hundredth of the messages is new, and needs a few to begin with.
bool is_due(const verdict_state& state) {
    return state.unlearned >= std::max<std::size_t>(8, state.messages.size() / 100);
}

// An order that has nothing to do with the verdicts or the times.
std::vector<std::size_t> shuffled(std::size_t count, const std::function<std::uint64_t(std::size_t)>& id) {
    std::vector<std::size_t> order(count);
    std::iota(order.begin(), order.end(), std::size_t{0});
    const auto key = [&](std::size_t i) { return id(i) * 0x9E3779B97F4A7C15ULL; };
    std::sort(order.begin(), order.end(),
              [&](std::size_t a, std::size_t b) { return key(a) != key(b) ? key(a) < key(b) : a < b; });
    return order;
}

} // namespace

verdict_learning::verdict_learning(std::string_view working_directory)
    : m_working(working_directory), m_path(verdict_path(working_directory)), m_known(working_directory) {}

void verdict_learning::prepare() {
    if (m_looked)
        return;
    m_looked = true;
    m_known.load();
    m_graded = m_base.load(m_working + names::base_folder + names::base) &&
               m_base.header().spam_messages != 0 && m_base.header().nonspam_messages != 0;
}

// Who hands over waits for that alone: the rest is done while the engine trains.
void verdict_learning::take(std::vector<record_batch> batches) {
    for (record_batch& batch : batches) {
        m_bytes += batch.bytes().size();
        m_taken.push_back(std::move(batch));
    }
    if (m_bytes > most_bytes)
        cut_records();
    if (m_tokens.size() > most_tokens)
        m_remark = learn_pending();
}

// record_batch takes nothing but whole records.
void verdict_learning::cut_records() {
    for (const record_batch& batch : m_taken) {
        const auto bytes = batch.bytes();
        for (std::size_t at = 0; at < bytes.size(); at += load_u32(bytes.data() + at + 8)) {
            const std::uint8_t* const record = bytes.data() + at;
            const std::size_t id_size = record[record_head];
            const std::size_t table = record_head + 1 + id_size;
            add({reinterpret_cast<const char*>(record) + record_head + 1, id_size},
                (load_u32(record + 12) & message_flag::spam) != 0, load_u32(record + 20),
                bytes.subspan(at + table + 8, load_u32(record + table + 4)));
        }
    }
    m_taken.clear();
    m_bytes = 0;
}

void verdict_learning::add(std::string_view msid, bool spam, std::uint32_t time,
                           std::span<const std::uint8_t> entries) {
    taken_message added;
    added.id = id_of(msid);
    added.time = time;
    added.spam = spam;
    added.known = m_known.find(msid);
    m_known.note(msid, spam);
    added.first = m_tokens.size();
    for (std::size_t at = 0; at < entries.size();) {
        const std::size_t length = entries[at];
        const std::string_view token(reinterpret_cast<const char*>(entries.data()) + at + 1, length);
        const token_key key = key_of(token);
        m_tokens.push_back(key);
        m_classes.push_back(
            static_cast<std::uint8_t>(m_graded ? class_of(m_base.grade(token)) : unknown_class));
        at += length + 5;
    }
    added.end = m_tokens.size();
    m_messages.push_back(added);
}

void verdict_learning::forget() {
    m_taken.clear();
    m_bytes = 0;
    m_messages.clear();
    m_tokens.clear();
    m_classes.clear();
    m_remark.clear();
    m_looked = false;
}

std::span<const token_key> verdict_learning::tokens_of(const taken_message& of) const {
    return std::span(m_tokens).subspan(of.first, of.end - of.first);
}

std::string verdict_learning::finish() {
    cut_records();
    std::string remark = m_messages.empty() ? std::string() : learn_pending();
    if (remark.empty())
        remark.swap(m_remark);
    m_remark.clear();
    m_looked = false; // the engine makes a new base meanwhile
    return remark;
}

std::string verdict_learning::learn_pending() {
    const std::string shown = platform::display_path(m_path);
    std::string remark;
    file_lock lock(verdict_lock_path(m_working));
    if (!lock.acquire_within(verdict_patience)) {
        remark = shown + ": in use by another program; the verdict learns nothing from this mail";
    } else {
        verdict_state state;
        const verdict_file_result found = load_verdict(m_path, state);
        if (found == verdict_file_result::damaged) {
            const std::string bad = m_working + "verdict.bad";
            const bool aside = platform::replace_file(m_path, bad);
            remark = shown + ": damaged, or of another version" +
                     (aside ? ", and set aside as verdict.bad" : "") + "; the verdict learns from the start";
        }
        if (found == verdict_file_result::failed) {
            remark = shown + ": can't be read; the verdict learns nothing from this mail";
        } else {
            judge_pending(state);
            if (is_due(state))
                learn(state);
            if (!save_verdict(m_path, state))
                remark = shown + ": can't be written (error " + std::to_string(platform::last_error()) +
                         "); the verdict learns nothing from this mail";
        }
        lock.release();
    }
    m_messages.clear();
    m_tokens.clear();
    m_classes.clear();
    return remark;
}

// Without a grown base, a part of the messages grade each other, and only they are kept.
void verdict_learning::judge_pending(verdict_state& state) {
    std::unordered_map<std::uint64_t, judged_message*> kept;
    for (judged_message& old : state.messages)
        kept[old.id] = &old;
    // What counts anew; corrections take effect on what is kept, and on the memory.
    std::vector<const taken_message*> fresh;
    for (const taken_message& one : m_messages) {
        const auto found = kept.find(one.id);
        if (found != kept.end() && found->second && found->second->spam != one.spam) {
            found->second->spam = one.spam;
            ++state.unlearned;
        } else if (found != kept.end() || one.known.as(one.spam)) {
            continue;
        }
        if (found == kept.end() && !one.known) {
            fresh.push_back(&one);
            kept[one.id] = nullptr; // a second one in the same mail doesn't count
        } else {
            state.memory.learn(tokens_of(one), one.spam);
            state.seen.correct(tokens_of(one), one.spam);
        }
    }
    std::array<std::size_t, 2> halves{};
    for (const taken_message* one : fresh)
        ++halves[one->spam ? 1 : 0];
    const bool is_young =
        !m_graded || m_base.header().spam_messages < young || m_base.header().nonspam_messages < young;
    const bool crosses = is_young && std::min(halves[0], halves[1]) >= enough_to_cross;

    std::vector<std::size_t> order = shuffled(fresh.size(), [&](std::size_t i) { return fresh[i]->id; });
    // Those that grade each other come last, when the memory has learned the others.
    const std::size_t crossed = crosses ? std::min(order.size(), most_crossed) : 0;
    cross_grading grades;
    for (std::size_t i = order.size() - crossed; i < order.size(); ++i)
        grades.add(tokens_of(*fresh[order[i]]), fresh[order[i]]->spam, i % cross_grading::folds);

    const feature_weights weights = weights_of(state);
    std::vector<judged_message> made;
    for (std::size_t start = 0; start < order.size(); start += lot) {
        const std::size_t end = std::min(start + lot, order.size());
        for (std::size_t i = start; i < end; ++i) {
            const taken_message& one = *fresh[order[i]];
            evidence what;
            if (i >= order.size() - crossed) {
                const std::size_t fold = i % cross_grading::folds;
                evidence_sum sum(state.memory, state.seen, grades.messages(fold), true);
                for (const token_key key : tokens_of(one))
                    sum.add(key, class_of(grades.grade(key, fold)));
                what = sum.finish();
            } else if (!crosses && m_graded) {
                evidence_sum sum(
                    state.memory, state.seen,
                    {.spam = m_base.header().spam_messages, .ham = m_base.header().nonspam_messages});
                for (std::size_t token = one.first; token < one.end; ++token)
                    sum.add(m_tokens[token], m_classes[token]);
                what = sum.finish();
            } else {
                continue; // nothing to score it by
            }
            made.push_back({.id = one.id,
                            .time = one.time,
                            .spam = one.spam,
                            .what = what,
                            .score = pack_score(logit_of(what, weights)),
                            .learned_score = pack_score(logit_of(what, state.weights))});
        }
        for (unsigned round = 0; round < rounds; ++round)
            for (std::size_t i = start; i < end; ++i)
                state.memory.learn(tokens_of(*fresh[order[i]]), fresh[order[i]]->spam);
        for (std::size_t i = start; i < end; ++i)
            state.seen.add(tokens_of(*fresh[order[i]]), fresh[order[i]]->spam);
    }
    state.judged += fresh.size();
    keep(state, made);
}

void verdict_learning::keep(verdict_state& state, std::vector<judged_message>& made) const {
    std::stable_sort(made.begin(), made.end(),
                     [](const judged_message& a, const judged_message& b) { return a.time < b.time; });
    state.messages.insert(state.messages.end(), made.begin(), made.end());
    state.unlearned += static_cast<std::uint32_t>(made.size());
    forget_messages(state);
}

} // namespace tvr
