// The entry of libFuzzer: the environment variable TVR_FUZZ_TARGET names the target.

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "support/test_root.h"
#include "targets.h"

namespace {

tvr::fuzz::target chosen() {
    static const tvr::test_root root; // for the registry
    const char* const name = std::getenv("TVR_FUZZ_TARGET");
    for (const auto& each : tvr::fuzz::all_targets())
        if (name && std::string_view(each.name) == name)
            return each;
    std::fputs("TVR_FUZZ_TARGET must name one of:", stderr);
    for (const auto& each : tvr::fuzz::all_targets())
        std::fprintf(stderr, " %s", each.name);
    std::fputs("\n", stderr);
    std::exit(2);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const tvr::fuzz::target which = chosen();
    tvr::fuzz::run(which, {data, size});
    return 0;
}
