// The platform log: one call, one line.
#ifndef PLATFORM_LOG_H
#define PLATFORM_LOG_H

#ifdef __cplusplus
extern "C" {
#endif

// Priorities that the system uses. Others are accepted and printed as a number.
enum {
    DLOG_PRIORITY_TRACE = 2,      // traces and detail dumps
    DLOG_PRIORITY_PROGRESS = 16,  // progress and errors
};

// Writes one line: the text formatted from `format` and its arguments, under `tag`. May be called
// from any thread; lines from different threads are never interleaved. A trailing newline of the
// text is dropped, so that one call always writes one line; newlines inside it are escaped. Of a
// text longer than 512 bytes at most the first 512 are written, followed by its length. `logId`
// selects the log buffer; only 0 exists. Neither text is kept. Returns the number of bytes of the
// text that were written, or a negative number when none were. Never throws and blocks on nothing
// but the standard error stream.
int __dlog_print(int logId, int priority, const char* tag, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

#ifdef __cplusplus
}
#endif

#endif
