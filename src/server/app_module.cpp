#include "server/app_module.h"

#include "common/logger.h"
#include "common/path.h"
#include "platform/error.h"
#include "platform/process.h"
#include "signal/identity.h"

namespace tvr {

namespace {

app_module* current_module = nullptr;

} // namespace

app_module::app_module(platform::module_handle instance) {
    if (!current_module)
        current_module = this;
    app_module::init(instance);
}

app_module::~app_module() {
    if (current_module == this)
        current_module = nullptr;
}

app_module* app_module::current() noexcept {
    return current_module;
}

void app_module::init(platform::module_handle module) {
    m_module = m_resource_module = module;
    platform::prepare_controls();
}

bool app_module::term() {
    m_module = m_resource_module = 0;
    return true;
}

void app_module::read_paths() {
    std::string log_folder;
    if (!registry_path_value("TessivarRoot").empty()) {
        m_help_path = registry_path_value("TessivarHelp", m_help_path);
        log_folder = registry_path_value("TessivarLog", log_folder);
    }
    logger::instance().configure(platform::module_path(), log_folder);
}

bool app_module::create_presence() {
    if (!m_presence.create(server_class, server_title))
        return false;
    const std::uint32_t number = platform::register_private_message(terminate_message);
    if (number == 0) {
        const std::uint32_t code = platform::last_error();
        TVR_LOG(default_log, "unable to register private message. Error: %d", static_cast<int>(code));
    }
    m_presence.set_private_message(number);
    m_presence.set_visible(false);
    return true;
}

void app_module::run() {
    m_presence.run();
    term();
}

} // namespace tvr
