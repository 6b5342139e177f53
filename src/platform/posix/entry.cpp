#include "platform/entry.h"

#include <string>

int main(int argc, char** argv) {
    std::string command_line;
    for (int i = 1; i < argc; ++i) {
        if (i > 1)
            command_line += ' ';
        command_line += argv[i];
    }
    return tvr::engine_main(command_line);
}
