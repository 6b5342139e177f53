#include "server/score_dump.h"

#include <memory>
#include <sstream>
#include <string>

#include "common/engine_interface.h"
#include "common/file_stream.h"
#include "common/path.h"
#include "common/text_stream.h"
#include "platform/library.h"

namespace tvr {

namespace {

constexpr unsigned engine_export = 1; // GetEngine

struct releaser {
    void operator()(component* object) const { object->release(); }
};
template <class interface_T>
using reference = std::unique_ptr<interface_T, releaser>;

// deliberate: the last dot counts wherever it stands, in the name of a folder as well.
std::string output_name(std::string_view input) {
    return std::string(input.substr(0, input.rfind('.'))) + ".out";
}

std::string result_of(score_engine* engine, const std::string& token) {
    float score = 0;
    const std::int32_t answer = engine ? engine->lookup(token.c_str(), &score) : engine_answer::failure;
    if (answer < 0)
        return "\tFAILED. NULL BASE.\n";
    if (answer == engine_answer::unknown)
        return "\tn/f\n";
    std::ostringstream text;
    text << '\t' << score << '\n';
    return text.str();
}

// Null if there is no factory, or it fails.
reference<component> make_engine(const platform::library& dll) {
    auto* const factory = reinterpret_cast<get_engine*>(dll.symbol(engine_export));
    component* engine = nullptr;
    return reference<component>(factory && factory(&engine) >= 0 ? engine : nullptr);
}

reference<score_engine> query_engine(component& from) {
    void* engine = nullptr;
    from.query_interface(score_engine_id, &engine);
    return reference<score_engine>(static_cast<score_engine*>(engine));
}

} // namespace

void dump_scores(std::string_view input, std::string_view library) {
    using platform::share;
    file_stream os;
    if (!os.open(output_name(input), platform::access::write, share::read_write,
                 platform::creation::create_always))
        return;
    file_stream is;
    bool good = is.open(input, platform::access::read, share::read_write, platform::creation::open_existing);
    if (!good)
        write_text(os, "Unable to open input file " + std::string(input) + "\n");
    const std::string sz_file = join_path(module_folder(), library);
    platform::library dll;
    if (!dll.load(sz_file) && !dll.load_installed(library)) {
        write_text(os, "Unable to load " + sz_file + "\n");
        return;
    }
    reference<component> m_eng1 = make_engine(dll);
    if (!m_eng1) {
        write_text(os, "GetEngine failed.\n");
        return;
    }
    const reference<score_engine> m_engine = query_engine(*m_eng1);
    m_eng1.reset();
    // deliberate: the read that meets the end of the input gives an empty token, which is looked up as well.
    while (good) {
        std::string token;
        good = read_text_line(is, token);
        write_text(os, token + result_of(m_engine.get(), token));
    }
}

} // namespace tvr
