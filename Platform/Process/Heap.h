// How much of what was freed the C library's heap keeps.
#ifndef PLATFORM_PROCESS_HEAP_H
#define PLATFORM_PROCESS_HEAP_H

namespace platform {

// Few arenas, each of which gives its free end back at once. Left to itself the heap makes up to
// eight arenas a core, and lets each keep up to 64 MiB at its end as soon as large blocks have come
// and gone. Once, before there is a second thread.
void KeepHeapSmall();

// Gives free pages between what is in use back to the system, too. Any thread; takes each arena's
// lock for some milliseconds.
void TrimHeap();

// Keeps what is freed for the next blocks: for a process that ends soon.
void KeepHeapLarge();

}  // namespace platform

#endif
