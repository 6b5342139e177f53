#include "tools/eval/trial_root.h"

#include <charconv>
#include <filesystem>
#include <fstream>
#include <optional>
#include <system_error>
#include <vector>

#include "client/tvr_ipc.h"
#include "common/file_names.h"
#include "common/path.h"
#include "platform/file.h"
#include "platform/process.h"
#include "settings/common_settings.h"
#include "tools/state/engine_view.h"

namespace tvr {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view folder_prefix = "eval";
constexpr const char* root_variable = "TESSIVAR_ROOT";

// Ends the engine of a root that nobody needs, and removes the root.
void discard(const std::string& path) {
    platform::set_environment_variable(root_variable, path);
    if (const std::uint32_t engine = engine_view::process_id()) {
        platform::terminate_process(engine, 0);
        engine_view::wait_for_end(engine);
    }
    std::error_code ignored;
    fs::remove_all(path, ignored);
}

// The process that made a trial's folder; nothing if the name isn't one's.
std::optional<std::uint32_t> maker_of(const std::string& name) {
    if (!name.starts_with(folder_prefix))
        return std::nullopt;
    std::uint32_t number = 0;
    const char* const end = name.data() + name.size();
    const auto got = std::from_chars(name.data() + folder_prefix.size(), end, number);
    return got.ec == std::errc() && got.ptr == end ? std::optional(number) : std::nullopt;
}

void discard_abandoned(const std::string& folder) {
    std::error_code error;
    std::vector<std::string> abandoned;
    for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error))
        if (const auto maker = maker_of(it->path().filename().string());
            maker && !platform::process_exists(*maker))
            abandoned.push_back(it->path().string());
    for (const std::string& path : abandoned)
        discard(path);
}

std::string read_thresholds() {
    const auto folder = common_settings::common_folder();
    std::ifstream file(folder ? platform::display_path(*folder + names::common_settings) : std::string(),
                       std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void write_thresholds(const std::string& text) {
    const auto folder = common_settings::common_folder();
    if (folder && !text.empty() && check_directory(*folder) == folder_state::usable)
        std::ofstream(platform::display_path(*folder + names::common_settings), std::ios::binary) << text;
}

} // namespace

trial_root::trial_root() : m_root_before(platform::environment_variable(root_variable).value_or("")) {
    const std::string thresholds = read_thresholds();
    const std::string folder = platform::temp_folder_path();
    discard_abandoned(platform::display_path(folder));
    platform::set_environment_variable(root_variable, m_root_before);
    const std::string path =
        folder + std::string(folder_prefix) + std::to_string(platform::current_process_id());
    if (!platform::create_directory(path))
        return;
    m_path = platform::display_path(path);
    platform::set_environment_variable(root_variable, m_path);
    write_thresholds(thresholds);
}

bool trial_root::start_engine() const {
    training_client client;
    return client.raise(engine_event::add) && engine_view::wait_until(engine_view::start_patience, [] {
               return engine_view::process_id() != 0;
           });
}

void trial_root::remove() {
    if (!made())
        return;
    discard(m_path);
    platform::set_environment_variable(root_variable, m_root_before);
    m_path.clear();
}

} // namespace tvr
