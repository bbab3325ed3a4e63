// Child processes.
#ifndef TESTS_SERVICE_PROGRAM_H
#define TESTS_SERVICE_PROGRAM_H

#include <sys/types.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "Support/Basics.h"

namespace test {

struct Outcome {
    int status;  // exit status; 128 + signal when killed; -1 when it did not end in time
    std::string output;
    std::string errors;
};

using Variables = std::vector<std::pair<std::string, std::string>>;

// Runs a program to its end, or kills it past the deadline.
Outcome RunProgram(const std::vector<std::string>& arguments, const Variables& environment = {});

// One that runs beside the test. Its output is appended to the file, and so are its errors when
// there is none for them. One thread at a time.
class Program {
public:
    // `inChild` runs before the program does, in a copy of this process: async-signal-safe calls
    // only.
    Program(const std::vector<std::string>& arguments, const std::string& logFile,
            const Variables& environment = {}, const std::string& errorFile = "",
            const std::function<void()>& inChild = nullptr);
    ~Program();  // kills it when it still runs
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    void Signal(int number) const;
    bool IsRunning();
    // Waits for its end; the status as in Outcome.
    int Wait(std::chrono::seconds deadline = 2 * kDeadline);
    pid_t Pid() const { return m_pid; }

private:
    pid_t m_pid;
    bool m_ended = false;
    int m_status = -1;
};

std::string ReadFile(const std::string& path);
// Waits until the file holds the text; false at the deadline.
bool WaitForText(const std::string& path, const std::string& text);

}  // namespace test

#endif
