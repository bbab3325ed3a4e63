#include "Log/Log.h"

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <mutex>

namespace platform {
namespace {

constexpr struct {
    const char* word;
    int minimum;
} kLevels[] = {
    {"trace", DLOG_PRIORITY_TRACE},
    {"progress", DLOG_PRIORITY_PROGRESS},
    {"warning", LOG_WARNING},
    {"error", LOG_ERROR},
    {"none", 1000},
};

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
};

// Never destroyed: threads may log until the very end of the process.
Output& TheOutput() {
    static Output* output = new Output;
    return *output;
}

char PriorityLetter(int priority) {
    if (priority >= LOG_ERROR) return 'E';
    if (priority >= LOG_WARNING) return 'W';
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

// Control characters would break the rule of one line a call, or play tricks on a terminal.
std::string Escaped(const std::string& text) {
    std::string result;
    result.reserve(text.size());
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '\n') {
            result += "\\n";
        } else if (byte < 0x20 || byte == 0x7f) {
            char code[8];
            snprintf(code, sizeof code, "\\x%02x", byte);
            result += code;
        } else {
            result += c;
        }
    }
    return result;
}

void WriteToStandardError(const LogLine& line) {
    std::string text = line.text;
    while (!text.empty() && text.back() == '\n') text.pop_back();
    const std::string whole = TimeStamp() + ' ' + PriorityLetter(line.priority) + ' ' + line.tag +
                              ": " + Escaped(text) + '\n';
    // A full or closed standard error must not end the service.
    for (size_t done = 0; done < whole.size();) {
        const ssize_t wrote = write(STDERR_FILENO, whole.data() + done, whole.size() - done);
        if (wrote <= 0) return;
        done += static_cast<size_t>(wrote);
    }
}

std::string Format(const char* format, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    char brief[512];
    const int length = vsnprintf(brief, sizeof brief, format, arguments);
    std::string text;
    if (length >= 0 && static_cast<size_t>(length) < sizeof brief) {
        text.assign(brief, static_cast<size_t>(length));
    } else if (length >= 0) {
        text.resize(static_cast<size_t>(length) + 1);
        vsnprintf(text.data(), text.size(), format, again);
        text.resize(static_cast<size_t>(length));
    } else {
        text = format;  // a format that printf refuses is shown as it stands
    }
    va_end(again);
    return text;
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
        const LogLine line{priority, tag, Format(format, arguments)};
        va_end(arguments);
        Output& output = TheOutput();
        std::lock_guard<std::mutex> lock(output.mutex);
        if (output.sink)
            output.sink(line);
        else
            WriteToStandardError(line);
        return static_cast<int>(line.text.size());
    } catch (...) {
        return -1;
    }
}
