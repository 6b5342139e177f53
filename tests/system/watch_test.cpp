// tvrctl watch over real folders, told by the records in the cache.

#include <cstdio>
#include <fstream>
#include <memory>
#include <signal.h>

#include "common/bytes.h"
#include "support/formats.h"
#include "support/test.h"
#include "system/engine_root.h"

namespace tvr {
namespace {

namespace fs = std::filesystem;

// A Maildir with a folder for spam, a plain folder for ham, and a process that watches them.
class watch_test : public testing::Test {
protected:
    watch_test() {
        for (const char* folder : {"Maildir", "Maildir/.Spam"})
            for (const char* part : {"new", "cur", "tmp"})
                fs::create_directories(m_root.path() / folder / part);
        fs::create_directories(m_plain);
        schedule("train corrections=0"); // what waits is to stay until it has been looked at
    }
    void schedule(const std::string& line) {
        fs::create_directories(m_memory.parent_path());
        write_file(m_memory.parent_path() / "tvrctl.ini", "[Training]\n" + line + "\n");
    }
    ~watch_test() override {
        // Not in the middle: what is learned and the start of an engine for it belong together.
        if (m_process)
            stop();
        // That one may not be there yet.
        if (fs::exists(m_root.transact() / "autotrain.bys"))
            engine_root::wait_for_start();
    }

    void start(const std::string& option = {}) {
        fs::remove(m_out);
        m_process = start_tvrctl("watch " + m_maildir.string() + " " + m_spam.string() + " --ham " +
                                 m_plain.string() + " " + option + " >" + m_out.string() + " 2>&1");
        wait_for_line("watching"); // what is there has been seen by then
    }
    void wait_for_line(const std::string& text) {
        engine_root::wait_for(text.c_str(), [&] { return holds(read_file(m_out), text); });
    }
    int stop() {
        send(SIGTERM);
        send(SIGCONT);
        const int code = m_process->join();
        m_process.reset();
        return code;
    }
    void send(int signal) const { kill(static_cast<pid_t>(m_process->id()), signal); }

    static std::string mail(const std::string& id) {
        return "From: a@b.example\nTo: c@d.example\nSubject: about " + id + "\nMessage-ID: <" + id +
               "@x>\nDate: Thu, 22 Aug 2002 18:26:25 +0000\n\nWords of " + id + ".\n";
    }
    static void deliver(const fs::path& maildir, const std::string& id) {
        write_file(maildir / "tmp" / id, mail(id));
        fs::rename(maildir / "tmp" / id, maildir / "new" / id);
    }

    // The records in the cache, as "id flags", in their order.
    std::string records() const {
        const std::string cache = read_file(m_root.transact() / "autotrain.bys");
        std::string text;
        std::size_t end = std::min<std::size_t>(4, cache.size());
        for (const std::string& record : tvr::records_of(cache)) {
            const std::string id = record.substr(33, static_cast<std::uint8_t>(record[32]));
            text += id.substr(1, id.find('@') - 1) + " " + std::to_string(word_at(record, 12)) + ", ";
            end += record.size();
        }
        return text + (end == cache.size() ? "" : "damaged");
    }
    void expect_records(const std::string& wanted) {
        try {
            engine_root::wait_for("the records", [&] { return records() == wanted; });
        } catch (const std::exception&) {
            FAIL() << "wanted " << wanted << "\nfound  " << records() << "\n" << read_file(m_out);
        }
    }

    engine_root m_root;
    fs::path m_maildir = m_root.path() / "Maildir";
    fs::path m_spam = m_maildir / ".Spam";
    fs::path m_plain = m_root.path() / "plain";
    fs::path m_out = m_root.path() / "watch.out";
    fs::path m_memory = m_root.base().parent_path() / "watch.bin";
    std::optional<child_process> m_process;
};

// Flags: 1 deleted, 2 spam, 4 by the user's hand, 8 re-marked.

TEST_F(watch_test, mail_is_learned_once_and_corrected_while_it_waits) {
    deliver(m_maildir, "old");
    start();
    deliver(m_maildir, "a");
    expect_records("a 0, ");
    // By a link, as some programs deliver.
    write_file(m_spam / "tmp/b", mail("b"));
    fs::create_hard_link(m_spam / "tmp/b", m_spam / "new/b");
    fs::remove(m_spam / "tmp/b");
    expect_records("a 0, b 2, ");

    // Read, flagged, a copy, names that are no messages: nothing new.
    fs::rename(m_maildir / "new/a", m_maildir / "cur/a:2,");
    fs::rename(m_maildir / "new/old", m_maildir / "cur/old:2,S");
    fs::rename(m_maildir / "cur/a:2,", m_maildir / "cur/a:2,S");
    write_file(m_maildir / "tmp/half", mail("half"));
    write_file(m_plain / ".hidden", mail("hidden"));
    write_file(m_plain / "copy", mail("a"));
    write_file(m_plain / "c", mail("c"));
    expect_records("a 0, b 2, c 0, ");

    // Ham becomes spam in place; the mark of spam stays on a record, which gives way to another.
    fs::rename(m_maildir / "cur/a:2,S", m_spam / "cur/a:2,S");
    expect_records("a 10, b 2, c 0, ");
    fs::rename(m_spam / "new/b", m_maildir / "cur/b:2,S");
    expect_records("a 10, b 3, c 0, b 4, ");
    // And back.
    fs::rename(m_maildir / "cur/b:2,S", m_spam / "cur/b:2,S");
    expect_records("a 10, b 3, c 0, b 6, ");
    EXPECT_EQ(stop(), 0);
    EXPECT_EQ(records(), "a 10, b 3, c 0, b 6, ");
    EXPECT_NE(engine_root::process(), 0U); // started on demand, and left alone
}

TEST_F(watch_test, what_came_meanwhile_is_learned_at_the_next_start) {
    deliver(m_maildir, "old");
    start();
    deliver(m_maildir, "a");
    write_file(m_plain / "p", mail("p"));
    expect_records("a 0, p 0, ");
    ASSERT_EQ(stop(), 0);
    fs::rename(m_maildir / "new/old", m_maildir / "cur/old:2,S");
    fs::rename(m_maildir / "new/a", m_spam / "cur/a:2,S");
    deliver(m_spam, "b");
    start();
    expect_records("a 10, p 0, b 2, ");
    // At once, too, and whatever state its memory is in: a death in the middle leaves half an entry.
    m_process.reset();
    std::ofstream(m_memory, std::ios::binary | std::ios::app) << "half";
    deliver(m_spam, "c");
    start();
    expect_records("a 10, p 0, b 2, c 2, ");
    ASSERT_EQ(stop(), 0);
    start("--all");
    expect_records("a 10, p 0, b 2, c 2, old 0, ");
}

TEST_F(watch_test, what_is_folded_in_is_trained_into_the_other_half) {
    start();
    for (const char* id : {"a", "b", "c"})
        deliver(m_maildir, id);
    for (const char* id : {"d", "e"})
        deliver(m_spam, id);
    engine_root::wait_for("five records", [&] {
        return load_u32(read_file(m_root.transact() / "autotrain.bys").append(4, '\0').data()) == 5;
    });
    m_root.force();
    engine_root::wait_for("the base", [&] { return m_root.messages() == 5; });
    fs::rename(m_maildir / "new/b", m_spam / "cur/b:2,S");
    expect_records("b 6, ");
    wait_for_line("trained 1 as spam");
    // What the halves know is no news to a watch without memory; what is due is trained.
    ASSERT_EQ(stop(), 0);
    fs::remove(m_memory);
    schedule("train at messages=2");
    start("--all");
    wait_for_line("passed over");
    deliver(m_spam, "f");
    engine_root::wait_for("a training by itself", [&] { return m_root.messages() == 7; });
}

TEST_F(watch_test, a_queue_that_overflows_is_no_loss) {
    unsigned events = 0;
    std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> events;
    if (events == 0 || events > 100'000)
        GTEST_SKIP() << "the queue can't be filled";
    start();
    send(SIGSTOP);
    // Created, closed and deleted: three events each, of two names by turns, so that no two are merged.
    for (unsigned i = 0; i < events / 3 + 10; ++i) {
        const fs::path name = m_maildir / "new" / (i % 2 ? "x" : "y");
        std::ofstream(name).close();
        fs::remove(name);
    }
    deliver(m_spam, "a");
    send(SIGCONT);
    expect_records("a 2, ");
    wait_for_line("read again");
}

TEST_F(watch_test, a_folder_goes_and_comes_back) {
    deliver(m_spam, "old");
    start();
    for (const fs::path& folder : {m_spam, m_plain}) {
        const fs::path away = m_root.path() / "away";
        fs::rename(folder, away);
        wait_for_line(folder.string() + ": has gone");
        write_file(away / (folder == m_spam ? "new/a" : "b"), mail(folder == m_spam ? "a" : "b"));
        fs::rename(away, folder);
        wait_for_line(folder.string() + ": is back");
    }
    expect_records("a 2, b 0, ");
    deliver(m_spam, "c");
    expect_records("a 2, b 0, c 2, ");
}

TEST_F(watch_test, a_file_is_read_when_it_is_written_to_its_end) {
    // Not for the process that is started meanwhile.
    const std::unique_ptr<FILE, int (*)(FILE*)> early(std::fopen((m_plain / "early").c_str(), "we"),
                                                      [](FILE*) { return 0; });
    ASSERT_TRUE(early);
    std::fputs(mail("early").c_str(), early.get());
    std::fflush(early.get());
    start();
    std::ofstream late(m_plain / "late");
    late << mail("late").substr(0, 60) << std::flush;
    deliver(m_spam, "a");
    expect_records("a 2, ");
    late << mail("late").substr(60);
    late.close();
    expect_records("a 2, late 0, ");
    std::fputs("It was there before, but has changed since.\n", early.get());
    std::fclose(early.get());
    expect_records("a 2, late 0, early 0, ");
}

TEST_F(watch_test, wrong_use_is_told) {
    const std::string plain = m_plain.string();
    tvrctl("watch", 2);
    tvrctl("watch " + plain, 2, "use --spam or --ham");
    tvrctl("watch --spam " + plain + " --ham " + plain + "/.", 2);
    tvrctl("watch --spam /absent", 2);
    start();
    tvrctl("watch " + m_spam.string(), 3); // a second one
}

} // namespace
} // namespace tvr
