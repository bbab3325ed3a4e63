// Events in a person's words.
#ifndef TOOLS_CONTENTSCTL_EVENT_TEXT_H
#define TOOLS_CONTENTSCTL_EVENT_TEXT_H

#include <string>

#include "Session.h"

namespace contentsctl {

// What the event says, on one line fit for a terminal. An event of an unknown name, or with a
// payload that is not what it should be, comes as it is.
std::string EventText(const Event& event);

}  // namespace contentsctl

#endif
