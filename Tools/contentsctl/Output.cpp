#include "Output.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>

#include "Failure.h"

namespace contentsctl {

void FlushOutput() {
    errno = 0;
    if (fflush(stdout) == 0 && !ferror(stdout)) return;
    // If a write before this flush failed, its errno is no longer known.
    const char* why = errno != 0 ? strerror(errno) : "an earlier write failed";
    throw Refused(std::string("the output could not be written: ") + why);
}

}  // namespace contentsctl
