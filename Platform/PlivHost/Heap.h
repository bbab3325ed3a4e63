// How the C library's heap of this process keeps what was freed.
#ifndef PLATFORM_PLIV_HOST_HEAP_H
#define PLATFORM_PLIV_HOST_HEAP_H

namespace platform {

// Few arenas, each of which gives its free end back at once. Left to itself the heap makes up to
// eight arenas a core, and lets each keep up to 64 MiB at its end as soon as large blocks have come
// and gone. Once, before there is a second thread.
void KeepHeapSmall();

// Gives free pages between what is in use back to the system, too. Any thread; takes each arena's
// lock for some milliseconds.
void TrimHeap();

}  // namespace platform

#endif
