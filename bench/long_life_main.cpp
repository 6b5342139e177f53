// With the limits of the settings' defaults, and messages of mail's length.
//   tvr_long_life TRANSACTIONS TABLE.csv
#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "bench/long_life.h"

int main(int argc, char** argv) {
    const int transactions = argc == 3 ? std::atoi(argv[1]) : 0;
    if (transactions < 4) {
        std::fputs("tvr_long_life TRANSACTIONS TABLE.csv\n", stderr);
        return 2;
    }
    const auto [samples, defects] = tvr::long_life::run({.transactions = static_cast<unsigned>(transactions),
                                                         .messages = 110,
                                                         .words = 200,
                                                         .all_costs = true});
    std::ofstream table(argv[2]);
    table.precision(12);
    table << "transaction";
    for (const auto& [column, value] : samples.front())
        table << ',' << column;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        table << '\n' << i + 1;
        for (const auto& [column, value] : samples[i])
            table << ',' << value;
    }
    table << '\n';
    for (const std::string& defect : defects)
        std::fprintf(stderr, "%s\n", defect.c_str());
    return defects.empty() && table.flush() ? 0 : 1;
}
