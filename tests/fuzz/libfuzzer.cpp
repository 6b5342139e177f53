// The entry of libFuzzer: the environment variable TVR_FUZZ_TARGET names the target.

#include <cstdio>
#include <cstdlib>

#include "support/test_root.h"
#include "targets.h"

namespace {

const tvr::fuzz::target& chosen() {
    static const tvr::test_root root; // for the registry
    const char* const name = std::getenv("TVR_FUZZ_TARGET");
    if (const auto* found = tvr::fuzz::find_target(name ? name : ""))
        return *found;
    std::fputs("TVR_FUZZ_TARGET must name a target, as fuzz_replay --list does\n", stderr);
    std::exit(2);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const tvr::fuzz::target& which = chosen();
    tvr::fuzz::run(which, {data, size});
    return 0;
}
