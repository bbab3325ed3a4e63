// The fence around the metadata helper.
#ifndef PLATFORM_MEDIA_CONTENT_EXTRACT_SANDBOX_H
#define PLATFORM_MEDIA_CONTENT_EXTRACT_SANDBOX_H

#include <cstdint>

namespace platform {

// What a helper may use at most.
constexpr uint64_t kHelperAddressSpace = 512u * 1024 * 1024;  // bytes, libraries included
constexpr uint64_t kHelperCpuSeconds = 600;                   // over its whole life

// Shuts the calling process in, for ever: limits on memory, processor time, files and processes;
// no new privileges; and a system call filter that lets it read descriptors it holds or is sent
// on kHelperSocketFd, use memory, and end. Opening files, writing them, making sockets or
// processes fails; starting programs and looking into other processes ends it. False when a part
// of the fence could not be put up: the caller must not go on. The process must have one thread.
//
// In builds with sanitizers, whose run-time needs more, the filter and the memory limit are left
// out.
bool EnterSandbox();

}  // namespace platform

#endif
