#include "platform/entry.h"

#include <clocale>

#include "platform/win32/system.h"

#include <commctrl.h>

int WINAPI WinMain(HINSTANCE, HINSTANCE, LPSTR command_line, int) {
    std::setlocale(LC_ALL, "");
    constexpr DWORD control_classes = 1279;
    const INITCOMMONCONTROLSEX controls{sizeof(INITCOMMONCONTROLSEX), control_classes};
    static_assert(sizeof controls == 8);
    InitCommonControlsEx(&controls);
    return tvr::engine_main(command_line);
}
