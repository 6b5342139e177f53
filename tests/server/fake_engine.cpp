// A scoring engine that answers what it is told to.

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include "client/tvr_ipc_export.h"
#include "common/engine_interface.h"

namespace tvr {

class fake final : public score_engine {
public:
    std::int32_t query_interface(const interface_id& id, void** object) override {
        if (std::memcmp(&id, "\x63\xBB\x9E\x33\x0B\x41\x0F\x47\x92\xEC\xC7\xCD\xF3\xEC\x51\xC5", 16) != 0)
            return -1;
        add_reference();
        *object = static_cast<score_engine*>(this);
        return 0;
    }
    std::uint32_t add_reference() override { return ++m_references; }
    std::uint32_t release() override {
        if (--m_references == 0)
            std::ofstream(std::string(std::getenv("TESSIVAR_ROOT")) + "/released");
        return m_references;
    }
    // The answer and the score are the token's two numbers; the number of references if it has none.
    std::int32_t lookup(const char* token, float* score) override {
        std::int32_t answer = 0;
        if (std::istringstream text(token); !(text >> answer >> *score))
            *score = static_cast<float>(m_references);
        return answer;
    }

private:
    std::uint32_t m_references = 1;
};

} // namespace tvr

extern "C" TVR_IPC_EXPORT std::int32_t tvr_export_1(tvr::component** engine) {
    static tvr::fake object;
    *engine = &object;
    const char* const broken = std::getenv("TVR_NO_ENGINE");
    return broken && *broken ? -1 : 0;
}
