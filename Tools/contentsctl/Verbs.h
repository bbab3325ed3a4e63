// The tool's commands.
#ifndef TOOLS_CONTENTSCTL_VERBS_H
#define TOOLS_CONTENTSCTL_VERBS_H

#include <string>
#include <vector>

#include "Options.h"
#include "Session.h"

namespace contentsctl {

using Words = std::vector<std::string>;

struct Verb {
    const char* name;
    const char* arguments;  // for the error message about wrong arguments
    size_t fewest;
    size_t most;
    void (*run)(Session& session, const Options& options, const Words& arguments);
};

// Null for an unknown name.
const Verb* FindVerb(const std::string& name);

// Each throws Failure.
void RunStorages(Session& session, const Options& options, const Words& arguments);
void RunCount(Session& session, const Options& options, const Words& arguments);
void RunQuery(Session& session, const Options& options, const Words& arguments);
void RunFetch(Session& session, const Options& options, const Words& arguments);
void RunBrowse(Session& session, const Options& options, const Words& arguments);
void RunRegister(Session& session, const Options& options, const Words& arguments);
void RunUnregister(Session& session, const Options& options, const Words& arguments);
void RunMonitor(Session& session, const Options& options, const Words& arguments);
void RunCommand(Session& session, const Options& options, const Words& arguments);

}  // namespace contentsctl

#endif
