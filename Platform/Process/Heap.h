// How much freed memory the C library's heap keeps.
#ifndef PLATFORM_PROCESS_HEAP_H
#define PLATFORM_PROCESS_HEAP_H

namespace platform {

// Limits the heap to a few arenas, each of which returns its free end to the system at once. By
// default the heap creates up to eight arenas per core, and lets each keep up to 64 MiB at its end
// once large blocks have come and gone. Call once, before there is a second thread.
void KeepHeapSmall();

// Also returns free pages between blocks in use to the system. Thread-safe; takes each arena's lock
// for some milliseconds.
void TrimHeap();

// Keeps freed memory for later blocks: for a process that exits soon.
void KeepHeapLarge();

}  // namespace platform

#endif
