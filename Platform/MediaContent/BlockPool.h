// Memory for many small objects of one size that may live long, apart from the heap.
#ifndef PLATFORM_MEDIA_CONTENT_BLOCK_POOL_H
#define PLATFORM_MEDIA_CONTENT_BLOCK_POOL_H

#include <boost/intrusive/set.hpp>
#include <cstddef>
#include <mutex>

namespace platform {

// One small block that is never given back keeps the heap from shrinking below it. Here such blocks
// lie side by side: new ones fill the holes of the lowest chunk first, and a chunk whose last block
// has come back goes back to the system, but for a few. Any thread; a lock of its own.
class BlockPool {
public:
    // `blockSize` in bytes, a multiple of std::max_align_t's alignment, much less than a chunk.
    explicit BlockPool(size_t blockSize) : m_blockSize(blockSize) {}
    // Chunks of which a block is still in use stay.
    ~BlockPool();
    BlockPool(const BlockPool&) = delete;
    BlockPool& operator=(const BlockPool&) = delete;

    void* Take();  // throws std::bad_alloc
    void Give(void* block) noexcept;

    // 64 KiB each, the empty ones included.
    size_t Chunks() const;

private:
    struct Chunk;
    struct ByAddress {
        bool operator()(const Chunk& a, const Chunk& b) const { return &a < &b; }
    };
    using Hook = boost::intrusive::set_base_hook<>;
    using ChunkSet = boost::intrusive::set<Chunk, boost::intrusive::compare<ByAddress>>;

    // At the beginning of its memory. Blocks behind `untouched` have never been in use, so that the
    // system need not have made memory of them.
    struct alignas(std::max_align_t) Chunk : Hook {
        void* given = nullptr;  // the last block that came back; it points to the one before
        size_t used = 0;
        size_t untouched = sizeof(Chunk);  // offset
    };

    static Chunk& ChunkOf(void* block);
    Chunk& NewChunk();

    const size_t m_blockSize;
    mutable std::mutex m_mutex;
    ChunkSet m_roomy;  // guarded by m_mutex, as all below: chunks with a free block
    size_t m_empty = 0;
    size_t m_chunks = 0;
};

}  // namespace platform

#endif
