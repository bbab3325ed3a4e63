#include "Process/Heap.h"

#include <malloc.h>

namespace platform {
namespace {

constexpr int kArenas = 4;
constexpr int kFreeEnd = 256 * 1024;     // bytes that an arena may keep free at its end
constexpr int kOwnMapping = 512 * 1024;  // bytes from which a block gets its own mapping

}  // namespace

// Setting either of the last two also stops the heap from raising them automatically.
void KeepHeapSmall() {
    mallopt(M_ARENA_MAX, kArenas);
    mallopt(M_TRIM_THRESHOLD, kFreeEnd);
    mallopt(M_MMAP_THRESHOLD, kOwnMapping);
}

void TrimHeap() {
    malloc_trim(0);
}

void KeepHeapLarge() {
    mallopt(M_MMAP_THRESHOLD, 4 * 1024 * 1024);
    mallopt(M_TRIM_THRESHOLD, 64 * 1024 * 1024);
}

}  // namespace platform
