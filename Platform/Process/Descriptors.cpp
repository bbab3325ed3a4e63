#include "Process/Descriptors.h"

#include <fcntl.h>
#include <sys/resource.h>

#include <cerrno>

namespace platform {

void RaiseDescriptorLimit() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

// A new descriptor gets the lowest free number, which must be below the limit: so the search for
// free numbers starts at 0 and ends long before a high limit. Reading the flags is the call without
// side effects; poll() would consume the mount table's notification.
bool HasSpareDescriptors(int count) {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return true;
    int spare = 0;
    for (rlim_t number = 0; spare < count && number < limit.rlim_cur; ++number)
        if (fcntl(static_cast<int>(number), F_GETFD) < 0 && errno == EBADF) ++spare;
    return spare >= count;
}

}  // namespace platform
