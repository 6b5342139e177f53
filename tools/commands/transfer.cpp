// tvrctl export and import: the token base as text.

#include <cstdio>
#include <fstream>
#include <iostream>
#include <memory>

#include "client/tvr_ipc.h"
#include "client/user_folder.h"
#include "common/file_names.h"
#include "common/file_stream.h"
#include "common/files.h"
#include "platform/clock.h"
#include "platform/file.h"
#include "platform/process.h"
#include "tools/base_text/base_text.h"
#include "tools/command.h"
#include "tools/state/engine_view.h"
#include "tools/text.h"

namespace tvr {

namespace {

constexpr std::uint32_t poll_pause = 10;           // milliseconds
constexpr std::uint32_t publish_patience = 600000; // until it has put the base in place

void print_sum(std::FILE* where, const char* what, const base_text_sum& sum) {
    std::fprintf(where, "%s %s atoms, %s tokens and %s message IDs.\n", what, grouped(sum.atoms).c_str(),
                 grouped(sum.tokens).c_str(), grouped(sum.messages).c_str());
}

// Writes to a new file beside `path` and puts that in its place, or to standard output for "-".
class text_target {
public:
    explicit text_target(const std::string& path) : m_path(path) {
        if (path == "-")
            return;
        m_beside = path + ".part";
        m_made = m_file.open(platform::from_display_path(m_beside), platform::access::write,
                             platform::share::none, platform::creation::create_new);
    }
    ~text_target() {
        m_file.close();
        if (m_made)
            std::remove(m_beside.c_str());
    }
    text_target(const text_target&) = delete;
    text_target& operator=(const text_target&) = delete;

    [[nodiscard]] bool is_open() const { return m_made || m_beside.empty(); }
    [[nodiscard]] const std::string& opened() const { return m_beside; }
    bool write(std::string_view text) {
        return m_made ? m_file.write(text.data(), text.size())
                      : std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
    }
    bool finish() {
        if (!m_made)
            return std::fflush(stdout) == 0;
        m_made = !m_file.close() ||
                 !replace_durably(platform::from_display_path(m_beside), platform::from_display_path(m_path));
        return !m_made;
    }

private:
    std::string m_path;
    std::string m_beside;
    file_stream m_file;
    bool m_made = false; // and still there
};

int export_to(const std::string& path) {
    platform::only_look();
    const auto [working, error] = find_user_folder();
    if (working.empty())
        return fail(error);
    const engine_view view(working);
    if (const char* stage = view.stage())
        return fail(std::string("a training is under way (") + stage +
                    "); export when it is done, or start the engine so that it goes on");
    const std::uint64_t stamp = view.stamp();
    text_target target(path);
    if (!target.is_open())
        return fail(target.opened() + ": can't be made, or is there already");
    base_text_sum sum;
    const std::string why = export_base(
        working + names::base_folder, [&](std::string_view text) { return target.write(text); }, sum);
    // Between two stages there is no marker for a moment.
    bool disturbed = view.stage() != nullptr;
    platform::sleep_for(poll_pause);
    disturbed = disturbed || view.stage() || view.stamp() != stamp;
    if (disturbed)
        return fail("a training began meanwhile: what was written is useless; export again");
    if (!why.empty())
        return fail(why);
    if (!target.finish())
        return fail(path + ": can't be written");
    print_sum(stderr, "Exported", sum);
    if (!sum.remark.empty())
        std::fprintf(stderr, "tvrctl: %s\n", sum.remark.c_str());
    return exit_code::done;
}

// A reason against an import, or an empty text.
std::string obstacle(const engine_view& view) {
    if (const std::uint32_t process = engine_view::process_id())
        return "the engine runs as process " + std::to_string(process) + "; \"tvrctl stop\" ends it";
    if (const char* stage = view.stage())
        return std::string("a training is not done yet (") + stage + "); start the engine so that it goes on";
    if (!is_empty_base(view.working_directory() + names::base_folder))
        return "the base isn't empty; \"tvrctl purge\" empties it";
    return {};
}

// Waits until the engine has put the imported base in place, and has generated the compiled one from it,
// which the new time mark tells: between two stages there is no marker for a moment.
int publish(const engine_view& view) {
    const std::uint64_t stamp = view.stamp();
    training_client client;
    if (const ipc_status status = client.raise(engine_event::add); !status) {
        std::printf("The base is ready; the engine will put it in place at its next start (%s).\n",
                    status.text.c_str());
        return exit_code::done;
    }
    const std::uint32_t start = platform::tick_count();
    while (view.stage() || view.stamp() == stamp) {
        const std::uint32_t waited = platform::tick_count() - start;
        if (waited > publish_patience ||
            (waited > engine_view::start_patience && engine_view::process_id() == 0))
            return fail("the base is ready, but the engine doesn't put it in place");
        platform::sleep_for(poll_pause);
    }
    std::printf("The engine has put the base in place.\n");
    return exit_code::done;
}

int import_from(const std::string& path, bool later) {
    const auto [working, error] = make_user_folder();
    if (working.empty())
        return fail(error);
    const engine_view view(working);
    if (const std::string why = obstacle(view); !why.empty())
        return fail(why);
    std::ifstream file;
    if (path != "-") {
        file.open(path, std::ios::binary);
        if (!file)
            return fail(path + ": can't be opened");
    }
    base_text_sum sum;
    const std::string why = import_base(
        working + names::base_folder, path == "-" ? std::cin : file, [&] { return obstacle(view); }, sum);
    if (!why.empty())
        return fail((path == "-" ? std::string("standard input") : path) + ": " + why +
                    "; nothing was imported");
    print_sum(stdout, "Imported", sum);
    if (!later)
        return publish(view);
    std::printf("The engine puts them in place at its next start.\n");
    return exit_code::done;
}

} // namespace

void add_transfer_commands(CLI::App& program, int& code) {
    auto target = std::make_shared<std::string>("-");
    CLI::App* out = program.add_subcommand("export", "Write the token base as text");
    out->add_option("FILE", *target, "The file to write; - is standard output")->capture_default_str();
    out->footer("Examples:\n"
                "  tvrctl export base.txt\n"
                "  tvrctl export | grep viagra");
    out->callback([target, &code] { code = export_to(*target); });

    auto source = std::make_shared<std::string>();
    auto later = std::make_shared<bool>(false);
    CLI::App* in = program.add_subcommand("import", "Read an exported token base into an empty one");
    in->add_option("FILE", *source, "The exported file; - is standard input")->required();
    in->add_flag("--later", *later, "Don't start the engine; its next start puts the base in place");
    in->footer(
        "The engine must not run, and the base must be empty. A text that is damaged changes nothing.\n\n"
        "Example:\n"
        "  tvrctl purge --yes; tvrctl stop; tvrctl import base.txt");
    in->callback([source, later, &code] { code = import_from(*source, *later); });
}

} // namespace tvr
