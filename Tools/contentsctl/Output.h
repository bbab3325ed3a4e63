// What the tool prints on standard output.
#ifndef TOOLS_CONTENTSCTL_OUTPUT_H
#define TOOLS_CONTENTSCTL_OUTPUT_H

namespace contentsctl {

// Writes out what was printed until now. Throws Refused when any of it could not be written.
void FlushOutput();

}  // namespace contentsctl

#endif
