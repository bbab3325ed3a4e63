// Why a command of the tool could not be done, and what to do about it.
#ifndef TOOLS_CONTENTSCTL_FAILURE_H
#define TOOLS_CONTENTSCTL_FAILURE_H

#include <stdexcept>
#include <string>
#include <utility>

namespace contentsctl {

enum ExitStatus { EXIT_DONE = 0, EXIT_REFUSED = 1, EXIT_USAGE = 2 };

// Ends the tool with `status`; the text goes to standard error, the hint on a line below it.
class Failure : public std::runtime_error {
public:
    Failure(ExitStatus exitStatus, const std::string& text, std::string whatToDo = "")
        : std::runtime_error(text), status(exitStatus), hint(std::move(whatToDo)) {}

    const ExitStatus status;
    const std::string hint;
};

// Refused by the service, or failed on the way.
class Refused : public Failure {
public:
    explicit Refused(const std::string& text, std::string whatToDo = "")
        : Failure(EXIT_REFUSED, text, std::move(whatToDo)) {}
};

// Called in a wrong way, or nobody to talk to.
class Misused : public Failure {
public:
    explicit Misused(const std::string& text, std::string whatToDo = "")
        : Failure(EXIT_USAGE, text, std::move(whatToDo)) {}
};

}  // namespace contentsctl

#endif
