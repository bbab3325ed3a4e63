// The platform's side of the log: level, sink, and the platform's own messages.
#ifndef PLATFORM_LOG_LOG_H
#define PLATFORM_LOG_LOG_H

#include <functional>
#include <string>

#include "PlatformLog.h"

namespace platform {

// Besides the two priorities of the seam, the platform itself uses these. INFO is for what an
// operator wants to know of a normal day: a handful of lines per stick.
enum : int { LOG_INFO = 20, LOG_WARNING = 24, LOG_ERROR = 32, LOG_NOTHING = 1000 };

// Lines below this priority are dropped before they are formatted. Thread-safe. The default is the
// level in the CONTENTS_MGR_LOG_LEVEL environment variable, else "progress".
void SetLogPriority(int minimum);

// "trace", "progress", "info", "warning", "error" or "none"; false for any other word.
bool ParseLogLevel(const std::string& word, int& minimum);

// Holds lines back from HoldLog until ReleaseLog, which writes those that pass the priority set by
// then: the first lines are logged before the command line has been parsed. Thread-safe.
void HoldLog();
void ReleaseLog();

// The prefix of a line with that priority in the journal ("<4>"); empty when standard error is not
// connected to the journal.
const char* JournalPrefix(int priority);

// One formatted line, without its newline.
struct LogLine {
    int priority;
    std::string tag;
    std::string text;  // formatted and cut, including a trailing newline
};

// Sends lines to `sink` instead of standard error; an empty sink restores it. The sink is called
// under the log's lock, so it receives whole lines in order; it must not log.
void SetLogSink(std::function<void(const LogLine&)> sink);

}  // namespace platform

// The platform's own messages: PLATFORM_LOG("USB_DEVICE", platform::LOG_ERROR, "no %s", what);
#define PLATFORM_LOG(tag, priority, ...) \
    static_cast<void>(__dlog_print(0, (priority), (tag), __VA_ARGS__))

#endif
