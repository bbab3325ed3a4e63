#include "MediaContent/BlockPool.h"

#include <sys/mman.h>

#include <cstdint>
#include <new>

namespace platform {
namespace {

constexpr size_t CHUNK = 64 * 1024;  // bytes; also the chunks' alignment
constexpr size_t KEPT_EMPTY = 8;     // for the next page of a listing

// Maps so much that an aligned chunk lies in it; the rest goes back at once.
void* MapAligned() {
    void* mapped =
        mmap(nullptr, 2 * CHUNK, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapped == MAP_FAILED) throw std::bad_alloc();
    const size_t before = -reinterpret_cast<uintptr_t>(mapped) & (CHUNK - 1);
    char* const chunk = static_cast<char*>(mapped) + before;
    if (before > 0) munmap(mapped, before);
    munmap(chunk + CHUNK, CHUNK - before);
    return chunk;
}

}  // namespace

BlockPool::~BlockPool() {
    while (!m_roomy.empty()) {
        Chunk& chunk = *m_roomy.begin();
        m_roomy.erase(chunk);
        if (chunk.used == 0) munmap(&chunk, CHUNK);
    }
}

BlockPool::Chunk& BlockPool::ChunkOf(void* block) {
    const size_t offset = reinterpret_cast<uintptr_t>(block) & (CHUNK - 1);
    return *reinterpret_cast<Chunk*>(static_cast<char*>(block) - offset);
}

BlockPool::Chunk& BlockPool::NewChunk() {
    Chunk* chunk = new (MapAligned()) Chunk;
    m_roomy.insert(*chunk);
    ++m_chunks;
    ++m_empty;
    return *chunk;
}

void* BlockPool::Take() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    Chunk& chunk = m_roomy.empty() ? NewChunk() : *m_roomy.begin();
    void* block = chunk.given;
    if (block) {
        chunk.given = *static_cast<void**>(block);
    } else {
        block = reinterpret_cast<char*>(&chunk) + chunk.untouched;
        chunk.untouched += m_blockSize;
    }
    if (chunk.used++ == 0) --m_empty;
    if (!chunk.given && chunk.untouched + m_blockSize > CHUNK) m_roomy.erase(chunk);
    return block;
}

void BlockPool::Give(void* block) noexcept {
    const std::lock_guard<std::mutex> lock(m_mutex);
    Chunk& chunk = ChunkOf(block);
    if (!chunk.is_linked()) m_roomy.insert(chunk);
    *static_cast<void**>(block) = chunk.given;
    chunk.given = block;
    if (--chunk.used > 0) return;
    if (m_empty < KEPT_EMPTY) {
        ++m_empty;
        return;
    }
    m_roomy.erase(chunk);
    munmap(&chunk, CHUNK);
    --m_chunks;
}

size_t BlockPool::Chunks() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_chunks;
}

}  // namespace platform
