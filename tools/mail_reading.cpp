#include "tools/mail_reading.h"

#include <algorithm>
#include <cstdio>
#include <thread>
#include <utility>

#include "tools/text.h"

namespace tvr {

mail_reading::mail_reading(const std::vector<std::string>& spam, const std::vector<std::string>& ham,
                           std::string what, bool quiet)
    : m_progress(std::move(what), quiet),
      m_source([this](const std::string& name, const std::string& why) { report_skipped(name, why); }) {
    for (const std::string& path : spam)
        m_source.add(path, true);
    for (const std::string& path : ham)
        m_source.add(path, false);
}

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
}

void mail_reading::report_skipped(const std::string& name, const std::string& why) {
    ++m_skipped;
    m_progress.clear();
    std::fprintf(stderr, "tvrctl: %s: %s; skipped\n", name.c_str(), why.c_str());
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
        m_stopped = m_stopped || !goes_on;
    }
}

} // namespace tvr
