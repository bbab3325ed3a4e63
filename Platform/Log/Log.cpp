#include "Log/Log.h"

#include <glib.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <utility>
#include <vector>

namespace platform {
namespace {

constexpr struct {
    const char* word;
    int minimum;
} kLevels[] = {
    {"trace", DLOG_PRIORITY_TRACE},
    {"progress", DLOG_PRIORITY_PROGRESS},
    {"info", LOG_INFO},
    {"warning", LOG_WARNING},
    {"error", LOG_ERROR},
    {"none", LOG_NOTHING},
};

constexpr size_t kLongestText = 512;  // bytes; longer lines are unreadable

int DefaultPriority() {
    int minimum = DLOG_PRIORITY_PROGRESS;
    if (const char* word = getenv("CONTENTS_MGR_LOG_LEVEL")) ParseLogLevel(word, minimum);
    return minimum;
}

std::atomic<int>& MinimumPriority() {
    static std::atomic<int> minimum{DefaultPriority()};
    return minimum;
}

struct Output {
    std::mutex mutex;
    std::function<void(const LogLine&)> sink;
    bool holds = false;
    std::vector<LogLine> held;
};

// Never destroyed: threads may log until the process ends.
Output& TheOutput() {
    static Output* output = new Output;
    return *output;
}

char PriorityLetter(int priority) {
    if (priority >= LOG_ERROR) return 'E';
    if (priority >= LOG_WARNING) return 'W';
    if (priority >= LOG_INFO) return 'I';
    if (priority >= DLOG_PRIORITY_PROGRESS) return 'P';
    return 'T';
}

std::string TimeStamp() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    char text[32];
    const size_t length = strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
    snprintf(text + length, sizeof text - length, ".%03ld", now.tv_nsec / 1000000);
    return text;
}

// The journal identifies its stream by device and inode. A descendant process may inherit the
// variable but have a different standard error.
bool IsJournal() {
    const char* stream = getenv("JOURNAL_STREAM");
    struct stat facts {};
    if (!stream || fstat(STDERR_FILENO, &facts) != 0) return false;
    return stream == std::to_string(facts.st_dev) + ':' + std::to_string(facts.st_ino);
}

std::string Escape(unsigned char byte) {
    if (byte == '\n') return "\\n";
    char code[8];
    snprintf(code, sizeof code, "\\x%02x", byte);
    return code;
}

// Control characters would break the rule of one line per call, or manipulate a terminal; and the
// journal does not show a line that is not UTF-8.
std::string Escaped(const std::string& text) {
    std::string result;
    result.reserve(text.size());
    const char* const end = text.data() + text.size();
    for (const char* at = text.data(); at < end;) {
        const gunichar c = g_utf8_get_char_validated(at, end - at);
        const bool isBad = c == static_cast<gunichar>(-1) || c == static_cast<gunichar>(-2);
        if (isBad || c < 0x20 || c == 0x7f) {
            result += Escape(static_cast<unsigned char>(*at++));
            continue;
        }
        const char* const next = g_utf8_next_char(at);
        result.append(at, next);
        at = next;
    }
    return result;
}

std::string Prefix(int priority) {
    const char* journal = JournalPrefix(priority);
    return *journal ? journal : TimeStamp() + ' ' + PriorityLetter(priority) + ' ';
}

void WriteToStandardError(const LogLine& line) {
    std::string text = line.text;
    while (!text.empty() && text.back() == '\n') text.pop_back();
    const std::string whole = Prefix(line.priority) + line.tag + ": " + Escaped(text) + '\n';
    // A full or closed standard error must not end the service.
    for (size_t done = 0; done < whole.size();) {
        const ssize_t wrote = write(STDERR_FILENO, whole.data() + done, whole.size() - done);
        if (wrote <= 0) return;
        done += static_cast<size_t>(wrote);
    }
}

// The caller holds the output's lock.
void Put(Output& output, LogLine line) {
    if (output.holds)
        output.held.push_back(std::move(line));
    else if (output.sink)
        output.sink(line);
    else
        WriteToStandardError(line);
}

// The whole characters among the first bytes, and the total number of bytes.
std::string Cut(const char* start, size_t whole) {
    std::string text(start, kLongestText);
    const char* end = nullptr;
    const bool isWhole = g_utf8_validate(text.data(), static_cast<gssize>(text.size()), &end);
    const auto valid = static_cast<size_t>(end - text.data());
    if (!isWhole && kLongestText - valid < 4) text.resize(valid);  // a character was cut in half
    return text + "... (" + std::to_string(whole) + " bytes)";
}

std::string Format(const char* format, va_list arguments) {
    char text[kLongestText + 1];
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the caller has started the list
    const int length = vsnprintf(text, sizeof text, format, arguments);
    if (length < 0) return format;  // a format that printf rejects is shown as it is
    const auto size = static_cast<size_t>(length);
    return size <= kLongestText ? std::string(text, size) : Cut(text, size);
}

}  // namespace

void SetLogPriority(int minimum) {
    MinimumPriority() = minimum;
}

bool ParseLogLevel(const std::string& word, int& minimum) {
    for (const auto& level : kLevels) {
        if (word != level.word) continue;
        minimum = level.minimum;
        return true;
    }
    return false;
}

void HoldLog() {
    Output& output = TheOutput();
    std::lock_guard<std::mutex> lock(output.mutex);
    output.holds = true;
}

void ReleaseLog() {
    Output& output = TheOutput();
    std::lock_guard<std::mutex> lock(output.mutex);
    output.holds = false;
    for (LogLine& line : std::exchange(output.held, {}))
        if (line.priority >= MinimumPriority()) Put(output, std::move(line));
}

const char* JournalPrefix(int priority) {
    static const bool isJournal = IsJournal();
    if (!isJournal) return "";
    if (priority >= LOG_ERROR) return "<3>";
    if (priority >= LOG_WARNING) return "<4>";
    return priority >= LOG_INFO ? "<6>" : "<7>";
}

void SetLogSink(std::function<void(const LogLine&)> sink) {
    Output& output = TheOutput();
    std::lock_guard<std::mutex> lock(output.mutex);
    output.sink = std::move(sink);
}

}  // namespace platform

int __dlog_print(int logId, int priority, const char* tag, const char* format, ...) {
    using namespace platform;
    if (logId != 0 || !tag || !format) return -1;
    if (priority < MinimumPriority()) return 0;
    try {
        va_list arguments;
        va_start(arguments, format);
        LogLine line{priority, tag, Format(format, arguments)};
        va_end(arguments);
        const auto size = static_cast<int>(line.text.size());
        Output& output = TheOutput();
        std::lock_guard<std::mutex> lock(output.mutex);
        Put(output, std::move(line));
        return size;
    } catch (...) {
        return -1;
    }
}
