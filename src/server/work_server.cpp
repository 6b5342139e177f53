#include "server/work_server.h"

#include <atomic>
#include <optional>
#include <string>

#include "common/file_names.h"
#include "common/file_stream.h"
#include "common/logger.h"
#include "common/path.h"
#include "dict/atom.h"
#include "platform/clock.h"
#include "settings/settings.h"
#include "settings/settings_file.h"
#include "stat/statistic.h"

namespace tvr {

namespace {

constexpr std::uint32_t work_timeout = 5000; // milliseconds
constexpr std::uint32_t stop_pause = 500;    // milliseconds; the log line beside it says 0.2 s

std::atomic<work_server*> current_server{nullptr};

std::optional<statistic>& statistic_object() {
    static std::optional<statistic> object;
    return object;
}

bool is_valid_magic(std::uint32_t magic) {
    return magic == _kwilsfile::magic_valid || magic == _kwilsfile::magic_accepted;
}

void load_settings() {
    _kwilsfile dataloader;
    dataloader.attach(&make_current_settings());
    dataloader.find_working_directory();
    dataloader.load();
    const bool valid = is_valid_magic(dataloader.magic);
    TVR_LOG(default_log, "Check if data is valid (%i) and return -1, if no", valid ? 1 : 0);
    if (!valid)
        dataloader.prepare();
    TVR_LOG(default_log, "Validating the plugin's settings...");
    dataloader.magic = _kwilsfile::magic_valid;
    TVR_LOG(default_log, "done");
}

void load_statistic(const std::string& working_directory) {
    TVR_LOG(default_log, "Loading statistic file");
    auto& object = statistic_object();
    if (!object)
        object.emplace();
    object->read(working_directory + names::statistic);
}

void report_dictionary(const std::string& path, const char* failure) {
    file_stream file;
    atom_head head;
    if (file.open_to_read(path) && head.header.read(file))
        TVR_LOG(default_log, "[i] messages(%d), words(%d)", static_cast<int>(head.messages),
                static_cast<int>(head.tokens));
    else
        TVR_LOG(default_log, "%s", failure);
}

} // namespace

work_server::work_server(platform::window_handle window) : m_window(window) {
    work_server* none = nullptr;
    current_server.compare_exchange_strong(none, this);
}

work_server::~work_server() {
    work_server* self = this;
    current_server.compare_exchange_strong(self, nullptr);
}

work_server* work_server::current() noexcept {
    return current_server.load();
}

bool work_server::init() {
    TVR_LOG(default_log,
            "work_server::init. If you can see this, the memory logging was successfully initialized.");
    TVR_LOG(default_log, "Installing our handler for structured exceptions...");
    TVR_LOG(default_log, "done!");
    TVR_LOG(default_log, "work_server::init finished.");
    load_settings();
    const std::string working_directory = current_settings()->working_directory.expanded;
    m_channel.set_file(join_path(working_directory, std::string(names::transact_path) + names::signals));
    load_statistic(working_directory);
    TVR_LOG(default_log, "Creating sync object to signal about long idle");
    m_long_idle.create(false);
    TVR_LOG(default_log, "Say, that plugin's settings is initialized now (set initialized=true)");
    m_initialized = true;
    TVR_LOG(default_log, "------------------------Startup complete!");
    m_long_idle.set();
    return m_initialized;
}

std::uint32_t work_server::work() {
    m_transaction.init();
    for (;;) {
        const std::uint32_t raised = m_channel.wait(work_timeout);
        if (raised != ev_timeout)
            TVR_LOG(default_log, "[i] Event %d raised...(%d)", static_cast<int>(work_timeout),
                    static_cast<int>(raised));
        switch (raised) {
        case ev_add:
            m_transaction.add();
            break;
        case ev_train:
            m_transaction.force_retrain();
            break;
        case ev_reset:
            m_transaction.reinit();
            break;
        case ev_shutdown:
            return 0;
        default:
            m_channel.replay();
            break;
        }
    }
}

void work_server::stop() {
    TVR_LOG(default_log, "Check if the plug was initialized (%i)", m_initialized ? 1 : 0);
    if (m_initialized) {
        TVR_LOG(default_log, "Sleep for 0.2s to be sure that other threads are surely finished");
        platform::sleep_for(stop_pause);
        TVR_LOG(default_log, "Delete thread handle of initial loading (if any)");
        TVR_LOG(default_log, "All is done. The plugin is cleaned.");
    }
    TVR_LOG(default_log, "***STOP***");
}

void work_server::quit() {
    platform::post_quit(m_window);
}

std::uint32_t work_server::load_training_information() {
    const std::string& working = current_settings()->working_directory.expanded;
    const std::string spam =
        join_path(working, std::string(names::base_folder) + names::spam_half + names::atom_ending);
    const std::string good =
        join_path(working, std::string(names::base_folder) + names::good_half + names::atom_ending);
    TVR_LOG(default_log, "Loading training information.");
    TVR_LOG(default_log, "Recalculating dictionaries from:");
    TVR_LOG(default_log, "Spam (%s), NoSpam (%s)", spam.c_str(), good.c_str());
    TVR_LOG(default_log, "RDBS: ______ preparegraham invoked");
    TVR_LOG(default_log, "[i] Spam frequency dictionary:");
    report_dictionary(spam, "[-] Error opening spamdict. File damaged or lost.");
    report_dictionary(good, "[-] Error opening nspamdict. File damaged or lost.");
    m_long_idle.set();
    return 0;
}

void close_statistic() {
    if (auto& object = statistic_object())
        object->close();
}

} // namespace tvr
