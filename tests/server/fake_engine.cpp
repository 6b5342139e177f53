// A scoring engine that answers what it is told to, by its table of operations alone.

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

namespace {

class fake {
public:
    virtual std::int32_t query_interface(const unsigned char* id, fake** object) {
        *object = nullptr;
        if (std::memcmp(id, "\x63\xBB\x9E\x33\x0B\x41\x0F\x47\x92\xEC\xC7\xCD\xF3\xEC\x51\xC5", 16) != 0)
            return -1;
        ++references;
        *object = this;
        return 0;
    }
    virtual std::uint32_t add_reference() { return ++references; }
    virtual std::uint32_t release() {
        if (--references == 0)
            std::ofstream(std::string(std::getenv("TESSIVAR_ROOT")) + "/released");
        return references;
    }
    // The answer and the score are the token's two numbers.
    virtual std::int32_t lookup(const char* token, float* score) {
        std::int32_t answer = 0;
        *score = static_cast<float>(references);
        std::istringstream(token) >> answer >> *score;
        return answer;
    }

private:
    std::uint32_t references = 1;
};

} // namespace

extern "C" __attribute__((visibility("default"))) std::int32_t tvr_export_1(fake** engine) {
    static fake object;
    *engine = &object;
    return std::getenv("TVR_NO_ENGINE") ? -1 : 0;
}
