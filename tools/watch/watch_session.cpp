#include "tools/watch/watch_session.h"

#include <algorithm>
#include <unordered_set>

#include "client/training_schedule.h"
#include "common/file_names.h"
#include "platform/clock.h"
#include "platform/error.h"
#include "platform/file.h"
#include "platform/fnv.h"
#include "tools/mail/mail_source.h"
#include "tools/state/waiting_mail.h"
#include "tools/text.h"

namespace tvr {

namespace {

// Milliseconds.
constexpr std::uint32_t quiet_time = 300;    // without a change, before what has come is read
constexpr std::uint32_t longest_wait = 5000; // for that, since the first change
constexpr std::uint32_t check_pause = 30000; // between two looks whether the folders are still the same
constexpr std::uint32_t search_pause = 1000; // the same while one is missing
constexpr std::uint32_t failure_pause = 10000;
constexpr std::uint32_t engine_pause = 11000; // the client holds back a second start within ten seconds
constexpr std::uint32_t look_pause = 300000;  // between two looks whether a training is due

constexpr std::size_t most_pending = 4096;
constexpr std::size_t chunk_messages = 1024; // the cache is walked once for each chunk
constexpr std::size_t chunk_bytes = std::size_t{4} << 20;

std::uint32_t since(std::uint32_t tick) {
    return platform::tick_count() - tick;
}

std::uint32_t left(std::uint32_t tick, std::uint32_t pause) {
    return pause - std::min(pause, since(tick));
}

const char* name_of(bool spam) {
    return spam ? "spam" : "ham";
}

std::string watch_failure(const std::string& path) {
    const std::uint32_t code = platform::last_error();
    if (code == platform::error::no_system_resources || code == platform::error::too_many_open_files)
        return path + ": can't be watched: the system's limit of watched folders is reached "
                      "(fs.inotify.max_user_watches, max_user_instances)";
    if (code == platform::error::access_denied)
        return path + ": can't be watched: access denied";
    return path + ": can't be watched (error " + std::to_string(code) + ")";
}

std::string memory_path(const training_client& client) {
    return client.working_directory() + names::watch;
}

} // namespace

watch_session::watch_session(std::vector<mail_folder> folders, report told)
    : m_told(std::move(told)), m_cache(m_client.working_directory() + names::transact_path + names::cache),
      m_memory(memory_path(m_client)), m_known(m_client.working_directory()) {
    for (mail_folder& folder : folders) {
        const std::size_t count = folder.parts().size() + (folder.is_maildir() ? 1 : 0);
        m_folders.push_back({.folder = std::move(folder), .numbers = std::vector<int>(count, -1)});
    }
}

std::string watch_session::start(bool all) {
    if (!m_client.status())
        return m_client.status().text;
    if (!m_watch.open())
        return watch_failure("folders");
    for (watched& one : m_folders)
        if (!watch_parts(one))
            return watch_failure(one.folder.path());
    m_checked = platform::tick_count();
    std::vector<std::uint64_t> keys;
    for (const watched& one : m_folders)
        keys.push_back(one.folder.key());
    if (const std::string note = m_memory.load(keys); !note.empty())
        m_told(note, true);
    // What comes from here on is told by events as well.
    read_folders(all);
    raise_if_due();
    return {};
}

std::string watch_session::run() {
    std::vector<platform::folder_change> changes;
    for (;;) {
        changes.clear();
        switch (m_watch.wait(pause(), changes)) {
        case platform::folder_wait::stopped:
            save(); // what isn't learned yet isn't known either: the next run finds it
            return {};
        case platform::folder_wait::failed:
            save();
            return watch_failure("folders");
        case platform::folder_wait::changed:
            note_changes(changes);
            if (!m_pending.empty() &&
                (since(m_first_pending) >= longest_wait || m_pending.size() >= most_pending))
                take_pending(m_pending.size() >= 2 * most_pending);
            break;
        case platform::folder_wait::timed_out:
            take_pending(true);
            break;
        }
        if (since(m_checked) >= (is_missing_any() ? search_pause : check_pause))
            check_folders();
        if (m_try_again && since(m_failed) >= failure_pause) {
            m_try_again = false;
            for (watched& one : m_folders)
                one.unread = true;
        }
        if (std::any_of(m_folders.begin(), m_folders.end(), [](const watched& one) { return one.unread; }))
            read_folders(false);
        if (m_not_reached != 0 && since(m_raised) >= engine_pause)
            hand_over(false);
        if (since(m_looked) >= look_pause)
            raise_if_due();
    }
}

bool watch_session::is_missing_any() const {
    return std::any_of(m_folders.begin(), m_folders.end(), [](const watched& one) { return one.missing; });
}

// How long to wait for the next change at most.
std::uint32_t watch_session::pause() const {
    std::uint32_t most =
        std::min(left(m_checked, is_missing_any() ? search_pause : check_pause), left(m_looked, look_pause));
    if (!m_pending.empty())
        most = std::min(most, quiet_time);
    if (m_try_again)
        most = std::min(most, left(m_failed, failure_pause));
    if (m_not_reached != 0)
        most = std::min(most, left(m_raised, engine_pause));
    return most;
}

// False, with nothing of it watched, unless all parts are. A part that is another folder than before is to be
// listed.
bool watch_session::watch_parts(watched& one) {
    for (std::size_t i = 0; i < one.numbers.size(); ++i) {
        const auto& parts = one.folder.parts();
        const bool is_part = i < parts.size();
        const auto number =
            m_watch.add(platform::from_display_path(is_part ? parts[i] : one.folder.path()), is_part);
        if (!number) {
            const std::uint32_t code = platform::last_error();
            for (int& given : one.numbers)
                if (given >= 0)
                    m_watch.remove(std::exchange(given, -1));
            platform::set_last_error(code);
            return false;
        }
        if (*number == one.numbers[i])
            continue;
        if (one.numbers[i] >= 0)
            m_watch.remove(one.numbers[i]);
        one.numbers[i] = *number;
        one.unread = true;
    }
    return true;
}

// Finds out which folders have gone, have come back, or have been replaced.
void watch_session::check_folders() {
    m_checked = platform::tick_count();
    for (watched& one : m_folders) {
        const bool was_missing = one.missing;
        one.missing = !watch_parts(one);
        if (one.missing && !was_missing) {
            const std::uint32_t code = platform::last_error();
            const bool is_gone =
                code == platform::error::file_not_found || code == platform::error::path_not_found;
            const auto index = static_cast<std::size_t>(&one - m_folders.data());
            std::erase_if(m_pending, [&](const auto& entry) { return entry.first.first == index; });
            m_told((is_gone ? one.folder.path() + ": has gone" : watch_failure(one.folder.path())) +
                       "; waiting until it is back",
                   true);
        } else if (!one.missing && was_missing) {
            m_told(one.folder.path() + ": is back", false);
            one.unread = true;
        }
    }
}

void watch_session::note_changes(const std::vector<platform::folder_change>& changes) {
    for (const platform::folder_change& change : changes) {
        if (change.what == platform::folder_event::overflow) {
            m_told("more changes than the system could tell of: the folders are read again", false);
            m_pending.clear();
            for (watched& one : m_folders)
                one.unread = true;
            continue;
        }
        for (std::size_t index = 0; index < m_folders.size(); ++index) {
            auto& numbers = m_folders[index].numbers;
            const auto part = std::find(numbers.begin(), numbers.end(), change.folder);
            if (part == numbers.end())
                continue;
            if (change.what == platform::folder_event::lost) {
                *part = -1;
                check_folders();
            } else {
                note_change(index, static_cast<std::size_t>(part - numbers.begin()), change);
            }
            break;
        }
    }
}

void watch_session::note_change(std::size_t index, std::size_t part, const platform::folder_change& change) {
    const mail_folder& folder = m_folders[index].folder;
    if (!mail_folder::is_message_name(change.name))
        return;
    if (m_pending.empty())
        m_first_pending = platform::tick_count();
    const auto [at, is_new] = m_pending.try_emplace({index, folder.name_key(change.name)});
    pending_file& file = at->second;
    if (change.what == platform::folder_event::gone) {
        // Not the message itself, if it has another name by now.
        if (!is_new && !file.gone && (file.name != change.name || file.part != folder.parts()[part]))
            return;
        file = {.part = folder.parts()[part], .name = change.name, .gone = true};
        return;
    }
    const bool same = !is_new && !file.gone && file.name == change.name;
    file = {.part = folder.parts()[part],
            .name = change.name,
            .completed = change.what == platform::folder_event::completed || (same && file.completed)};
}

// Without quiet, a name that went may be about to come back: a rename is told in two parts.
void watch_session::take_pending(bool is_quiet) {
    std::vector<arrival> arrivals;
    std::erase_if(m_pending, [&](const auto& one) {
        const auto& [key, file] = one;
        const watched& in = m_folders[key.first];
        if (file.gone) {
            if (is_quiet)
                m_memory.drop_file(in.folder.key(), key.second);
            return is_quiet;
        }
        if (auto found = in.folder.look_at(file.part, file.name)) {
            found->certain = file.completed || in.folder.is_maildir();
            arrivals.push_back({key.first, std::move(*found)});
        }
        return true;
    });
    m_first_pending = platform::tick_count();
    take(arrivals);
    save();
}

// Learns what lies in the folders that are to be listed and isn't known. Of a folder that no run has seen
// before, everything becomes known instead. `all`: known or not.
void watch_session::read_folders(bool all) {
    std::vector<arrival> arrivals;
    bool has_new = false;
    for (std::size_t index = 0; index < m_folders.size(); ++index) {
        watched& one = m_folders[index];
        if (!one.unread || one.missing)
            continue;
        const auto files = one.folder.list();
        if (!files) {
            check_folders();
            if (!one.missing)
                try_later(one.folder.path() + ": can't be read");
            continue;
        }
        one.unread = false;
        const std::uint64_t key = one.folder.key();
        const bool is_new = !m_memory.knows_folder(key);
        has_new = has_new || is_new;
        m_memory.add_folder(key);
        std::unordered_set<std::uint64_t> present;
        for (const folder_file& file : *files) {
            present.insert(file.name);
            if (!all && is_new)
                m_memory.add_file(key, file.name, file.stamp);
            else if (all || !m_memory.knows_file(key, file.name, file.stamp))
                arrivals.push_back({index, file});
        }
        // An empty folder may be one whose disk isn't there: what was in it stays known.
        if (!present.empty())
            for (const std::uint64_t name : m_memory.files(key))
                if (!present.contains(name))
                    m_memory.drop_file(key, name);
        if (!all && is_new && !files->empty())
            m_told(one.folder.path() + ": not learned, as they are there already: " + grouped(files->size()) +
                       " (--all learns them)",
                   false);
    }
    // A folder with half of its files would give the rest out as new.
    if (const std::string why = has_new ? m_memory.write_anew() : m_memory.save(); !why.empty())
        try_later(why);
    if (all)
        for (const arrival& mail : arrivals) // known ones are looked at again, too
            m_memory.drop_file(m_folders[mail.folder].folder.key(), mail.file.name);
    take(arrivals);
    save();
}

// Learns messages in the order given, in chunks of one verdict. What is known is passed over.
void watch_session::take(const std::vector<arrival>& arrivals) {
    if (!arrivals.empty())
        m_known.load();
    chunk mails;
    for (const arrival& mail : arrivals) {
        if (platform::folder_watch::stop_requested())
            break; // the next run sees the rest
        const mail_folder& folder = m_folders[mail.folder].folder;
        if (m_memory.knows_file(folder.key(), mail.file.name, mail.file.stamp))
            continue;
        if (folder.spam() != mails.spam || mails.candidates.size() >= chunk_messages ||
            mails.bytes >= chunk_bytes) {
            learn(mails);
            mails = {};
            mails.spam = folder.spam();
        }
        if (read_mail(mail, mails))
            mails.files.push_back(mail);
    }
    learn(mails);
}

// Reads the messages of a file. False if the file isn't to be known afterwards: it can't be read now.
bool watch_session::read_mail(const arrival& mail, chunk& into) {
    const std::string& path = mail.file.path;
    const auto written = platform::is_being_written(platform::from_display_path(path));
    if (written.value_or(!mail.file.certain))
        return false; // its end is told when it comes
    std::vector<std::string> skipped;
    mail_source source({.spam = {path}}, [&](const passed_mail& passed) {
        if (passed.what != passed_mail::kind::thrown_away)
            skipped.push_back(passed.name + ": " + passed.reason);
    });
    mail_item item;
    bool has_mail = false;
    while (source.next(item)) {
        has_mail = true;
        into.bytes += item.raw.size();
        m_cut.tokenize(item.raw);
        const std::string& id = m_cut.facts().msid;
        const std::uint64_t message = fnv_64(id);
        const auto learned = m_memory.learned(message);
        if (learned == into.spam || into.candidates.contains(id))
            continue;
        candidate found;
        found.message = message;
        found.is_known = !learned && m_known.is_learned(id, into.spam, false);
        found.was_learned = learned || (!found.is_known && m_known.find(id).as(!into.spam));
        // The user's own hand, when the message was moved against the verdict before.
        found.record.add(describe(m_cut.facts(), item.size, into.spam, found.was_learned), m_cut.tokens());
        into.candidates.emplace(id, std::move(found));
    }
    if (!has_mail && !m_folders[mail.folder].folder.look_at(path.substr(0, path.rfind('/')),
                                                            path.substr(path.rfind('/') + 1)))
        return false; // gone meanwhile
    for (const std::string& line : skipped)
        m_told(line + "; skipped", true);
    return has_mail || platform::peek_file(platform::from_display_path(path), 0, nullptr, 0).has_value();
}

// Corrects what waits in the cache, appends the rest in one piece, and only then notes it all.
void watch_session::learn(chunk& mails) {
    std::size_t fresh = 0;
    std::size_t remarked = 0;
    std::size_t trained = 0; // that were learned with the other verdict
    std::size_t known = 0;   // that were learned otherwise, or before the memory begins
    for (const auto& [id, mail] : mails.candidates)
        known += mail.is_known ? 1 : 0;
    if (mails.candidates.size() != known) {
        wanted_verdicts wanted;
        for (const auto& [id, mail] : mails.candidates)
            if (!mail.is_known)
                wanted.try_emplace(id).first->second.spam = mails.spam;
        if (const std::string why = correct_waiting(m_cache, wanted); !why.empty())
            return try_later(why);
        record_batch batch;
        for (const auto& [id, mail] : mails.candidates) {
            if (mail.is_known)
                continue;
            const waiting_verdict& found = wanted.find(id)->second;
            const bool is_remarked = found.remarked != 0 || found.deleted != 0;
            if (found.waiting == 0 && !batch.add(mail.record.bytes()))
                return try_later(id + ": too large");
            if (is_remarked)
                ++remarked;
            else if (found.waiting == 0)
                ++(mail.was_learned ? trained : fresh);
        }
        if (const ipc_status status = m_client.append(batch); !status)
            return try_later(status.text);
        if (batch.count() != 0 || remarked != 0)
            hand_over(remarked + trained != 0);
    }
    for (const auto& [id, mail] : mails.candidates) {
        m_memory.set_learned(mail.message, mails.spam);
        if (!mail.is_known)
            m_known.note(id, mails.spam);
    }
    for (const arrival& mail : mails.files)
        m_memory.add_file(m_folders[mail.folder].folder.key(), mail.file.name, mail.file.stamp);
    save();
    if (!mails.candidates.empty() && !m_try_again)
        m_failure.clear();
    if (fresh != 0)
        m_told("learned " + grouped(fresh) + " as " + name_of(mails.spam), false);
    if (known != 0)
        m_told("passed over " + grouped(known) + ", known as " + name_of(mails.spam) + " already", false);
    if (remarked != 0)
        m_told("re-marked " + grouped(remarked) + " as " + name_of(mails.spam) + ", while waiting", false);
    if (trained != 0)
        m_told("trained " + grouped(trained) + " as " + name_of(mails.spam) + ", learned otherwise before",
               false);
}

void watch_session::hand_over(bool corrected) {
    m_raised = platform::tick_count();
    const ipc_status status = m_client.hand_over(corrected);
    // One that was started just now isn't found yet.
    if (status.error != ipc_error::no_engine)
        m_not_reached = 0;
    else if (++m_not_reached == 2)
        m_told(status.text + "; what was learned waits in the cache", true);
}

// What waits too long is trained though nothing comes.
void watch_session::raise_if_due() {
    m_looked = platform::tick_count();
    if (training_schedule(m_client.working_directory()).is_due(false))
        hand_over(false);
}

void watch_session::save() {
    if (const std::string why = m_memory.save(); !why.empty())
        try_later(why);
}

void watch_session::try_later(const std::string& why) {
    m_failed = platform::tick_count();
    m_try_again = true;
    if (why != m_failure)
        m_told(why + "; trying again", true);
    m_failure = why;
}

} // namespace tvr
