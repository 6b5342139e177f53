#include "torture/sandbox.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

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

} // namespace

sandbox::sandbox() {
    const fs::path memory = "/dev/shm";
    std::string name =
        ((access(memory.c_str(), W_OK) == 0 ? memory : fs::temp_directory_path()) / "tvrXXXXXX");
    if (!mkdtemp(name.data()))
        throw std::runtime_error("no temporary folder");
    m_folder = name;
}

sandbox::~sandbox() {
    std::error_code ignored;
    fs::remove_all(m_folder, ignored);
}

void sandbox::save(const std::string& name) const {
    copy_tree(root(), m_folder / name);
}
void sandbox::restore(const std::string& name) const {
    copy_tree(m_folder / name, root());
}
void sandbox::empty() const {
    clear(root());
}

files sandbox::content() const {
    files all;
    const fs::path start = root();
    for (const auto& entry : fs::recursive_directory_iterator(start)) {
        const std::string path = entry.path().lexically_relative(start).string();
        if (entry.is_regular_file() && !path.starts_with("log/") && !path.starts_with("run/"))
            all[path] = read_file(entry.path());
    }
    return all;
}

int start_child(const sandbox& box, const plan& wanted, const std::function<int()>& body) {
    shared_board();
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child < 0)
        throw std::runtime_error("no child");
    if (child > 0)
        return child;
    int code = 99;
    try {
        setenv("TESSIVAR_ROOT", box.root().c_str(), 1);
        arm(wanted, box.root());
        code = body();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "child: %s\n", error.what());
    }
    std::fflush(nullptr);
    _exit(code);
}

int join_child(int process) {
    int status = 0;
    while (waitpid(process, &status, 0) < 0) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : WTERMSIG(status) == SIGKILL ? killed : -WTERMSIG(status);
}

int in_child(const sandbox& box, const plan& wanted, const std::function<int()>& body) {
    shared_board().clear();
    return join_child(start_child(box, wanted, body));
}

std::vector<std::string> differences(const files& found, const files& expected) {
    std::vector<std::string> lines;
    for (const auto& [path, content] : expected)
        if (!found.contains(path))
            lines.push_back(path + " is missing");
        else if (found.at(path) != content)
            lines.push_back(path + " differs (" + std::to_string(found.at(path).size()) + " bytes for " +
                            std::to_string(content.size()) + ")");
    for (const auto& [path, content] : found)
        if (!expected.contains(path))
            lines.push_back(path + " is too much");
    return lines;
}

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

} // namespace tvr::torture
