// The presence is a hidden top-level window: others find it by its class and title, close it with WM_CLOSE,
// and end its process by the registered message. Windows of one class and title may be many; that there is
// one owner is the work of a kernel object beside the window.
#include "platform/presence.h"

#include <array>
#include <string>

#include "platform/error.h"
#include "platform/win32/errors.h"
#include "platform/win32/handle.h"
#include "platform/win32/paths.h"

#include <commctrl.h>

namespace tvr::platform {

namespace {

constexpr UINT class_style = CS_HREDRAW | CS_VREDRAW;
constexpr DWORD window_style = WS_OVERLAPPEDWINDOW;
static_assert(class_style == 3 && window_style == 0xcf0000);
constexpr std::uint32_t first_message = 0xC000; // up to 0xFFFF
constexpr DWORD broadcast_flags = BSF_IGNORECURRENTTASK | BSF_NOHANG;
static_assert(broadcast_flags == 10);

std::string class_of(std::string_view class_name) {
    return std::string(class_name) + win32::root_mark();
}

HWND find_window(std::string_view class_name, std::string_view title) {
    return FindWindowA(class_of(class_name).c_str(), std::string(title).c_str());
}

} // namespace

std::uint32_t register_private_message(std::string_view name) noexcept {
    if (name.empty())
        return 0;
    const UINT number = RegisterWindowMessageA((std::string(name) + win32::root_mark()).c_str());
    if (number == 0)
        win32::fail_last();
    return number;
}

// --- the owner ---

struct presence::state {
    win32::handle owning;
    HWND window = nullptr;
    UINT private_message = 0;

    state() = default;
    state(const state&) = delete;
    state& operator=(const state&) = delete;
    ~state() {
        if (window == nullptr)
            return;
        // Not an end that somebody asked for: the next presence of this thread must not take it for one.
        SetWindowLongPtrA(window, GWLP_USERDATA, 0);
        owning.close();
        DestroyWindow(window);
    }

    bool take(std::string_view class_name, std::string_view title) {
        const std::string own_class = class_of(class_name);
        const std::string own_title(title);
        std::string object = own_class + "/" + own_title;
        for (char& c : object)
            if (c == '\\')
                c = '/';
        owning = win32::handle(CreateEventA(nullptr, TRUE, FALSE, object.c_str()));
        if (!owning.is_open() || GetLastError() == ERROR_ALREADY_EXISTS)
            return win32::fail_last();
        const HINSTANCE instance = GetModuleHandleA(nullptr);
        WNDCLASSEXA description{};
        description.cbSize = sizeof description;
        description.style = class_style;
        description.lpfnWndProc = receive;
        description.hInstance = instance;
        description.hbrBackground = reinterpret_cast<HBRUSH>(COLOR_WINDOW + 1);
        description.lpszClassName = own_class.c_str();
        // The class stays from an earlier presence of this process.
        if (RegisterClassExA(&description) == 0 && GetLastError() != ERROR_CLASS_ALREADY_EXISTS)
            return win32::fail_last();
        window = CreateWindowExA(0, own_class.c_str(), own_title.c_str(), window_style, CW_USEDEFAULT, 0,
                                 CW_USEDEFAULT, 0, nullptr, nullptr, instance, nullptr);
        if (window == nullptr)
            return win32::fail_last();
        SetWindowLongPtrA(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
        ShowWindow(window, SW_HIDE);
        return true;
    }

    static LRESULT CALLBACK receive(HWND window, UINT message, WPARAM first, LPARAM second) {
        auto* const self = reinterpret_cast<state*>(GetWindowLongPtrA(window, GWLP_USERDATA));
        if (self != nullptr && self->private_message != 0 && message == self->private_message)
            ExitProcess(static_cast<UINT>(-1));
        if (message != WM_DESTROY)
            return DefWindowProcA(window, message, first, second);
        if (self != nullptr) {
            // The name is free before whoever asked for the close goes on.
            self->window = nullptr;
            self->owning.close();
            PostQuitMessage(0);
        }
        return 0;
    }
};

presence::presence() noexcept = default;
presence::~presence() = default;

bool presence::create(std::string_view class_name, std::string_view title) {
    auto fresh = std::make_unique<state>();
    if (!fresh->take(class_name, title))
        return false;
    m_state = std::move(fresh);
    return true;
}

void presence::set_private_message(std::uint32_t number) noexcept {
    if (m_state)
        m_state->private_message = number;
}

void presence::set_visible(bool visible) noexcept {
    if (m_state)
        ShowWindow(m_state->window, visible ? SW_SHOWNA : SW_HIDE);
}

// The window of another process tells nothing once it is gone.
std::uint32_t presence::previous_process() const noexcept {
    return 0;
}

window_handle presence::window() const noexcept {
    return m_state ? reinterpret_cast<window_handle>(m_state->window) : 0;
}

void post_quit(window_handle window) noexcept {
    if (window != 0)
        PostMessageA(reinterpret_cast<HWND>(window), WM_QUIT, 0, 0);
}

void presence::run() {
    if (!m_state)
        return;
    MSG message{};
    while (GetMessageA(&message, nullptr, 0, 0) > 0) {
        TranslateMessage(&message);
        DispatchMessageA(&message);
    }
    m_state.reset();
}

void prepare_controls() noexcept {
    constexpr DWORD control_classes = 1279;
    const INITCOMMONCONTROLSEX controls{sizeof(INITCOMMONCONTROLSEX), control_classes};
    static_assert(sizeof controls == 8);
    InitCommonControlsEx(&controls);
}

// --- the others ---

presence_info find_presence(std::string_view class_name, std::string_view title) {
    const HWND window = find_window(class_name, title);
    if (window == nullptr)
        return {};
    DWORD process = 0;
    GetWindowThreadProcessId(window, &process);
    return {true, (GetWindowLongA(window, GWL_STYLE) & WS_VISIBLE) != 0, process};
}

void close_presence(std::string_view class_name, std::string_view title) {
    if (const HWND window = find_window(class_name, title); window != nullptr)
        SendMessageA(window, WM_CLOSE, 0, 0);
}

void broadcast_private_message(std::uint32_t number) {
    using function = long(WINAPI*)(DWORD flags, LPDWORD recipients, UINT message, WPARAM, LPARAM);
    const HMODULE user = number >= first_message ? LoadLibraryA("user32.dll") : nullptr;
    if (user == nullptr)
        return;
    FARPROC found = nullptr;
    for (const char* name : {"BroadcastSystemMessageA", "BroadcastSystemMessage"})
        if (found == nullptr)
            found = GetProcAddress(user, name);
    DWORD recipients = BSM_APPLICATIONS;
    if (const auto call = reinterpret_cast<function>(reinterpret_cast<void*>(found)); call != nullptr)
        call(broadcast_flags, &recipients, number, 0, 0);
    FreeLibrary(user);
}

} // namespace tvr::platform
