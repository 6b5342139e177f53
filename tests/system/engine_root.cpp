#include "system/engine_root.h"

#include <algorithm>
#include <fstream>
#include <stdexcept>

#include "common/bytes.h"
#include "common/path.h"
#include "dict/message_record.h"
#include "platform/clock.h"
#include "platform/file.h"
#include "platform/presence.h"
#include "platform/process.h"
#include "platform/registry.h"
#include "signal/identity.h"
#include "support/sample_tokens.h"
#include "support/test.h"
#include "tools/state/engine_view.h"

namespace tvr {

namespace fs = std::filesystem;

namespace {

std::string server_path() {
    return module_folder() + std::string(server_value);
}

// The stores must be there before the client looks for its folder.
test_root& prepared(test_root& root) {
    platform::registry_key key;
    key.create(platform::registry_root::local_machine, paths_key);
    key.set("TessivarRoot", platform::registry_type::string, root.engine_path());
    key.set("TessivarLog", platform::registry_type::string, root.engine_path("log"));
    key.create(platform::registry_root::local_machine, "Software");
    key.set("EnableKWILLog", platform::registry_type::dword, std::string_view("\2\0\0\0", 4));
    fs::create_directory(root.path() / "log");
    return root;
}

} // namespace

engine_root::engine_root() : m_base(prepared(m_root).path() / "appdata/Orvenix/Brackenhold/data/base") {
    set_training(3600, 1000);
}

engine_root::~engine_root() {
    kill();
}

void engine_root::set_training(unsigned delay, unsigned messages) const {
    std::ofstream(m_root.path() / "advanced.ini")
        << "training delay = " << delay << "\nrecalculating strategy = " << messages << "\n";
}

std::string engine_root::server() {
    const std::string own = platform::module_path();
    return module_folder() + "tvr_srv" + (own.ends_with(".exe") ? ".exe" : "");
}

std::uint32_t engine_root::process() {
    return engine_view::process_id();
}

void engine_root::wait_for(const char* what, const std::function<bool()>& condition) {
    const std::uint32_t start = platform::tick_count();
    while (!condition()) {
        if (platform::tick_count() - start > patience)
            throw std::runtime_error(std::string("waited in vain: ") + what);
        platform::sleep_for(2);
    }
}

void engine_root::launch() {
    platform::start_process(server_path());
}

void engine_root::wait_for_start() {
    wait_for("the engine's start", [] { return process() != 0; });
}

void engine_root::start() {
    launch();
    wait_for_start();
}

void engine_root::stop() {
    end([](std::uint32_t) { platform::close_presence(server_class, server_title); });
}

void engine_root::kill() {
    end([](std::uint32_t engine) { platform::terminate_process(engine, -1); });
}

void engine_root::end(void (*hit)(std::uint32_t engine)) {
    if (const std::uint32_t old = process()) {
        hit(old);
        wait_for("the engine's end", [old] { return !platform::process_exists(old); });
    }
}

int engine_root::run_key(const std::string& key) const {
    return run_program("tvr_srv", key).code;
}

void engine_root::append(unsigned series, unsigned count, bool manual) {
    record_batch batch;
    for (unsigned i = 0; i < count; ++i) {
        const bool spam = i % 2 == 0;
        token_table tokens;
        add_sample_tokens(tokens, series, i, spam, 20, 50);
        const std::string msid = make_msid(std::to_string(series) + "." + std::to_string(i), "", "", "");
        batch.add({.msid = msid,
                   .spam = spam,
                   .manual = manual,
                   .size = 1000 + i,
                   .time = first_time + series * 1000 + i},
                  tokens);
    }
    append(batch);
}

void engine_root::append(const record_batch& batch) {
    m_stamp_before = stamp();
    if (const ipc_status status = m_client.append(batch); !status)
        throw std::runtime_error(status.text);
}

void engine_root::make_hear() {
    wait_for("the event", [&] {
        m_client.raise(engine_event::add, false);
        return log("transact.log").find("[i] added message") != std::string::npos;
    });
}

void engine_root::wait_for_line(const std::string& name, const std::string& text) const {
    wait_for(text.c_str(), [&] { return log(name).find(text) != std::string::npos; });
}

void engine_root::wait_until_trained() {
    const engine_view view(m_client.working_directory());
    wait_for("a new base", [&] {
        // A stamp that is just being written is none yet, nor is it one of which the next differs.
        const std::string now = stamp();
        return view.cache_size() < m_client.appended_until() && !view.stage() && now.size() == 8 &&
               now != m_stamp_before;
    });
}

void engine_root::train(unsigned series, unsigned count) {
    if (process() == 0)
        start();
    append(series, count);
    force();
    wait_until_trained();
}

bool engine_root::marker(unsigned stage) const {
    return fs::exists(transact() / ("000" + std::to_string(stage)) / "prepared.txt");
}

std::string engine_root::stamp() const {
    return peek(m_base / "cashe.mrk");
}

files engine_root::base_files() const {
    files all;
    for (const auto& entry : fs::directory_iterator(m_base))
        for (const char* extension : {".bye", ".lst", ".rgd"})
            if (entry.path().extension() == extension)
                all[entry.path().filename().string()] = peek(entry.path());
    return all;
}

void engine_root::wait_for_purge() const {
    wait_for("empty dictionaries", [&] {
        // By their names alone: elsewhere an open file hinders its deletion.
        return std::ranges::none_of(fs::directory_iterator(m_base), [](const auto& entry) {
            return entry.path().extension() == ".bye" || entry.path().extension() == ".lst";
        });
    });
}

std::uint32_t engine_root::messages() const {
    const auto base = engine_view(m_client.working_directory()).base();
    return base ? base->spam_messages + base->ham_messages : 0;
}

std::string engine_root::log(const std::string& name) const {
    return peek(m_root.path() / "log" / name);
}

// In the engine's way as little as any other onlooker.
std::string engine_root::peek(const fs::path& file) {
    const std::string path = platform::from_display_path(file.string());
    std::string bytes, piece(65536, '\0');
    while (const auto got = platform::peek_file(path, bytes.size(), piece.data(), piece.size()).value_or(0))
        bytes.append(piece, 0, got);
    return bytes;
}

program_result tvrctl(const std::string& arguments) {
    return run_program("tvrctl", arguments);
}

std::string tvrctl(const std::string& arguments, int code, std::string_view part) {
    const program_result result = tvrctl(arguments);
    EXPECT_EQ(result.code, code) << arguments << "\n" << result.text;
    EXPECT_TRUE(holds(result.text, part)) << arguments;
    return result.text;
}

child_process start_tvrctl(const std::string& arguments) {
    return child_process("shell",
                         "exec '" + platform::display_path(module_folder()) + "tvrctl' " + arguments);
}

} // namespace tvr
