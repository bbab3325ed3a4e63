// The command line of the tool.
#ifndef TOOLS_CONTENTSCTL_OPTIONS_H
#define TOOLS_CONTENTSCTL_OPTIONS_H

#include <cstdint>
#include <string>
#include <vector>

namespace contentsctl {

struct Options {
    std::string address;  // D-Bus address; empty when a bus is used
    std::string bus;      // "session", "system" or empty
    bool json = false;
    bool progress = false;      // a progress line even if standard error is not a terminal
    bool noWait = false;        // use what the database knows now
    int64_t limit = INT64_MAX;  // items
    int timeout = 120;          // seconds; 0: for ever
    std::string waitFor;        // run: the name of an event
    bool help = false;
    bool version = false;
    std::vector<std::string> words;  // the verb and its arguments
};

// Throws Misused.
Options ParseOptions(int argc, char** argv);
std::string Help();

}  // namespace contentsctl

#endif
