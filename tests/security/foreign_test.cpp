// Two users on one machine: what the one has is out of the other's reach, and nothing that he plants stands
// in the way. The tests run in a mount namespace of their own, whose folders are empty; only root can have
// one.
#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <functional>
#include <grp.h>
#include <sched.h>
#include <set>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/clock.h"
#include "platform/registry.h"
#include "support/test.h"

namespace tvr {
namespace {

namespace fs = std::filesystem;
using words = std::vector<std::string>;

constexpr uid_t owner = 65'533;
constexpr uid_t other = 65'532;
const fs::path home = "/mnt/owner";
const fs::path others_home = "/mnt/other";
const fs::path session = "/run/user/65533";
const fs::path lasting = home / ".cache/tessivar/run";

struct outcome {
    int code = -1; // below 0: the signal
    std::string text;
};

struct limit {
    int what = RLIMIT_NOFILE;
    rlim_t most = RLIM_INFINITY;
};

void become(uid_t user) {
    umask(0);
    if (setgroups(0, nullptr) != 0 || setresgid(user, user, user) != 0 || setresuid(user, user, user) != 0)
        _exit(98);
}

// Runs the body as a user; its texts are those of the standard output and error.
outcome as_user(uid_t user, const std::function<int()>& body) {
    const int text = memfd_create("text", MFD_CLOEXEC);
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        dup2(text, 1);
        dup2(text, 2);
        become(user);
        const int code = body();
        std::fflush(nullptr);
        _exit(code);
    }
    int status = 0;
    waitpid(child, &status, 0);
    const int code = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    outcome result = {code, read_file("/proc/self/fd/" + std::to_string(text))};
    close(text);
    return result;
}

// As the system's functions want them.
std::vector<char*> pointers(const words& texts) {
    std::vector<char*> all;
    for (const std::string& text : texts)
        all.push_back(const_cast<char*>(text.c_str()));
    all.push_back(nullptr);
    return all;
}

// Runs tvrctl or tvr_srv. The environment is what is given, and nothing else.
outcome run(uid_t user, const words& environment, const words& line, limit most = {}) {
    return as_user(user, [&] {
        const rlimit wanted{most.most, most.most};
        if (most.most != RLIM_INFINITY && setrlimit(most.what, &wanted) != 0)
            return 97;
        execve(("/mnt/bin/" + line[0]).c_str(), pointers(line).data(), pointers(environment).data());
        return 96;
    });
}

const words plain = {"HOME=/mnt/owner"};
const words moved = {"TESSIVAR_ROOT=/tmp/root"};
words training(const char* when) {
    return {"tvrctl", "train", "-q", when, "--spam", "/mnt/mail/spam", "--ham", "/mnt/mail/ham"};
}
const words train_later = training("--later"), train_now = training("--wait");

// The engines of a user that run, of this run of the tests: another one has a mount namespace of its own.
std::set<pid_t> engines(uid_t user = owner) {
    std::set<pid_t> found;
    const fs::path here = fs::read_symlink("/proc/self/ns/mnt");
    for (const auto& entry : fs::directory_iterator("/proc")) {
        struct stat info {};
        const pid_t process = std::atoi(entry.path().filename().c_str());
        if (process <= 0 || stat(entry.path().c_str(), &info) != 0 || info.st_uid != user)
            continue;
        std::error_code gone; // by links, which don't throw where the process ends meanwhile
        if (fs::read_symlink(entry.path() / "exe", gone).filename() == "tvr_srv" &&
            fs::read_symlink(entry.path() / "ns/mnt", gone) == here)
            found.insert(process);
    }
    return found;
}

void wait_for(const char* what, const std::function<bool()>& condition) {
    const std::uint32_t start = platform::tick_count();
    while (!condition()) {
        ASSERT_LT(platform::tick_count() - start, patience) << what;
        usleep(5'000);
    }
}

void wait_for_no_engine() {
    wait_for("the end of the engines", [] { return engines(owner).empty() && engines(other).empty(); });
}

void kill_engines() {
    for (const uid_t user : {owner, other})
        for (const pid_t process : engines(user))
            kill(process, SIGKILL);
    wait_for_no_engine();
}

void give(const fs::path& path, uid_t user, mode_t mode) {
    EXPECT_EQ(chown(path.c_str(), user, user), 0);
    EXPECT_EQ(chmod(path.c_str(), mode), 0);
}

void make_folder(const fs::path& path, uid_t user, mode_t mode) {
    fs::create_directories(path);
    give(path, user, mode);
}

void make_file(const fs::path& path, uid_t user, mode_t mode, std::string_view bytes) {
    write_file(path, bytes);
    give(path, user, mode);
}

// A file system of its own in place of a folder, for this process and its children.
bool cover(const char* folder, const char* options) {
    return mount("tvr", folder, "tmpfs", MS_NOSUID, options) == 0;
}

class foreign : public testing::Test {
protected:
    static void SetUpTestSuite() {
        if (geteuid() != 0) {
            s_missing = "only root can run as two users";
            return;
        }
        if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            !cover("/mnt", "mode=755")) {
            s_missing = "no mount namespace can be had";
            return;
        }
        fs::create_directory("/mnt/bin");
        fs::copy(TVR_SERVER, "/mnt/bin/tvr_srv");
        fs::copy(TVR_TOOL, "/mnt/bin/tvrctl");
        fs::copy(TVR_SAMPLE_MAIL, "/mnt/mail", fs::copy_options::recursive);
        EXPECT_EQ(std::system("chmod -R a+rX /mnt"), 0);
        fs::create_directory("/mnt/etc");
        for (const char* name : {"ld.so.cache", "ld.so.conf", "nsswitch.conf", "localtime"})
            if (fs::exists(fs::path("/etc") / name))
                fs::copy(fs::path("/etc") / name, fs::path("/mnt/etc") / name);
        write_file("/mnt/etc/passwd", "root:x:0:0::/root:/bin/sh\nowner:x:65533:65533::/mnt/owner:/bin/sh\n"
                                      "other:x:65532:65532::/mnt/other:/bin/sh\n");
        for (const char* folder : {"/tmp", "/var/tmp", "/dev/shm"})
            EXPECT_TRUE(cover(folder, "mode=1777")) << folder;
        EXPECT_TRUE(cover("/run", "mode=755"));
        EXPECT_EQ(mount("/mnt/etc", "/etc", nullptr, MS_BIND, nullptr), 0);
        unsetenv("TESSIVAR_ROOT");
    }

    void SetUp() override {
        if (s_missing)
            GTEST_SKIP() << s_missing;
        afresh();
    }

    void TearDown() override {
        if (!s_missing)
            kill_engines();
    }

    // Empty homes of two users, of whom none has a session.
    static void afresh() {
        kill_engines();
        for (const char* folder : {"/mnt/owner", "/mnt/other", "/run/user", "/etc/tessivar"})
            fs::remove_all(folder);
        for (const auto& entry : fs::directory_iterator("/tmp"))
            fs::remove_all(entry.path());
        fs::create_directories("/run/user");
        make_folder(home, owner, 0755);
        make_folder(others_home, other, 0755);
    }

private:
    static inline const char* s_missing = nullptr;
};

// Processes with and without the variables of a session, before, in and after one, have one engine.
TEST_F(foreign, processes_of_a_user_meet) {
    const words bare;
    const words in_session = {"HOME=/mnt/owner", "XDG_RUNTIME_DIR=/run/user/65533"};
    const words elsewhere = {"HOME=/mnt/owner", "XDG_RUNTIME_DIR=/mnt/owner/private"};
    const auto none = [] { fs::remove_all(session); };
    const auto good = [] { make_folder(session, owner, 0700); };
    const auto open_to_all = [] { make_folder(session, owner, 0755); };
    const auto of_another = [] { make_folder(session, other, 0700); };
    const auto link = [] { fs::create_directory_symlink("/mnt/owner/private", session); };
    struct {
        const char* what;
        std::function<void()> before, between;
        words first, second;
        fs::path place;
    } const table[] = {
        {"no session", none, none, plain, in_session, lasting},
        {"no session, no variable at all", none, none, bare, elsewhere, lasting},
        {"a session", good, good, in_session, plain, session / "tessivar"},
        {"a session, and a variable that names another folder", good, good, elsewhere, bare,
         session / "tessivar"},
        {"a session begins", none, good, plain, in_session, lasting},
        {"others can look into the folder", open_to_all, none, in_session, plain, lasting},
        {"the folder is another's", of_another, none, in_session, plain, lasting},
        {"the folder is a link", link, none, in_session, plain, lasting},
    };
    for (const auto& row : table) {
        SCOPED_TRACE(row.what);
        afresh();
        make_folder(home / "private", owner, 0700);
        row.before();
        const outcome trained = run(owner, row.first, train_now);
        EXPECT_EQ(trained.code, 0) << trained.text;
        const auto before = engines();
        ASSERT_EQ(before.size(), 1U);
        EXPECT_TRUE(fs::exists(row.place / "events"));
        row.between();
        const outcome status = run(owner, row.second, {"tvrctl", "status"});
        EXPECT_TRUE(holds(status.text, "process " + std::to_string(*before.begin()) + ";"));
        EXPECT_EQ(run(owner, row.second, train_now).code, 0);
        EXPECT_EQ(engines(), before);
    }
}

// The engine can't be found any more: no other one may begin before it has left, and it leaves.
TEST_F(foreign, a_session_ends_under_the_engine) {
    make_folder(session, owner, 0700);
    ASSERT_EQ(run(owner, plain, train_now).code, 0);
    const auto first = engines();
    ASSERT_EQ(first.size(), 1U);
    kill(*first.begin(), SIGSTOP);
    fs::remove_all(session);
    EXPECT_EQ(run(owner, plain, {"tvr_srv"}).code, 0);
    EXPECT_EQ(engines(), first);
    kill(*first.begin(), SIGCONT);
    wait_for_no_engine();
    words train_again = train_now;
    train_again.emplace_back("--again"); // all of it is known
    const outcome again = run(owner, plain, train_again);
    EXPECT_EQ(again.code, 0) << again.text;
    EXPECT_EQ(engines().size(), 1U);
}

// Tries everything on a path, and tells what succeeds.
int try_path(const fs::path& path) {
    const std::string name = path.string();
    const std::pair<const char*, bool> table[] = {
        {"read", open(name.c_str(), O_RDONLY | O_NONBLOCK) >= 0},
        {"write", open(name.c_str(), O_WRONLY | O_NONBLOCK) >= 0},
        {"cut", truncate(name.c_str(), 0) == 0},
        {"mode", chmod(name.c_str(), 0666) == 0},
        {"link", link(name.c_str(), "/mnt/other/link") == 0},
        {"move", rename(name.c_str(), "/mnt/other/moved") == 0},
        {"delete", unlink(name.c_str()) == 0 || rmdir(name.c_str()) == 0},
        {"plant", symlink("/mnt/other", (name + "/planted").c_str()) == 0},
    };
    int count = 0;
    for (const auto& [what, done] : table) {
        if (done)
            std::printf("%s: %s\n", what, name.c_str());
        count += done;
    }
    return count;
}

int try_process(pid_t process) {
    int count = 0;
    for (const int number : {0, SIGSTOP, SIGTERM, SIGKILL})
        count += kill(process, number) == 0;
    count += ptrace(PTRACE_SEIZE, process, nullptr, nullptr) == 0;
    for (const char* name : {"/mem", "/environ", "/fd", "/cwd/events"})
        count += open(("/proc/" + std::to_string(process) + name).c_str(), O_RDONLY) >= 0;
    return count;
}

TEST_F(foreign, another_user_reaches_nothing) {
    make_folder(session, owner, 0700);
    make_folder("/tmp/root", owner, 0755);
    for (const std::string variable : {"HOME=/mnt/owner", "TESSIVAR_ROOT=/tmp/root"}) {
        SCOPED_TRACE(variable);
        ASSERT_EQ(run(owner, {variable}, train_now).code, 0);
        const auto before = engines();
        ASSERT_EQ(before.size(), 1U);
        const pid_t engine = *before.begin();
        const std::string status = run(owner, {variable}, {"tvrctl", "status"}).text;

        std::vector<fs::path> paths;
        for (const fs::path& folder : {home, session, fs::path("/tmp/root")})
            for (const auto& entry : fs::recursive_directory_iterator(folder)) {
                struct stat info {};
                lstat(entry.path().c_str(), &info);
                EXPECT_EQ(info.st_mode & 07777, entry.is_directory() ? 0700U : 0600U) << entry.path();
                paths.push_back(entry.path());
            }
        EXPECT_GT(paths.size(), 20U);
        const outcome reached = as_user(other, [&] {
            int count = try_process(engine);
            for (const fs::path& path : paths)
                count += try_path(path);
            return std::min(count, 90);
        });
        EXPECT_EQ(reached.code, 0) << reached.text;

        for (const char* key : {"/stop", "/force", "/purge", "/clean"})
            for (const char* there : {"HOME=/mnt/other", variable.c_str()})
                run(other, {there}, {"tvr_srv", key});
        for (const words& line : {words{"tvrctl", "stop"}, train_later})
            for (const char* there : {"HOME=/mnt/other", variable.c_str()})
                run(other, {there}, line);
        run(other, {variable}, {"tvr_srv"}); // not at his home, where it would go on
        EXPECT_EQ(engines(), before);
        EXPECT_EQ(run(owner, {variable}, {"tvrctl", "status"}).text, status);
        EXPECT_EQ(run(owner, {variable}, {"tvrctl", "verify"}).code, 0);
        kill_engines();
    }
    fs::remove_all("/tmp/root");
    for (const char* folder : {"/tmp", "/var/tmp", "/dev/shm"})
        EXPECT_TRUE(fs::is_empty(folder)) << folder;
}

// A root in which another user has put his own is refused, with a reason, and gets nothing.
TEST_F(foreign, planted_roots_are_refused) {
    const fs::path root = "/tmp/root";
    const fs::path below = root / "run"; // of a root that is good
    using planting = std::function<void(const fs::path&)>;
    const std::tuple<const char*, fs::path, planting, const char*> table[] = {
        {"a foreign folder", root, [](auto& place) { make_folder(place, other, 0777); },
         "belongs to another user"},
        {"an open folder", root, [](auto& place) { make_folder(place, owner, 0777); },
         "other users may write"},
        {"a sticky folder", root, [](auto& place) { make_folder(place, 0, 01777); }, "other users may write"},
        {"a link", root, [](auto& place) { fs::create_directory_symlink("/mnt/other", place); },
         "belongs to another user"},
        {"a file", root, [](auto& place) { make_file(place, other, 0666, "x"); }, ""},
        {"a pipe", root, [](auto& place) { EXPECT_EQ(mkfifo(place.c_str(), 0666), 0); }, ""},
        {"another's folder", below, [](auto& place) { make_folder(place, other, 0700); },
         "belongs to another user"},
        {"a linked folder", below, [](auto& place) { fs::create_directory_symlink("/mnt/owner", place); },
         "symbolic link"},
    };
    for (const auto& [what, place, plant, told] : table) {
        SCOPED_TRACE(place.string() + ": " + what);
        afresh();
        if (place == below)
            make_folder(root, owner, 0700);
        plant(place);
        const outcome served = run(owner, moved, {"tvr_srv"});
        EXPECT_EQ(served.code, 0);
        EXPECT_TRUE(holds(served.text, told));
        EXPECT_TRUE(engines().empty());
        EXPECT_TRUE(fs::is_empty(others_home));
    }
}

// Names in the way of the run-time objects and stores: nothing is written through them, and nothing is lost.
TEST_F(foreign, planted_names_are_not_followed) {
    const std::pair<const char*, std::function<void(const char*)>> plants[] = {
        {"a link", [](const char* name) { fs::create_symlink("/mnt/other/bait", name); }},
        {"a second name", [](const char* name) { fs::create_hard_link("/tmp/bait", name); }},
        {"a pipe", [](const char* name) { EXPECT_EQ(mkfifo(name, 0666), 0); }},
        {"a folder", [](const char* name) { make_folder(name, owner, 0700); }},
        {"another's file", [](const char* name) { make_file(name, other, 0666, "bait"); }},
    };
    for (const char* name : {"run/events", "run/presence.Orvenix_5ftessivar.Orvenix_20Tessivar"})
        for (const auto& [what, plant] : plants) {
            SCOPED_TRACE(std::string(name) + ": " + what);
            afresh();
            make_file("/mnt/other/bait", other, 0666, "bait");
            make_file("/tmp/bait", owner, 0666, "bait");
            make_folder("/tmp/root", owner, 0700);
            make_folder("/tmp/root/run", owner, 0700);
            const std::string path = std::string("/tmp/root/") + name;
            plant(path.c_str());
            run(owner, moved, train_later);
            EXPECT_EQ(read_file("/mnt/other/bait") + read_file("/tmp/bait"), "baitbait");
            kill_engines();
            fs::remove_all(path);
            EXPECT_EQ(run(owner, moved, train_now).code, 0);
            EXPECT_EQ(run(owner, moved, {"tvrctl", "verify"}).code, 0);
        }
}

// Odd paths work, and too long ones are refused before anything is taken.
TEST_F(foreign, odd_roots_work_or_are_refused) {
    const std::string piece(120, 'p');
    const std::pair<std::string, bool> table[] = {
        {"/tmp/sp\xc3\xa4m \xe4", true},
        {"/tmp/it's a \"root\"", true},
        {"/tmp/new\nline", true},
        {"/tmp/per%HOME%cent", true},
        {"/tmp/[x];y=1", true},
        {"/tmp/back\\slash", true},
        {"/tmp/" + std::string(175, 'x'), true},
        {"/tmp/" + std::string(176, 'x'), false},
        {"/tmp/" + std::string(250, 'x'), false},
        {"/tmp/" + piece + "/" + piece + "/" + std::string(53, 'x'), false},
    };
    for (const auto& [root, works] : table) {
        SCOPED_TRACE(root);
        afresh();
        make_folder(root, owner, 0700);
        for (fs::path above = fs::path(root).parent_path(); above != "/tmp"; above = above.parent_path())
            make_folder(above, owner, 0700);
        if (root.find('\\') != std::string::npos)
            make_folder("/tmp/back", owner, 0700);
        const words there = {"TESSIVAR_ROOT=" + root};
        const outcome trained = run(owner, there, train_now);
        EXPECT_EQ(trained.code == 0, works) << trained.text;
        EXPECT_EQ(holds(trained.text, "too long"), !works) << trained.text;
        EXPECT_EQ(run(owner, there, {"tvrctl", "verify"}).code == 0, works);
        EXPECT_EQ(run(owner, there, {"tvr_srv", "/stop"}).code, 0);
        wait_for_no_engine();
    }
}

// What an engine can't do within its limits is done by the next one without them.
TEST_F(foreign, an_engine_with_little_loses_nothing) {
    constexpr rlim_t mebibyte = 1U << 20;
    // With some 10 to 20 files each step of a training could fail for itself.
    const std::pair<limit, std::optional<bool>> table[] = {
        {{RLIMIT_NOFILE, 4}, false},      {{RLIMIT_NOFILE, 10}, false},    {{RLIMIT_NOFILE, 16}, false},
        {{RLIMIT_NOFILE, 66}, false},     {{RLIMIT_NOFILE, 80}, true},     {{RLIMIT_AS, 8 * mebibyte}, {}},
        {{RLIMIT_AS, 12 * mebibyte}, {}}, {{RLIMIT_AS, 24 * mebibyte}, {}}};
    const fs::path base = home / ".local/share/Orvenix/Brackenhold/data/base";
    // A sanitizer wants more addresses than any limit leaves.
    const bool limits_memory =
        run(owner, plain, {"tvr_srv", "/stop"}, limit{RLIMIT_AS, 1024 * mebibyte}).code >= 0;
    for (const auto& [most, trains] : table) {
        if (most.what == RLIMIT_AS && !limits_memory)
            continue;
        const std::string name =
            (most.what == RLIMIT_AS ? "memory " : "open files ") + std::to_string(most.most);
        SCOPED_TRACE(name);
        afresh();
        // An engine with so few files goes at once, and leaves the training to those that follow.
        ASSERT_EQ(run(owner, plain, train_later, limit{RLIMIT_NOFILE, 40}).code, 0);
        wait_for_no_engine();
        // Raised again and again: an engine that comes up hasn't heard what was raised before.
        for (int tries = 0; tries < 20 && !fs::exists(base / "cashe.mrk"); ++tries) {
            const outcome forced = run(owner, plain, {"tvr_srv", "/force"}, most);
            EXPECT_TRUE(forced.code >= 0) << forced.code << forced.text;
            usleep(20'000);
        }
        const bool trained = fs::exists(base / "cashe.mrk");
        std::printf("%s: %s\n", name.c_str(), trained ? "trained" : "not trained");
        EXPECT_EQ(trained, trains.value_or(trained));
        kill_engines();
        wait_for("a base of all messages", [&] {
            run(owner, plain, {"tvr_srv", "/force"});
            const std::string text = run(owner, plain, {"tvrctl", "status"}).text;
            return holds(text, "Spam    30 messages in") && holds(text, "Ham     32 messages in");
        });
        run(owner, plain, {"tvrctl", "stop"});
        wait_for_no_engine();
        const outcome verified = run(owner, plain, {"tvrctl", "verify"});
        EXPECT_EQ(verified.code, 0) << verified.text;
    }
}

// The store of the machine counts only as long as none but root can write it.
TEST_F(foreign, the_machine_store_is_roots) {
    const std::tuple<uid_t, mode_t, bool> table[] = {
        {0, 0644, true}, {0, 0666, false}, {0, 0664, false}, {other, 0644, false}, {0, 0600, false}};
    make_folder("/etc/tessivar", 0, 0755);
    for (const auto& [user, mode, counts] : table) {
        make_file("/etc/tessivar/machine", user, mode, "[Software\\Test]\nx=1:41\n");
        const outcome read = as_user(owner, [] {
            platform::registry_key key;
            setenv("HOME", home.c_str(), 1);
            return int{key.open(platform::registry_root::local_machine, "Software\\Test") && key.query("x")};
        });
        EXPECT_EQ(read.code, counts) << user << " " << mode;
    }
}

} // namespace
} // namespace tvr
