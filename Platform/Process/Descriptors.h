// This process's file descriptors: their limit, and whether some are left.
#ifndef PLATFORM_PROCESS_DESCRIPTORS_H
#define PLATFORM_PROCESS_DESCRIPTORS_H

namespace platform {

// Raises the soft limit to the hard one; nothing here uses select(), which is limited to 1,024.
// Processes started from now on inherit it; the metadata helpers set a lower one themselves. If the
// limit cannot be raised it stays as it is. Must be called before other threads exist.
void RaiseDescriptorLimit();

// Whether `count` more descriptors could be opened now. The check opens none, so it leaves nobody
// short; but others may have taken them by the time it returns. Ignores the system-wide limit of
// open files. Thread-safe.
bool HasSpareDescriptors(int count);

}  // namespace platform

#endif
