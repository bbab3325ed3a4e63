// The platform log: one call, one line.
#ifndef PLATFORM_LOG_H
#define PLATFORM_LOG_H

#ifdef __cplusplus
extern "C" {
#endif

// Priorities that the system uses. Others are accepted and printed by number.
enum {
    DLOG_PRIORITY_TRACE = 2,      // traces and detail dumps
    DLOG_PRIORITY_PROGRESS = 16,  // progress and error lines
};

// Writes one line: the text made from `format` and its arguments under `tag`.
// Any thread; lines of different threads never mix. A trailing newline of the text is dropped, so
// that one call is always one line; newlines inside it are written escaped. Of a text of more than
// 512 bytes the first ones are written, and its length.
// `logId` names the log buffer; only 0 exists. Neither text is kept.
// Returns the number of bytes that were written of the text, or a negative number when none were.
// Never throws and never blocks on anything but the standard error stream.
int __dlog_print(int logId, int priority, const char* tag, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

#ifdef __cplusplus
}
#endif

#endif
