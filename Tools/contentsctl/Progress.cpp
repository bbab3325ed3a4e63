#include "Progress.h"

#include <stdio.h>
#include <unistd.h>

#include <utility>

namespace contentsctl {
namespace {

std::string Describe(const Scan& scan) {
    const std::string seen = std::to_string(scan.filesSeen);
    const std::string read = std::to_string(scan.filesRead);
    if (scan.walking) return "scanning: " + seen + " media files found so far, " + read + " read";
    return "scanning: " + read + " read, of " + seen + " media files";
}

}  // namespace

ProgressLine::ProgressLine(Session& session, const Options& options, std::string storageId)
    : m_session(session),
      m_storageId(std::move(storageId)),
      m_terminal(isatty(STDERR_FILENO) == 1),
      m_silent(!m_terminal && !options.progress) {}

ProgressLine::~ProgressLine() {
    if (m_terminal && !m_shown.empty()) fputs("\r\x1b[K", stderr);
}

void ProgressLine::Update() {
    if (m_silent) return;
    for (const Scan& scan : m_session.Scans())
        if (scan.storageId == m_storageId) {
            Show(Describe(scan));
            return;
        }
    Show("waiting for the answer");
}

void ProgressLine::Show(const std::string& text) {
    if (text == m_shown) return;
    m_shown = text;
    fprintf(stderr, m_terminal ? "\r\x1b[K%s" : "%s\n", text.c_str());
    fflush(stderr);
}

}  // namespace contentsctl
