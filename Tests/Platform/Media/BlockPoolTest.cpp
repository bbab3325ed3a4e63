#include "MediaContent/BlockPool.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <utility>
#include <vector>

namespace media_test {
namespace {

constexpr size_t BLOCK = 336;

// Every block carries a value of its own from end to end: two that overlapped would show.
struct Held {
    void* block;
    int value;

    Held(platform::BlockPool& pool, int mark) : block(pool.Take()), value(mark) {
        memset(block, value & 0xff, BLOCK);
    }
    bool IsWhole() const {
        const std::vector<char> expected(BLOCK, static_cast<char>(value & 0xff));
        return memcmp(block, expected.data(), BLOCK) == 0;
    }
};

TEST(BlockPoolTest, BlocksNeverOverlapAndWhatIsKeptLiesClose) {
    platform::BlockPool pool(BLOCK);
    std::mt19937 random(7);
    std::vector<Held> kept;
    // Pages of 1,000 records of which three are never given back.
    for (int page = 0; page < 200; ++page) {
        std::vector<Held> held;
        for (int i = 0; i < 1000; ++i) held.emplace_back(pool, page * 1000 + i);
        for (int i = 0; i < 3; ++i) {
            std::swap(held[random() % held.size()], held.back());
            kept.push_back(held.back());
            held.pop_back();
        }
        for (const Held& one : held) {
            ASSERT_TRUE(one.IsWhole());
            pool.Give(one.block);
        }
    }
    for (const Held& one : kept) ASSERT_TRUE(one.IsWhole());
    // 600 blocks are four chunks, a page is six, and eight empty ones may wait.
    EXPECT_LE(pool.Chunks(), 4u + 6u + 8u);
    for (const Held& one : kept) pool.Give(one.block);
    EXPECT_LE(pool.Chunks(), 8u);
}

}  // namespace
}  // namespace media_test
