// The presence of a server: one owner per user and name, whom others can find, ask to close, and order
// to end at once.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

namespace tvr::platform {

// The number of a private message name, the same in every process of the user; 0 on failure.
std::uint32_t register_private_message(std::string_view name) noexcept;

// Stands for the window of a presence of this process; 0 for none.
using window_handle = std::uintptr_t;

// Asks the loop that serves this window to end, and returns at once; the presence is given up as the loop
// ends. Nothing happens once the window is gone. Any thread.
void post_quit(window_handle window) noexcept;

// The owner's side. Created, run and destroyed on one thread.
class presence {
public:
    presence() noexcept;
    ~presence(); // gives the presence up
    presence(const presence&) = delete;
    presence& operator=(const presence&) = delete;

    // Takes the presence, hidden. False if it can't be made. A process that races with another for the
    // name may lose here or in find_presence().
    bool create(std::string_view class_name, std::string_view title);
    // The message that ends the process at once with exit code -1 while run() pumps; 0 for none.
    void set_private_message(std::uint32_t number) noexcept;
    void set_visible(bool visible) noexcept;
    [[nodiscard]] window_handle window() const noexcept;
    // The process that had the presence before this one, and may still be about to end; 0 if that isn't
    // known.
    [[nodiscard]] std::uint32_t previous_process() const noexcept;
    // Serves requests until somebody asks to close, or post_quit(); the presence is given up before it
    // returns.
    void run();

private:
    struct state;
    std::unique_ptr<state> m_state;
};

struct presence_info {
    bool found = false;
    bool visible = false;
    std::uint32_t process_id = 0;
};

presence_info find_presence(std::string_view class_name, std::string_view title);
// Asks the owner to close, and waits without limit until it has given the presence up. At once if there
// is no owner.
void close_presence(std::string_view class_name, std::string_view title);
// Delivers a private message to every presence of the user, without waiting.
void broadcast_private_message(std::uint32_t number);

// Prepares the controls of the user interface, where the platform has some that must be.
void prepare_controls() noexcept;

} // namespace tvr::platform
