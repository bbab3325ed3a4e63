// The tool's standard output.
#ifndef TOOLS_CONTENTSCTL_OUTPUT_H
#define TOOLS_CONTENTSCTL_OUTPUT_H

namespace contentsctl {

// Flushes standard output. Throws Refused when anything printed so far could not be written.
void FlushOutput();

}  // namespace contentsctl

#endif
