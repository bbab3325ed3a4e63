#include <stdio.h>

#include <exception>

#include "Failure.h"
#include "Options.h"
#include "Output.h"
#include "Verbs.h"

namespace contentsctl {
namespace {

// Media commands need a connected service; "run" sends exactly what the user asked for.
bool ConnectsItself(const Options& options) {
    const bool bare = options.words[0] == "run";
    return !bare || (options.words[1] != "Connect" && options.words[1] != "Disconnect");
}

const Verb& CheckedVerb(const Options& options) {
    if (options.words.empty()) throw Misused("no command is given", "See contentsctl --help.");
    const Verb* verb = FindVerb(options.words[0]);
    if (!verb)
        throw Misused("there is no command \"" + options.words[0] + "\"",
                      "See contentsctl --help.");
    const size_t given = options.words.size() - 1;
    if (given < verb->fewest || given > verb->most)
        throw Misused("wrong number of arguments",
                      std::string("It is: contentsctl ") + verb->name + " " + verb->arguments);
    if (!options.waitFor.empty() && options.words[0] != "run")
        throw Misused("--wait goes with \"run\"");
    return *verb;
}

void Run(const Options& options) {
    const Verb& verb = CheckedVerb(options);
    Session session(options);
    if (ConnectsItself(options)) session.Connect();
    verb.run(session, options, {options.words.begin() + 1, options.words.end()});
}

}  // namespace
}  // namespace contentsctl

int main(int argc, char** argv) {
    using namespace contentsctl;
    try {
        const Options options = ParseOptions(argc, argv);
        if (options.help)
            fputs(Help().c_str(), stdout);
        else if (options.version)
            puts("contentsctl " CM_VERSION);
        else
            Run(options);
        FlushOutput();
        return EXIT_DONE;
    } catch (const Failure& failure) {
        fflush(stdout);
        fprintf(stderr, "contentsctl: %s\n", failure.what());
        if (!failure.hint.empty()) fprintf(stderr, "%s\n", failure.hint.c_str());
        return failure.status;
    } catch (const std::exception& error) {
        fprintf(stderr, "contentsctl: %s\n", error.what());
        return EXIT_REFUSED;
    }
}
