// The native engine and the one for Windows, which Wine runs, on the same files: one makes the bytes that the
// other makes, and each goes on where the other has died. A program of the native build; it needs two
// variables: TVR_WINDOWS_BIN, the folder of the programs for Windows, and TVR_WINE, the command that runs
// one.

#include <cstdlib>
#include <sys/wait.h>

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

// Runs a program for Windows in the root to its end; its exit code. Variables stand in front of it.
int run_in_wine(const engine_root& root, const std::string& program, const std::string& arguments,
                const std::string& variables = {}) {
    // The root's own drive gives paths without a letter the meaning that they have outside.
    const std::string command = "cd '" + root.path().string() + "' && TESSIVAR_ROOT='" +
                                seen_by_wine(root.path()) + "' " + variables + " timeout 120 " +
                                variable("TVR_WINE") + " " + variable("TVR_WINDOWS_BIN") + "/" + program +
                                ".exe " + arguments + " >'" + (root.path() / "said").string() + "' 2>&1";
    const int status = std::system(command.c_str());
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

// That each imports what it exports is tested on each.
TEST(interchange, the_base_as_text_is_the_same) {
    shared_root root;
    root.start();
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
        root.start();
        root.train(1, 30);
        root.train(2, 20);
        root.stop();
        return base_of(root);
    }();
    shared_root root;
    root.start();
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
