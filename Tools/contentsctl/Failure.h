// Why a command of the tool failed, and what to do about it.
#ifndef TOOLS_CONTENTSCTL_FAILURE_H
#define TOOLS_CONTENTSCTL_FAILURE_H

#include <stdexcept>
#include <string>
#include <utility>

namespace contentsctl {

enum ExitStatus { EXIT_DONE = 0, EXIT_REFUSED = 1, EXIT_USAGE = 2 };

// Ends the tool with `status`; the text goes to standard error, followed by a line with the hint.
class Failure : public std::runtime_error {
public:
    Failure(ExitStatus exitStatus, const std::string& text, std::string whatToDo = "")
        : std::runtime_error(text), status(exitStatus), hint(std::move(whatToDo)) {}

    const ExitStatus status;
    const std::string hint;
};

// Refused by the service, or failed while running.
class Refused : public Failure {
public:
    explicit Refused(const std::string& text, std::string whatToDo = "")
        : Failure(EXIT_REFUSED, text, std::move(whatToDo)) {}
};

// Wrong usage, or no service to talk to.
class Misused : public Failure {
public:
    explicit Misused(const std::string& text, std::string whatToDo = "")
        : Failure(EXIT_USAGE, text, std::move(whatToDo)) {}
};

}  // namespace contentsctl

#endif
