// The plugin's log lines: one macro, one format.
#ifndef CONTENTS_MGR_LOG_H
#define CONTENTS_MGR_LOG_H

#include "PlatformLog.h"

// Writes "<file>: <function>(<line>) > <message>" under the plugin's tag. `format` is a literal.
#define CM_LOG(priority, format, ...)                                                              \
    static_cast<void>(__dlog_print(0, (priority), "CONTENTS_MANAGER_PLIV", "%s: %s(%d) > " format, \
                                   __FILE_NAME__, __func__, __LINE__, ##__VA_ARGS__))

#define CM_TRACE(format, ...) CM_LOG(DLOG_PRIORITY_TRACE, format, ##__VA_ARGS__)
#define CM_PROGRESS(format, ...) CM_LOG(DLOG_PRIORITY_PROGRESS, format, ##__VA_ARGS__)

#endif
