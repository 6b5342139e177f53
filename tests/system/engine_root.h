// A root with a real engine in it: starts and stops tvr_srv, feeds it, and looks at what it leaves on disk.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "client/record_batch.h"
#include "client/tvr_ipc.h"
#include "support/child_process.h"
#include "support/file_bytes.h"
#include "support/program.h"
#include "support/test_root.h"

namespace tvr {

constexpr std::uint32_t first_time = 213'000'000; // of messages: 2005, in minutes since 1601

class engine_root {
public:
    // With logs, a training delay of an hour, and a time-out training at more than a thousand messages.
    engine_root();
    ~engine_root(); // kills the engine
    engine_root(const engine_root&) = delete;
    engine_root& operator=(const engine_root&) = delete;

    // For the engine's next start. `delay` in seconds.
    void set_training(unsigned delay, unsigned messages) const;

    static void launch(); // tries to start the real tvr_srv
    void start();         // and waits until it is there
    static void wait_for_start();
    void stop(); // and waits until its process has ended, a second or so
    void kill(); // at once
    // Runs tvr_srv with a key to its end; its exit code.
    [[nodiscard]] int run_key(const std::string& key) const;
    [[nodiscard]] static std::uint32_t process();
    [[nodiscard]] static std::string server(); // the file of tvr_srv, as the engine registers it

    // Appends `count` messages of which every second one is spam; `series` makes them differ.
    void append(unsigned series, unsigned count, bool manual = false);
    void append(const record_batch& batch);
    void force() { m_client.raise(engine_event::train, false); }
    // Raises `add` until the engine has logged it: of two threads that log at the same moment one loses its
    // line.
    void make_hear();
    // Waits until a base of all that was appended is published.
    void wait_until_trained();
    // Waits until both dictionaries are empty.
    void wait_for_purge() const;
    // The same from the append on, and from the start if no engine runs.
    void train(unsigned series, unsigned count);

    [[nodiscard]] const std::filesystem::path& base() const { return m_base; }
    [[nodiscard]] std::filesystem::path transact() const { return m_base / "transact"; }
    [[nodiscard]] bool marker(unsigned stage) const;
    [[nodiscard]] std::string stamp() const; // the content of cashe.mrk
    // Names and contents of the dictionaries and the compiled base.
    [[nodiscard]] files base_files() const;
    // Of both halves, as the compiled base tells.
    [[nodiscard]] std::uint32_t messages() const;
    [[nodiscard]] std::string log(const std::string& name) const;
    void wait_for_line(const std::string& name, const std::string& text) const; // in that log
    [[nodiscard]] const std::filesystem::path& path() const { return m_root.path(); }
    training_client& client() { return m_client; }

    // Waits until the condition holds; throws after a minute.
    static void wait_for(const char* what, const std::function<bool()>& condition);

private:
    static void end(void (*hit)(std::uint32_t engine));
    [[nodiscard]] static std::string peek(const std::filesystem::path& file);

    test_root m_root;
    std::filesystem::path m_base;
    training_client m_client;
    std::string m_stamp_before;
};

// Runs the real tvrctl to its end.
program_result tvrctl(const std::string& arguments);
// The output of a run that must answer this, and say that among others.
std::string tvrctl(const std::string& arguments, int code, std::string_view part = {});
// Through a shell, with all that its line may say; not on Windows.
child_process start_tvrctl(const std::string& arguments);

} // namespace tvr
