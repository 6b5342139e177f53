// The native engine and the one for Windows, which Wine runs, on the same files: one makes the bytes that the
// other makes, and each goes on where the other has died. A program of the native build; it needs two
// variables: TVR_WINDOWS_BIN, the folder of the programs for Windows, and TVR_WINE, the command that runs
// one.

#include <cstdlib>
#include <sys/wait.h>

#include "common/bytes.h"
#include "dict/message_record.h"
#include "platform/change_hook.h"
#include "platform/file.h"
#include "support/child_process.h"
#include "support/test.h"
#include "system/engine_root.h"
#include "system/mortal_engine.h"

namespace tvr {
namespace {

namespace fs = std::filesystem;
using platform::change;

const std::string sample = TVR_SAMPLE_MAIL;

std::string variable(const char* name) {
    const char* const value = std::getenv(name);
    if (!value)
        throw std::runtime_error(std::string(name) + " isn't set");
    return value;
}

// The same path as a program under Wine knows it.
std::string seen_by_wine(const fs::path& path) {
    std::string text = "Z:" + path.string();
    std::replace(text.begin(), text.end(), '/', '\\');
    return text;
}

// The shell's command for a program for Windows in the root. Variables stand before it.
std::string wine_command(const engine_root& root, const std::string& by, const std::string& program,
                         const std::string& arguments, const std::string& variables = {}) {
    // The root's own drive gives paths without a letter the meaning that they have outside.
    return "cd '" + root.path().string() + "' && export TESSIVAR_ROOT='" + seen_by_wine(root.path()) + "' " +
           variables + " && " + by + " " + variable("TVR_WINE") + " " + variable("TVR_WINDOWS_BIN") + "/" +
           program + ".exe " + arguments + " >'" + (root.path() / "said").string() + "' 2>&1";
}

// Runs it to its end; its exit code.
int run_in_wine(const engine_root& root, const std::string& program, const std::string& arguments,
                const std::string& variables = {}) {
    const int status = std::system(wine_command(root, "timeout 120", program, arguments, variables).c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void expect_tvrctl(const engine_root& root, bool windows, const std::string& arguments) {
    if (windows) {
        EXPECT_EQ(run_in_wine(root, "tvrctl", arguments), 0) << arguments << "\n"
                                                             << read_file(root.path() / "said");
    } else {
        tvrctl(arguments, 0);
    }
}

// All of the base but the time of its making, and what only an engine with a log leaves.
files base_of(const engine_root& root) {
    files all = folder_content(root.base());
    for (const char* name : {"cashe.mrk", "data.trr", "data.0"})
        all.erase(name);
    return all;
}

void expect_equal(const files& found, const files& expected) {
    EXPECT_GE(expected.size(), 6U); // list and index of each half, an atom, and the compiled base
    EXPECT_TRUE(same_files(found, expected));
}

// A root that is the same for both: the native engine, too, knows the drive on which Wine sees everything.
struct shared_root : engine_root {
    shared_root() { fs::create_directory_symlink("/", path() / "drive_z"); }
};

// Real mail, in three parts.
TEST(interchange, equal_records_give_equal_bases) {
    std::optional<files> expected[3];
    for (const bool first : {false, true}) // whether the first part is trained on Windows
        for (const bool second : {first, !first}) {
            shared_root root;
            const std::string records = (root.path() / "part").string();
            const char* const parts[] = {"/spam --spam", "/ham --ham", "/spam --ham"};
            for (unsigned part = 0; part < 3; ++part) {
                const std::string file = records + std::to_string(part);
                expect_tvrctl(root, false, "tokenize -q " + sample + parts[part] + " -o " + file);
                const bool windows = part == 1 ? second : first;
                expect_tvrctl(root, windows,
                              "train -q --wait --records " +
                                  (windows ? "'" + seen_by_wine(file) + "'" : file));
                expect_tvrctl(root, windows, "stop");
                if (!expected[part])
                    expected[part] = base_of(root);
                expect_equal(base_of(root), *expected[part]);
            }
        }
}

// The same mail: equal records, base, verdict and score.
TEST(interchange, equal_mail_gives_equal_records_bases_and_verdicts) {
    const std::string judged = " <" + fs::directory_iterator(sample + "/spam")->path().string();
    std::vector<std::string> records, verdicts, scores;
    std::vector<files> bases;
    for (const bool windows : {false, true}) {
        shared_root root;
        const auto path = [&](const fs::path& file) {
            return " '" + (windows ? seen_by_wine(file) : file.string()) + "'";
        };
        const fs::path spam = sample + "/spam", ham = sample + "/ham", cut = root.path() / "cut";
        expect_tvrctl(root, windows, "tokenize -q" + path(spam) + path(ham) + " --spam -o" + path(cut));
        records.push_back(read_file(cut));
        expect_tvrctl(root, windows, "train -q --wait --spam" + path(spam) + " --ham" + path(ham));
        expect_tvrctl(root, windows, "stop");
        bases.push_back(base_of(root));
        verdicts.push_back(read_file(root.base().parent_path() / "verdict.bin"));
        if (windows) {
            EXPECT_EQ(run_in_wine(root, "tvrctl", "score --explain -" + judged), 0);
        }
        scores.push_back(windows ? read_file(root.path() / "said") : tvrctl("score --explain -" + judged, 0));
        std::erase(scores.back(), '\r');
    }
    expect_equal(bases[1], bases[0]);
    EXPECT_GT(records[0].size(), 100'000U);
    EXPECT_TRUE(records[1] == records[0]);
    EXPECT_GT(verdicts[0].size(), 500'000U);
    EXPECT_TRUE(verdicts[1] == verdicts[0]);
    EXPECT_TRUE(scores[1].ends_with(scores[0])) << scores[1]; // Wine may say something first
}

// What comes into a folder under watch is learned, and corrected while it waits.
TEST(interchange, windows_watches_folders) {
    shared_root root;
    const fs::path inbox = root.path() / "inbox", junk = root.path() / "junk", said = root.path() / "said";
    for (const fs::path& folder : {inbox, junk, root.base()})
        fs::create_directories(folder);
    write_file(root.base().parent_path() / "tvrctl.ini", "[Training]\r\ntrain corrections=0\r\n");
    child_process watch("shell",
                        wine_command(root, "exec", "tvrctl",
                                     "watch '" + seen_by_wine(inbox) + "' '" + seen_by_wine(junk) + "'"));
    const auto wait_for_record = [&](std::uint32_t flags) {
        engine_root::wait_for("the record", [&] {
            const std::string cache = read_file(root.transact() / "autotrain.bys");
            return cache.size() > 20 && load_u32(cache.data() + 16) == flags && holds(cache, "<a@x>_");
        });
    };
    engine_root::wait_for("the watch", [&] { return holds(read_file(said), "watching"); });
    write_file(inbox / "a.eml", "From: a@b.example\nSubject: a\nMessage-ID: <a@x>\n\nWords of a.\n");
    wait_for_record(0);
    fs::rename(inbox / "a.eml", junk / "a.eml");
    wait_for_record(message_flag::spam | message_flag::marked);
    watch.kill();
}

// That each imports what it exports is tested on each.
TEST(interchange, the_base_as_text_is_the_same) {
    shared_root root;
    root.train(1, 30);
    root.stop();
    const std::string native = (root.path() / "native.txt").string();
    const fs::path windows = root.path() / "windows.txt";
    expect_tvrctl(root, false, "export " + native);
    expect_tvrctl(root, true, "export '" + seen_by_wine(windows) + "'");
    EXPECT_EQ(read_file(windows), read_file(native));
    expect_tvrctl(root, true, "verify");
    expect_tvrctl(root, false, "verify");
}

// Where it dies, and whether that is on Windows.
class takes_over : public testing::TestWithParam<std::tuple<death, bool>> {};

TEST_P(takes_over, and_comes_to_the_same_bytes) {
    const auto& [point, dies_on_windows] = GetParam();
    static const files expected = [] {
        engine_root root;
        root.train(1, 30);
        root.train(2, 20);
        root.stop();
        return base_of(root);
    }();
    shared_root root;
    root.train(1, 30);
    root.stop();
    root.append(2, 20);
    const std::string end = point.argument();
    if (dies_on_windows)
        EXPECT_NE(run_in_wine(root, "system_test", "",
                              std::string(child_process::role_variable) + "=forced_mortal_engine " +
                                  child_process::argument_variable + "='" + end + "'"),
                  0);
    else
        EXPECT_EQ(child_process("forced_mortal_engine", end).join(), child_process::killed);
    EXPECT_FALSE(fs::exists(root.transact() / "autotrain.bys"));
    EXPECT_TRUE(base_of(root) != expected);

    expect_tvrctl(root, !dies_on_windows, "force");
    root.wait_until_trained();
    expect_tvrctl(root, !dies_on_windows, "stop");
    expect_equal(base_of(root), expected);
}

INSTANTIATE_TEST_SUITE_P(
    at, takes_over,
    testing::Combine(testing::Values(death{"entering", change::create_folder, "\\0001\\"},
                                     death{"sorting", change::rename_file, "\\0002\\data.bys"},
                                     death{"finalizing_spam", change::create_file, "\\0003\\prepared.txt"},
                                     death{"finalizing_good", change::create_file, "\\0004\\prepared.txt"},
                                     death{"publishing", change::remove_folder, "\\0002\\"},
                                     death{"generating", change::rename_file, "\\cashe.rgd"}),
                     testing::Bool()),
    [](const auto& point) {
        return std::get<0>(point.param).name +
               std::string(std::get<1>(point.param) ? "_on_windows" : "_here");
    });

} // namespace
} // namespace tvr
