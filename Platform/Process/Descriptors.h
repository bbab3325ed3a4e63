// The descriptors of this process: their limit, and how many are left.
#ifndef PLATFORM_PROCESS_DESCRIPTORS_H
#define PLATFORM_PROCESS_DESCRIPTORS_H

namespace platform {

// Raises the soft limit to the hard one; nothing here uses select(), which could not have more than
// 1,024. Processes made from now on inherit it; the metadata helpers set a lower one themselves.
// Where it cannot be raised it stays. Before there are other threads.
void RaiseDescriptorLimit();

// Whether `count` more descriptors could be opened at this moment. It takes none to find out, so
// nobody else is short of one for that; but others may have taken them by the time it returns.
// The system's own limit of open files is not looked at. Any thread.
bool HasSpareDescriptors(int count);

}  // namespace platform

#endif
