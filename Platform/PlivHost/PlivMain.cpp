#include <signal.h>
#include <stdio.h>

#include <exception>
#include <string>
#include <variant>

#include "Log/Log.h"
#include "MediaContent/MediaService.h"
#include "PlivHost.h"
#include "PlivHost/Names.h"
#include "PlivHost/Options.h"
#include "PlivHost/Server.h"
#include "Process/Descriptors.h"
#include "Process/Heap.h"
#include "UsbDevice/UsbService.h"

namespace dorn {

// The plugin's application object, which lives until the process ends: a debugger finds it here,
// and a leak checker sees that it is still referenced.
extern CPlivAppBase* theApplication;
CPlivAppBase* theApplication = nullptr;

namespace {

enum ExitStatus { EXIT_OK = 0, EXIT_CANNOT_SERVE = 1, EXIT_USAGE = 2 };

// Holds what the plugin logs before PlivMain until the command line has been parsed.
const bool kLogIsHeld = (platform::HoldLog(), true);

int Refuse(const char* program, const std::string& why, int status) {
    fprintf(stderr, "%s%s: %s\n", platform::JournalPrefix(platform::LOG_ERROR), program,
            why.c_str());
    if (status == EXIT_USAGE) fprintf(stderr, "Try \"%s --help\".\n", program);
    return status;
}

// The platform's services are configured before anyone can connect, and end after the last engine.
class Services {
public:
    explicit Services(const platform::HostOptions& options) {
        platform::ConfigureMediaService({options.databaseFile, options.extractor});
        platform::ConfigureUsbService(options.usb);
    }
    ~Services() {
        platform::ShutdownUsbService();
        platform::ShutdownMediaService();
    }
    Services(const Services&) = delete;
    Services& operator=(const Services&) = delete;
};

int Serve(const char* program, const platform::HostOptions& options, CPlivAppBase& app) {
    platform::ServerOptions server;
    server.bus = options.bus;
    server.socketPath = options.socketPath;
    server.scans = platform::CurrentScans;
    try {
        const Services services(options);
        platform::Server host(app, server);
        host.QuitOnSignals();
        PLATFORM_LOG(platform::kLogTag, platform::LOG_INFO, "serving %s",
                     options.socketPath.empty() ? platform::kBusName : options.socketPath.c_str());
        return host.Run() ? EXIT_OK : EXIT_CANNOT_SERVE;
    } catch (const std::exception& error) {
        return Refuse(program, error.what(), EXIT_CANNOT_SERVE);
    }
}

// Handles options that need no service; false for a command line that starts the service.
bool AnswersAtOnce(const platform::HostOptions& options) {
    if (options.help)
        fputs(platform::HostHelp().c_str(), stdout);
    else if (options.version)
        printf("contents-mgr %s\n", CM_VERSION);
    return options.help || options.version;
}

}  // namespace

int PlivMain(int argc, char** argv, CPlivAppBase* app) {
    theApplication = app;
    platform::KeepHeapSmall();
    const char* program = argc > 0 ? argv[0] : "contents-mgr";
    const auto parsed = platform::ParseHostOptions(argc, argv);
    const auto* fault = std::get_if<platform::UsageError>(&parsed);
    const auto* options = std::get_if<platform::HostOptions>(&parsed);
    if (fault || AnswersAtOnce(*options)) {
        platform::SetLogPriority(platform::LOG_NOTHING);
        return fault ? Refuse(program, fault->text, EXIT_USAGE) : EXIT_OK;
    }
    if (options->hasLogPriority) platform::SetLogPriority(options->logPriority);
    platform::ReleaseLog();
    platform::RaiseDescriptorLimit();
    signal(SIGPIPE, SIG_IGN);  // a standard error without a reader must not end the service
    return Serve(program, *options, *app);
}

}  // namespace dorn
