// tvrctl: the command a person uses.

#include "tools/command.h"

int main(int count, char** arguments) {
    return tvr::run_tvrctl(count, arguments);
}
