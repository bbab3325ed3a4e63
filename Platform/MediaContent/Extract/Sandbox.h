// The sandbox of the metadata helper.
#ifndef PLATFORM_MEDIA_CONTENT_EXTRACT_SANDBOX_H
#define PLATFORM_MEDIA_CONTENT_EXTRACT_SANDBOX_H

#include <cstdint>

namespace platform {

// The limits of a helper.
constexpr uint64_t kHelperAddressSpace = 512u * 1024 * 1024;  // bytes, libraries included
constexpr uint64_t kHelperCpuSeconds = 600;                   // over its whole life

// Permanently sandboxes the calling process: limits on memory, processor time, files and processes;
// no new privileges; and a system call filter that lets it read descriptors that it holds or
// receives on kHelperSocketFd, use memory, and exit. Opening or writing files and creating sockets
// or processes fail; starting programs and inspecting other processes kill it. False when any of
// this could not be set up: the caller must not continue. The process must have one thread.
//
// In sanitizer builds, whose run-time needs more, the filter and the memory limit are left out.
bool EnterSandbox();

}  // namespace platform

#endif
