#include "tests/support/platform_limits.h"

#include <csignal>
#include <sys/resource.h>

namespace tvr {

bool read_only_holds(const std::filesystem::path&) {
    return true; // the backend looks at the attribute itself
}

unsigned link_count(const std::filesystem::path& file) {
    return static_cast<unsigned>(std::filesystem::hard_link_count(file));
}

std::uint32_t race_length(std::uint32_t full) noexcept {
    return full;
}

file_size_limit::file_size_limit(std::uint64_t bytes) {
    rlimit limit{};
    std::signal(SIGXFSZ, SIG_IGN);
    m_holds = getrlimit(RLIMIT_FSIZE, &limit) == 0;
    m_before = limit.rlim_cur;
    limit.rlim_cur = bytes;
    m_holds = m_holds && setrlimit(RLIMIT_FSIZE, &limit) == 0;
}

file_size_limit::~file_size_limit() {
    rlimit limit{};
    if (m_holds && getrlimit(RLIMIT_FSIZE, &limit) == 0) {
        limit.rlim_cur = m_before;
        setrlimit(RLIMIT_FSIZE, &limit);
    }
}

} // namespace tvr
