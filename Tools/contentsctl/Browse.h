// All of one folder, assembled from the service's pages.
#ifndef TOOLS_CONTENTSCTL_BROWSE_H
#define TOOLS_CONTENTSCTL_BROWSE_H

#include "Pages.h"

namespace contentsctl {

// Calls `onFolder` for every subfolder, then `onFile` for every media file, once each.
//
// A page of the service lists subfolders from its start on; if there is room left, files follow,
// and the first file's number is the page's start minus the number of subfolders on that page. So
// the start of each page of files is computed backwards from the file wanted.
class FolderWalk {
public:
    FolderWalk(Query& query, std::function<void(const Json::Value&)> onFolder,
               std::function<void(const Json::Value&)> onFile)
        : m_query(query), m_onFolder(std::move(onFolder)), m_onFile(std::move(onFile)) {}

    void Run();

private:
    int64_t WalkFolders();
    void WalkFiles(int64_t folders);

    Query& m_query;
    const std::function<void(const Json::Value&)> m_onFolder;
    const std::function<void(const Json::Value&)> m_onFile;
};

}  // namespace contentsctl

#endif
