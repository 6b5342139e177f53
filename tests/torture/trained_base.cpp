#include "torture/trained_base.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <gtest/gtest.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

#include "client/verdict/verdict_file.h"
#include "support/file_bytes.h"

namespace tvr::torture {

namespace fs = std::filesystem;

namespace {

// The folder itself stays, since it may be a disk of its own.
void clear(const fs::path& folder) {
    fs::create_directory(folder);
    for (const auto& entry : fs::directory_iterator(folder))
        fs::remove_all(entry);
}

void copy_tree(const fs::path& from, const fs::path& to) {
    clear(to);
    fs::copy(from, to, fs::copy_options::recursive);
}

// By which the engine finds out whether it may write to a folder.
bool is_probe(const std::string& path) {
    const std::string name = path.substr(path.rfind('/') + 1);
    return name.starts_with("tst") && name.ends_with(".tmp");
}

void drop_leftovers(files& content) {
    const auto is_unmarked = [&](const std::string& path) {
        return path.starts_with(transact_folder + "000") &&
               !content.contains(path.substr(0, transact_folder.size() + 5) + "prepared.txt");
    };
    std::erase_if(content, [&](const auto& file) {
        return file.first == transact_folder + "lock.bin" || file.first.starts_with("tmp/") ||
               is_probe(file.first) || is_unmarked(file.first);
    });
}

} // namespace

trained_base::trained_base() {
    const fs::path memory = "/dev/shm";
    std::string name = (access(memory.c_str(), W_OK) == 0 ? memory : fs::temp_directory_path()) / "tvrXXXXXX";
    if (!mkdtemp(name.data()))
        throw std::runtime_error("no temporary folder");
    m_folder = name;
    make_bare();
    run("the history", [](engine_driver& engine) {
        for (unsigned series = 1; series <= history; ++series) {
            append_messages(series, batch);
            engine.train();
        }
        append_messages(waiting, batch);
    });
    save("waiting");
    before = content();
    train("the transaction");
    save("trained");
    after = content();
    train_next();
    both_apart = content();
    restore("waiting");
    train_next();
    both_together = content();
    restore("waiting");
    remove(cache_file);
    train_next();
    next_only = content();
    m_complete = true;
}

trained_base::~trained_base() {
    std::error_code ignored;
    fs::remove_all(m_folder, ignored);
}

void trained_base::save(const std::string& name) const {
    copy_tree(root(), m_folder / name);
}
void trained_base::restore(const std::string& name) const {
    copy_tree(m_folder / name, root());
}
std::vector<std::string> trained_base::cuts() const {
    std::vector<std::string> all;
    for (const auto& entry : fs::directory_iterator(m_folder / "cut"))
        all.push_back("cut" / entry.path().filename());
    std::ranges::sort(all);
    return all;
}
void trained_base::empty() const {
    clear(root());
}

files trained_base::all_content() const {
    files all;
    const fs::path start = root();
    for (const auto& entry : fs::recursive_directory_iterator(start)) {
        const std::string path = entry.path().lexically_relative(start).string();
        if (entry.is_regular_file() && !path.starts_with("log/") && !path.starts_with("run/"))
            all[path] = read_file(entry.path());
    }
    return all;
}

files trained_base::content(bool any_archive) {
    files all = all_content();
    drop_leftovers(all);
    // What the verdict has learned depends on which process was killed when; but its file is whole at any
    // time.
    verdict_state learned;
    if (const auto found = all.find(data_folder + "verdict.bin"); found != all.end()) {
        EXPECT_TRUE(parse_verdict({found->second.begin(), found->second.end()}, learned));
    }
    for (const char* name : {"verdict.bin", "~verdict.bin", "verdict.lck"})
        all.erase(data_folder + name);
    for (const char* name : {"data.trr", "data.0"})
        if (const auto found = all.find(base_folder + name); found != all.end()) {
            if (!m_complete)
                m_archives.insert(found->second);
            else if (!any_archive && !m_archives.contains(found->second))
                ADD_FAILURE() << name << " is damaged";
            all.erase(found);
        }
    return all;
}

int trained_base::start(const plan& wanted, const std::function<int()>& body) const {
    shared_board();
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child < 0)
        throw std::runtime_error("no child");
    if (child > 0)
        return child;
    int code = 99;
    try {
        setenv("TESSIVAR_ROOT", root().c_str(), 1);
        plan own = wanted;
        own.states = m_folder / "cut";
        arm(own, root());
        code = body();
        tell_end();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "child: %s\n", error.what());
    }
    std::fflush(nullptr);
    _exit(code);
}

int trained_base::join(int process) {
    int status = 0;
    while (waitpid(process, &status, 0) < 0) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : WTERMSIG(status) == SIGKILL ? killed : -WTERMSIG(status);
}

int trained_base::run_child(const plan& wanted, const std::function<int()>& body) {
    shared_board().clear();
    const int code = join(start(wanted, body));
    if (code == killed)
        m_dead = shared_board().changes();
    return code;
}

verdict trained_base::run(const std::string& what, const std::function<void(engine_driver&)>& driver) {
    const int code = run_child({}, [&] { return run_engine(driver); });
    if (code != 0)
        ADD_FAILURE() << what << ": the engine has crashed, " << code;
    return last_verdict();
}

verdict trained_base::restart() {
    return run("the restart", [](engine_driver& engine) { engine.wait_for_rest(); });
}

verdict trained_base::train(const std::string& what) {
    return run(what, [](engine_driver& engine) { engine.train(); });
}

verdict trained_base::train_next() {
    return run("the next training", [](engine_driver& engine) {
        engine.wait_for_rest();
        append_messages(next_series, batch);
        engine.train();
    });
}

void trained_base::work(const std::function<int()>& body) {
    EXPECT_EQ(run_child({}, body), 0);
}

void trained_base::append(unsigned series, unsigned count) {
    work([&] { return append_messages(series, count) ? 0 : 1; });
}

void trained_base::make_bare() {
    empty();
    work([] { return prepare_root(), 0; });
}

void trained_base::remove(const std::string& name) const {
    fs::remove_all(path(name));
}

void trained_base::expect_equal(const std::string& when, files found, files expected) {
    EXPECT_EQ(found[time_mark].size(), expected[time_mark].size()) << when;
    found.erase(time_mark);
    expected.erase(time_mark);
    EXPECT_EQ(differences(found, expected), std::vector<std::string>()) << when;
}

std::string trained_base::generated(const files& dictionaries) {
    save("meanwhile");
    for (const auto& file : fs::directory_iterator(path(base_folder)))
        if (file.is_regular_file())
            fs::remove(file.path());
    for (const auto& [name, bytes] : dictionaries)
        write_file(path(name), bytes);
    write_file(path(transact_folder + "0006/prepared.txt"), std::string("prepared\0", 9));
    EXPECT_EQ(restart(), verdict::rest);
    std::string base = read_file(path(compiled_base));
    restore("meanwhile");
    return base;
}

namespace {

// TORTURE_ONLY=power (death, failure) leaves the others out.
bool is_left_out(const std::string& kind) {
    const char* const only = std::getenv("TORTURE_ONLY");
    return only && kind != only;
}

} // namespace

unsigned stride(unsigned usual) {
    const char* const text = std::getenv("TORTURE_STRIDE");
    return text ? static_cast<unsigned>(std::max(1, std::atoi(text))) : usual;
}

tally::~tally() {
    unsigned all = 0;
    for (const auto& [outcome, count] : m_counts)
        all += count;
    std::printf("%s: %u points\n", m_title.c_str(), all);
    for (const auto& [outcome, count] : m_counts)
        std::printf("  %6u  %s\n", count, outcome.c_str());
}

trained_base& the_base() {
    static trained_base base;
    return base;
}

// What the undisturbed work makes of its start. The board tells the changes.
std::pair<files, files> run_undisturbed(const job& each) {
    trained_base& base = the_base();
    base.restore(each.start);
    files before = base.content(true);
    EXPECT_EQ(base.run_child({}, each.work), 0) << each.name;
    files after = base.content(true);
    EXPECT_TRUE(after != before) << each.name << " changes nothing";
    return {std::move(before), std::move(after)};
}

void torture(const job& each, const std::vector<std::uint32_t>& errors) {
    if (is_left_out(errors.empty() ? "death" : "failure"))
        return;
    trained_base& base = the_base();
    const auto [before, after] = run_undisturbed(each);
    EXPECT_EQ(shared_board().unseen, 0U) << shared_board().hit_change().path;
    const std::uint32_t points = errors.empty() ? shared_board().begun : shared_board().asked;
    std::vector<plan> plans;
    for (const fate what : {fate::die_before, fate::die_within, fate::die_after})
        if (errors.empty())
            plans.push_back({.what = what});
    for (const std::uint32_t error : errors)
        plans.push_back({.what = fate::fail, .error = error});
    tally outcomes((errors.empty() ? "Death of " : "Failure in ") + std::string(each.name) + " (" +
                   std::to_string(points) + " changes)");
    const unsigned step = stride(each.usual_stride);
    unsigned turn = 0;
    unsigned missed = 0;
    for (plan wanted : plans)
        for (wanted.index = 0; wanted.index < points; ++wanted.index) {
            if (turn++ % step != 0)
                continue;
            base.restore(each.start);
            const int code = base.run_child(wanted, each.work);
            const file_change hit = shared_board().hit_change();
            if (errors.empty() ? code != killed : hit.what.empty()) {
                ++missed; // threads take turns: this time there were fewer changes
                continue;
            }
            SCOPED_TRACE(std::string(each.name) + " " + name_of(wanted.what) + " change " +
                         std::to_string(wanted.index) + " (" + std::to_string(wanted.error) +
                         "): " + hit.what + " " + hit.path);
            EXPECT_GE(code, killed);
            outcomes.add(each.judge(base.content(true), before, after));
        }
    EXPECT_LE(missed * step, points / 10);
}

void cut_power(const job& each) {
    if (is_left_out("power"))
        return;
    trained_base& base = the_base();
    const auto [before, after] = run_undisturbed(each);
    const std::uint32_t points = shared_board().points;
    tally outcomes("Power cut in " + std::string(each.name) + " (" + std::to_string(points) + " points)");
    const char* const all_points = std::getenv("TORTURE_STRIDE");
    const unsigned step = stride(4 * each.usual_stride);
    unsigned turn = 0;
    for (plan wanted{.what = fate::cut_power}; wanted.index < points; ++wanted.index) {
        const bool is_end = wanted.index + 1 == points;
        if (wanted.index % step != 0 && !is_end)
            continue;
        base.restore(each.start);
        fs::remove_all(base.path("../cut"));
        EXPECT_TRUE(base.run_child(wanted, each.work) == killed || is_end);
        const auto& changes = base.changes_of_the_dead();
        std::vector<std::string> states = base.cuts();
        if (!all_points && !is_end) // one of them each time
            states = {states[turn++ % states.size()]};
        for (const std::string& state : states) {
            base.restore(state);
            SCOPED_TRACE(std::string(each.name) + ", power cut " + std::to_string(wanted.index) + ", " +
                         state + ", after " +
                         (changes.empty() ? "nothing" : changes.back().what + " " + changes.back().path));
            const std::string outcome = each.judge(base.content(true), before, after);
            EXPECT_TRUE(!is_end || outcome.find(each.promised) != std::string::npos) << outcome;
            outcomes.add(outcome);
        }
    }
}

} // namespace tvr::torture
