// Defines one getter of a media wrapper: one call to the platform, and one log line if it fails. A
// macro, since the line contains the getter's own name.
#ifndef CONTENTS_MGR_PLATFORM_GETTER_H
#define CONTENTS_MGR_PLATFORM_GETTER_H

#include "Log.h"

#define CM_GETTER(type, owner, name, preset, call, handle, message) \
    type owner::name() const {                                      \
        type value = preset;                                        \
        if (call(handle, &value) != 0) CM_TRACE(message);           \
        return value;                                               \
    }

#endif
