#include "Browse.h"

namespace contentsctl {
namespace {

// The start of the page whose files begin at number `file` or the one before it.
int64_t StartFor(int64_t file, int64_t folders) {
    if (file >= folders) return file;  // past the subfolders a page contains only files
    return (folders + file) / 2;       // folders on the page: folders - start
}

int64_t FirstFileAt(int64_t start, int64_t foldersOnPage) {
    return start > foldersOnPage ? start - foldersOnPage : 0;
}

}  // namespace

void FolderWalk::Run() {
    WalkFiles(WalkFolders());
}

int64_t FolderWalk::WalkFolders() {
    int64_t known = 0;
    for (;;) {
        const Json::Value page = m_query.Fetch(known, kMaxPage);
        for (const auto& folder : page["folders"]) m_onFolder(folder);
        known += page["folders"].size();
        if (page["folders"].size() < static_cast<unsigned>(kMaxPage) || page["isLastPage"].asBool())
            return known;
    }
}

void FolderWalk::WalkFiles(int64_t folders) {
    const int64_t total = m_query.Count() - folders;
    for (int64_t next = 0; next < total;) {
        const int64_t start = StartFor(next, folders);
        const Json::Value page = m_query.Fetch(start, kMaxPage);
        int64_t number = FirstFileAt(start, page["folders"].size());
        for (const auto& file : page["files"])
            if (number++ == next) {
                m_onFile(file);
                ++next;
            }
        if (number < next || page["files"].empty()) return;  // the folder has shrunk meanwhile
    }
}

}  // namespace contentsctl
