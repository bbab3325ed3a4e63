// A line on standard error that shows the progress of a storage's scan.
#ifndef TOOLS_CONTENTSCTL_PROGRESS_H
#define TOOLS_CONTENTSCTL_PROGRESS_H

#include <string>

#include "Session.h"

namespace contentsctl {

// Rewrites one line on a terminal; with --progress elsewhere, prints a line for each change. Silent
// otherwise. The line is erased at the end.
class ProgressLine {
public:
    ProgressLine(Session& session, const Options& options, std::string storageId);
    ~ProgressLine();
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

    void Update();

private:
    void Show(const std::string& text);

    Session& m_session;
    const std::string m_storageId;
    const bool m_terminal;
    const bool m_silent;
    std::string m_shown;
};

}  // namespace contentsctl

#endif
