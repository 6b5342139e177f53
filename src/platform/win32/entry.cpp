#include "platform/entry.h"

#include <clocale>

#include "platform/win32/system.h"

int WINAPI WinMain(HINSTANCE, HINSTANCE, LPSTR command_line, int) {
    std::setlocale(LC_ALL, "");
    return tvr::engine_main(command_line);
}
