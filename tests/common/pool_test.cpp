#include "common/pool.h"

#include <cstring>
#include <future>
#include <random>

#include "support/test.h"

namespace tvr {
namespace {

struct block {
    unsigned char* memory;
    std::size_t size;
    unsigned char mark;
};

// Allocates and releases in a random order, and sees to it that nobody writes into a block but its owner.
bool allocate_and_release(unsigned seed) {
    std::minstd_rand random(seed);
    std::vector<block> held;
    bool whole = true;
    const auto release = [&](std::size_t number) {
        const block b = held[number];
        for (std::size_t i = 0; i < b.size; ++i)
            whole = whole && b.memory[i] == b.mark;
        pool_release(b.memory, b.size);
        held[number] = held.back();
        held.pop_back();
    };
    for (const std::size_t most : {1200U, 3U, 900U, 0U}) {
        while (held.size() < most) {
            const std::size_t size = 1 + random() % (random() % 8 == 0 ? 80 : 20);
            auto* const memory = static_cast<unsigned char*>(pool_allocate(size));
            held.push_back({memory, size, static_cast<unsigned char>(random())});
            std::memset(memory, held.back().mark, size);
            if (random() % 4 == 0)
                release(random() % held.size());
        }
        while (held.size() > most)
            release(random() % held.size());
    }
    return whole;
}

TEST(pool_test, blocks_belong_to_their_owners) {
    std::vector<std::future<bool>> others;
    for (const unsigned seed : {100U, 101U})
        others.push_back(std::async(std::launch::async, allocate_and_release, seed));
    for (unsigned seed = 1; seed <= 10; ++seed)
        EXPECT_TRUE(allocate_and_release(seed)) << seed;
    for (auto& other : others)
        EXPECT_TRUE(other.get());
}

} // namespace
} // namespace tvr
