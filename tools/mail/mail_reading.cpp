#include "tools/mail/mail_reading.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <thread>
#include <utility>

#include "platform/folder_watch.h"
#include "tools/text.h"

namespace tvr {

void pass_log::add(const passed_mail& mail, progress* shown) {
    ++m_counts[static_cast<std::size_t>(mail.what)];
    if (mail.what == passed_mail::kind::thrown_away && !m_verbose)
        return;
    if (!m_verbose && ++m_reasons[mail.reason] > most_named) {
        ++m_not_named[{mail.reason, mail.place}];
        return;
    }
    if (shown)
        shown->clear();
    const bool is_skipped = mail.what == passed_mail::kind::skipped || mail.what == passed_mail::kind::lost;
    std::fprintf(stderr, "tvrctl: %s: %s%s\n", printable(mail.name).c_str(), printable(mail.reason).c_str(),
                 is_skipped ? "; skipped" : "");
}

void pass_log::sum_up() {
    std::size_t places = 0;
    std::uint64_t others = 0;
    for (const auto& [what, number] : m_not_named)
        if (++places <= most_places)
            std::fprintf(stderr, "tvrctl: %s: %s more: %s\n", printable(what.second).c_str(),
                         grouped(number).c_str(), printable(what.first).c_str());
        else
            others += number;
    if (others != 0)
        std::fprintf(stderr, "tvrctl: %s more in other places\n", grouped(others).c_str());
    if (!m_not_named.empty())
        std::fprintf(stderr, "tvrctl: --verbose names them all\n");
    m_not_named.clear();
}

mail_reading::mail_reading(const mail_paths& paths, std::string what, const reading_options& options)
    : m_progress(std::move(what), options.quiet), m_passed(options.verbose),
      m_source(paths, [this](const passed_mail& mail) { m_passed.add(mail, &m_progress); }) {}

void mail_reading::run(const std::function<std::unique_ptr<mail_worker>()>& make_worker, unsigned threads) {
    const unsigned count = std::clamp(threads != 0 ? threads : std::thread::hardware_concurrency(), 1U, 64U);
    std::vector<std::unique_ptr<mail_worker>> workers;
    for (unsigned i = 0; i < count; ++i)
        workers.push_back(make_worker());
    std::vector<std::thread> running;
    running.reserve(count);
    for (unsigned i = 1; i < count; ++i)
        running.emplace_back([this, &workers, i] { work(*workers[i]); });
    work(*workers[0]);
    for (std::thread& thread : running)
        thread.join();
    if (m_messages != 0 && !m_stopped)
        show(m_source.total() + 1);
    m_progress.clear();
    m_passed.sum_up();
}

// All is done only when the last message is committed, not when it has been read.
void mail_reading::show(std::uint64_t done) {
    m_progress.show(done, m_source.total() + 1, grouped(m_messages) + " messages");
}

bool mail_reading::take_chunk(chunk& next) {
    const std::lock_guard lock(m_source_mutex);
    next.filled = 0;
    for (std::size_t bytes = 0; next.filled < chunk_messages && bytes < chunk_bytes && !m_stopped;
         ++next.filled) {
        if (!m_source.next(next.items[next.filled]))
            break;
        bytes += next.items[next.filled].raw.size();
    }
    next.turn = m_chunks;
    m_chunks += next.filled != 0 ? 1 : 0;
    show(m_source.done());
    return next.filled != 0;
}

void mail_reading::work(mail_worker& worker) {
    tokenizer cut;
    chunk mails;
    while (take_chunk(mails)) {
        worker.begin();
        for (std::size_t i = 0; i < mails.filled; ++i) {
            if (!worker.wants(mails.items[i]))
                continue;
            cut.tokenize(mails.items[i].raw);
            worker.take(mails.items[i], cut);
        }
        std::unique_lock order(m_order_mutex);
        m_order.wait(order, [&] { return m_turn == mails.turn; });
        const bool goes_on = worker.commit();
        ++m_turn;
        m_order.notify_all();
        const std::lock_guard lock(m_source_mutex);
        m_messages += mails.filled;
        m_stopped = m_stopped || !goes_on || platform::folder_watch::stop_requested();
    }
}

void verdict_conflicts::add(std::uint64_t key, bool spam, const std::string& name) {
    const auto [found, is_new] = m_given.try_emplace(key, spam, name);
    const auto& [other, other_name] = found->second;
    if (is_new || other == spam || ++m_count != 1)
        return;
    m_first = spam ? other_name + ": given as good mail, and as spam in " + name
                   : name + ": given as good mail, and as spam in " + other_name;
}

std::string verdict_conflicts::text() const {
    return m_count > 1 ? m_first + "; and " + grouped(m_count - 1) + " more" : m_first;
}

std::string learning_conflict(const mail_paths& paths) {
    if (std::string why = path_conflict(paths); !why.empty())
        return why;
    mail_paths files = paths;
    const auto is_passing = [](const std::string& path) {
        std::error_code error;
        const auto status = std::filesystem::status(path, error);
        return path == "-" || std::filesystem::is_other(status);
    };
    std::erase_if(files.spam, is_passing);
    std::erase_if(files.ham, is_passing);
    if (files.spam.empty() || files.ham.empty())
        return {};
    verdict_conflicts conflicts;
    mail_source source(files, [](const passed_mail&) {});
    mail_item mail;
    while (source.next(mail))
        conflicts.add(mail_key(mail.raw), mail.spam, mail.name);
    return conflicts.text();
}

} // namespace tvr
