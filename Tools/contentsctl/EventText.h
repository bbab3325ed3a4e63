// Events as human-readable text.
#ifndef TOOLS_CONTENTSCTL_EVENT_TEXT_H
#define TOOLS_CONTENTSCTL_EVENT_TEXT_H

#include <string>

#include "Session.h"

namespace contentsctl {

// The event on one line, safe for a terminal. An event with an unknown name or an unexpected
// payload is shown as it is.
std::string EventText(const Event& event);

}  // namespace contentsctl

#endif
