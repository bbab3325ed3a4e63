#include "Process/Heap.h"

#include <malloc.h>

namespace platform {
namespace {

constexpr int kArenas = 4;
constexpr int kFreeEnd = 256 * 1024;     // bytes that an arena may keep at its end
constexpr int kOwnMapping = 512 * 1024;  // bytes from which a block is no part of an arena

}  // namespace

// Either of the last two also ends the heap's habit of raising them by itself.
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
