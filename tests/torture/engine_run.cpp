#include "torture/engine_run.h"

#include <array>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <span>
#include <string>
#include <thread>
#include <unistd.h>

#include "client/record_batch.h"
#include "client/tvr_ipc.h"
#include "common/path.h"
#include "platform/clock.h"
#include "platform/entry.h"
#include "platform/file.h"
#include "platform/presence.h"
#include "platform/registry.h"
#include "platform/sync.h"
#include "signal/event_channel.h"
#include "signal/identity.h"
#include "support/sample_tokens.h"
#include "torture/file_changes.h"

namespace tvr::torture {

namespace {

constexpr std::uint32_t training_delay = 3600; // seconds
constexpr auto patience = std::chrono::seconds(60);
constexpr std::uint32_t enough_rounds = 4;
constexpr std::uint32_t minutes_a_day = 1440;

// Minutes since 1601. Fixed for the whole program, since it reaches the dictionaries.
const std::uint32_t first_time =
    194'074'560 - 40 * minutes_a_day +
    static_cast<std::uint32_t>(
        std::chrono::duration_cast<std::chrono::minutes>(std::chrono::system_clock::now().time_since_epoch())
            .count());

[[noreturn]] void end_with(verdict what) {
    shared_board().verdict = static_cast<std::uint32_t>(what);
    tell_end();
    _exit(0);
}

} // namespace

void engine_driver::wait_for_rest() {
    const board& all = shared_board();
    const auto until = std::chrono::steady_clock::now() + patience;
    while (all.idle < m_waits) {
        if (all.no_batch >= enough_rounds)
            end_with(verdict::no_batch);
        if (all.no_marker >= enough_rounds)
            end_with(verdict::no_marker);
        if (std::chrono::steady_clock::now() > until)
            end_with(verdict::hangs);
        platform::sleep_for(1);
    }
}

// The thread comes to its wait twice: with the snapshot taken, and at the end.
void engine_driver::train(bool has_room) {
    wait_for_rest();
    m_waits += has_room ? 2 : 1;
    event_channel().raise(ev_train);
    wait_for_rest();
}

void engine_driver::stop() {
    shared_board().verdict = static_cast<std::uint32_t>(verdict::stopped);
    platform::close_presence(server_class, server_title);
    std::this_thread::sleep_for(patience);
    end_with(verdict::hangs);
}

int run_engine(const std::function<void(engine_driver&)>& driver) {
    std::thread([&driver] {
        spare(true);
        engine_driver hands;
        driver(hands);
        end_with(verdict::rest);
    }).detach();
    engine_main("");
    end_with(verdict::left);
}

verdict last_verdict() {
    return static_cast<verdict>(shared_board().verdict.load());
}

const char* name_of(verdict what) {
    constexpr std::array names = {
        "was killed",  "comes to rest", "loops without a batch", "loops without a marker", "has ended",
        "was stopped", "hangs"};
    return names.at(static_cast<std::size_t>(what));
}

void prepare_root() {
    const std::filesystem::path root = std::getenv("TESSIVAR_ROOT");
    const std::string engine_path = platform::from_display_path(root.string());
    platform::registry_key key;
    key.create(platform::registry_root::local_machine, paths_key);
    key.set("TessivarRoot", platform::registry_type::string, engine_path);
    key.set("TessivarLog", platform::registry_type::string, engine_path + "\\log");
    key.create(platform::registry_root::local_machine, "Software");
    key.set("EnableKWILLog", platform::registry_type::dword, std::string_view("\2\0\0\0", 4));
    std::filesystem::create_directory(root / "log");
    std::ofstream(root / "advanced.ini")
        << "training delay = " << training_delay << "\nrecalculating strategy = 100000\n"
        << "optimal base size per half = " << base_size
        << "\noptimal one dict size = 12\nmin optimal one dict size = 4\n";
}

// Words that both halves share, words of one half, and rare ones. Now and then a message is deleted, has an
// impossible date, or comes back from the series before with the other verdict.
bool append_messages(unsigned series, unsigned count) {
    record_batch batch;
    for (unsigned i = 0; i < count; ++i) {
        const bool comes_back = series > 1 && i % 7 == 3;
        const bool spam = (i + (comes_back ? 1 : 0)) % 2 == 0;
        token_table tokens;
        add_sample_tokens(tokens, series, i, spam, 12, 40);
        const std::string msid =
            "<" + std::to_string(comes_back ? series - 1 : series) + "." + std::to_string(i) + "@x>_0123ABCD";
        const std::uint32_t time = i % 11 == 5 ? 1000 + i : first_time + series * minutes_a_day + i * 3;
        batch.add({.msid = msid, .spam = spam, .manual = i % 9 == 4, .size = 1000 + i, .time = time}, tokens);
    }
    training_client client;
    return static_cast<bool>(client.append(batch));
}

} // namespace tvr::torture

extern "C" {

std::uint32_t __real__ZN3tvr8platform8wait_anyESt4spanIKPNS0_5eventELm18446744073709551615EEj(
    std::span<tvr::platform::event* const> events, std::uint32_t milliseconds);

// The linker puts this ahead of platform::wait_any, so that the test knows when the transaction thread has
// nothing left to do.
std::uint32_t __wrap__ZN3tvr8platform8wait_anyESt4spanIKPNS0_5eventELm18446744073709551615EEj(
    std::span<tvr::platform::event* const> events, std::uint32_t milliseconds) {
    if (milliseconds == tvr::torture::training_delay * 1000)
        ++tvr::torture::shared_board().idle;
    return __real__ZN3tvr8platform8wait_anyESt4spanIKPNS0_5eventELm18446744073709551615EEj(events,
                                                                                           milliseconds);
}
}
