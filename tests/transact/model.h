// A slow and plain model of the whole pipeline: records in, bytes of the dictionaries and of the compiled
// base out. It shares no code with the engine.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace model {

using bytes = std::string;
using token_counts = std::vector<std::pair<std::string, std::uint32_t>>;

struct message {
    std::string msid;
    bool spam = false;
    bool deleted = false;
    bool manual = false;
    std::uint32_t time = 0;
    token_counts tokens; // distinct, counts above 0
};

// A cache file with these records.
bytes cache_file(const std::vector<message>& batch);

struct limits {
    std::uint32_t base_size = 2000; // messages a half
    std::uint32_t dict_size = 200;
    std::uint32_t min_size = 20;
    double weight = 1.8;
};

struct atom {
    std::string name;
    std::uint32_t messages = 0, occurrences = 0, oldest = 0, newest = 0;
    token_counts tokens; // in the order of the file
    bytes file() const;
};

struct half {
    std::string name;
    std::vector<atom> atoms; // oldest first
    std::map<std::string, std::uint32_t> msids;
    std::uint32_t total() const;
};

class engine {
public:
    explicit engine(limits the_limits) : m_limits(the_limits) {}

    void train(const std::vector<message>& batch);
    bytes compiled_base() const;

    half spam{"spamdict", {}, {}};
    half good{"nspamdict", {}, {}};

private:
    struct change {
        std::uint32_t time;
        const message* source;
    };
    struct filing;

    static std::vector<change> plan(const std::vector<message>& batch, bool spam);
    void file(half& target, const std::vector<change>& changes, std::uint32_t final_count,
              std::uint32_t least, std::uint32_t& seen) const;

    limits m_limits;
};

} // namespace model
