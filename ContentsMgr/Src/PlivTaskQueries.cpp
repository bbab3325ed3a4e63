// Queries, counts, and the wait for a scan.
#include <boost/shared_ptr.hpp>
#include <chrono>

#include "CJsonHelper.h"
#include "CMediaContentFolder.h"
#include "DirectoryReader.h"
#include "LateFlag.h"
#include "Log.h"
#include "MediaFilter.h"
#include "PlivEngineContentsMgr.h"
#include "PlivTaskContentsMgr.h"

namespace dorn {
namespace {

using FolderList = std::vector<boost::shared_ptr<CMediaContentFolder>>;

enum : int { QUERY_FAILED = 0, QUERY_SUCCEEDED = 1, QUERY_TIMED_OUT = -10 };

// A GLib time-out on the default main context that sets a flag; removed on destruction. A call in
// progress on the main loop's thread can then still set its byte.
class ScanTimeout {
public:
    explicit ScanTimeout(LateFlag& flag)
        : m_source(g_timeout_source_new(ScanTimeoutMilliseconds())) {
        g_source_set_callback(m_source, CPlivTaskContentsMgr::s_TimeOutCallback, flag.ForSource(),
                              LateFlag::Unref);
        g_source_attach(m_source, nullptr);
    }
    ~ScanTimeout() {
        g_source_destroy(m_source);
        g_source_unref(m_source);
    }
    ScanTimeout(const ScanTimeout&) = delete;
    ScanTimeout& operator=(const ScanTimeout&) = delete;

private:
    GSource* m_source;
};

int ScanStatus(const std::string& storageId) {
    auto status = MEDIA_STORAGE_SCAN_STOPPED;
    media_storage_get_scan_status(storageId.c_str(), &status);
    return status;
}

}  // namespace

bool CPlivTaskContentsMgr::Query(std::string storageId, MediaType mediaType, std::string folderPath,
                                 std::string syncOption) {
    if (!m_connected) {
        CM_PROGRESS(" Media is NOT Connected");
        return false;
    }
    if (storageId.empty() || mediaType == MEDIA_TYPE_NONE) {
        CM_PROGRESS(" Error Invalid Parameter \n");
        return false;
    }
    {
        GMutexLock lock(m_processMutex);
        CM_TRACE(" m_processMutex.Lock() \n");
        QueryInfo query{storageId, mediaType, folderPath, 0, syncOption};
        CCMTaskJob job;
        if (!m_HoldJob(job, BytesOf(query), m_queries.CostOf(query))) return false;
        query.requestId = m_MakeRequestId(mediaType);
        job.SetCommandType(COMMAND_TYPE_QUERY);
        job.SetQueryInfo(query);
        m_jobs.Push(job);
        // Listed before it becomes current: whoever reads the current id finds its query.
        GMutexLock queryLock(m_queryMutex);
        m_queries.Add(query);
        m_currentQueryId = query.requestId;
    }
    m_jobSemaphore.Post();
    return true;
}

bool CPlivTaskContentsMgr::m_GetQueryInfo(QueryInfo& info, int requestId) {
    {
        GMutexLock lock(m_queryMutex);
        if (m_queries.Find(requestId, info)) return true;
    }
    CM_PROGRESS(" FAILED TO FIND QueryInfo \n");
    return false;
}

bool CPlivTaskContentsMgr::m_SetMediaType(MediaType type, std::string& condition) {
    switch (type) {
        case MEDIA_TYPE_MUSIC:
            condition = "MEDIA_TYPE=3";
            return true;
        case MEDIA_TYPE_PHOTO:
            condition = "MEDIA_TYPE=0";
            return true;
        case MEDIA_TYPE_VIDEO:
            condition = "MEDIA_TYPE=1";
            return true;
        default:
            CM_PROGRESS("[m_SetMediaType] - Error - Invalid Media Type");
            return false;
    }
}

bool CPlivTaskContentsMgr::m_DestroyFilter(media_filter_h filter) {
    if (media_filter_destroy(filter) == 0) return true;
    CM_PROGRESS("FAILED TO media_filter_destroy");
    return false;
}

bool CPlivTaskContentsMgr::m_GetMediaCount(int& count, QueryInfo query) {
    std::string condition;
    if (!m_SetMediaType(query.mediaType, condition)) {
        CM_PROGRESS("FAILED TO SET MEDIA TYPE");
        return false;
    }
    MediaFilter filter(*this);
    if (!filter.Create()) {
        CM_PROGRESS("FAILED TO media_filter_create");
        return false;
    }
    if (media_filter_set_storage(filter, query.storageId.c_str()) != 0 ||
        media_filter_set_condition(filter, condition.c_str(), MEDIA_CONTENT_COLLATE_DEFAULT) != 0 ||
        media_info_get_media_count_from_db(filter, &count) != 0)
        return false;
    CM_TRACE(" Media Count : %d", count);
    return true;
}

bool CPlivTaskContentsMgr::m_GetFolderId(std::string& folderId, QueryInfo query) {
    FolderList folders;
    MediaFilter filter(*this);
    if (!filter.Create()) {
        CM_PROGRESS("FAILED TO media_filter_create ");
        return true;
    }
    if (media_filter_set_storage(filter, query.storageId.c_str()) != 0) {
        CM_PROGRESS("FAILED TO media_filter_set_storage");
        return false;
    }
    media_filter_set_condition(filter, "FOLDER_STORAGE_TYPE = 1", MEDIA_CONTENT_COLLATE_NOCASE);
    if (media_folder_foreach_folder_from_db(filter, s_GetMediaFolderCallback, &folders) != 0)
        CM_PROGRESS("Error media_folder_foreach_folder_from_db \n");
    // If several folders have that path, the last one wins.
    for (const auto& folder : folders) {
        const std::string path = CJsonHelper::ConvertCharToString(folder->GetFolderPath());
        if (path != query.folderPath) continue;
        folderId = CJsonHelper::ConvertCharToString(folder->GetFolderUUID());
        CM_TRACE(" folderId is  :  %s \n", folderId.c_str());
    }
    return true;
}

bool CPlivTaskContentsMgr::m_GetFolderCount(int& count, QueryInfo query) {
    std::string folderId;
    m_GetFolderId(folderId, query);
    if (!folderId.empty()) {
        MediaFilter filter(*this);
        if (filter.Create()) {
            media_filter_set_condition(filter, kFolderItemsCondition,
                                       MEDIA_CONTENT_COLLATE_DEFAULT);
            if (media_folder_get_media_count_from_db(folderId.c_str(), filter, &count) != 0)
                CM_PROGRESS("Error media_folder_get_media_count_from_db \n");
        }
    }
    DirectoryReader reader(query.folderPath);
    if (!reader.IsOpen()) {
        CM_PROGRESS("FAILED TO OPEN DIR");
        count = 0;
        return false;
    }
    DirectoryReader::Step step;
    while ((step = reader.Next()) == DirectoryReader::Step::Subfolder) ++count;
    reader.Close();
    if (step != DirectoryReader::Step::End)
        CM_PROGRESS("Failed while reading entries!!, %s", query.folderPath.c_str());
    if (step == DirectoryReader::Step::Error) {
        count = 0;
        return false;
    }
    CM_TRACE("Count is %d", count);
    return true;
}

bool CPlivTaskContentsMgr::GetCount(int requestId, int& count) {
    QueryInfo query;
    if (!m_GetQueryInfo(query, requestId)) {
        CM_PROGRESS(" unavailable query ID \n");
        return false;
    }
    if (requestId % 2 != 0)
        m_GetFolderCount(count, query);
    else
        m_GetMediaCount(count, query);
    return true;
}

void CPlivTaskContentsMgr::m_Query(QueryInfo query) {
    const bool isFolder = query.mediaType == MEDIA_TYPE_FOLDER;
    if (isFolder || query.syncOption == "true") {
        const WaitEnd end = m_WaitForScan(query);
        if (!m_running) return;
        if (end == WaitEnd::TimedOut) {
            if (auto* engine = m_engine.load()) engine->OnQueryFinished(QUERY_TIMED_OUT, 0);
            return;
        }
    }
    int count = 0;
    bool counted = false;
    switch (query.mediaType) {
        case MEDIA_TYPE_FOLDER:
            counted = m_GetFolderCount(count, query);
            break;
        case MEDIA_TYPE_MUSIC:
        case MEDIA_TYPE_PHOTO:
        case MEDIA_TYPE_VIDEO:
            counted = m_GetMediaCount(count, query);
            break;
        default:
            break;
    }
    if (auto* engine = m_engine.load())
        engine->OnQueryFinished(counted ? QUERY_SUCCEEDED : QUERY_FAILED, count);
}

// The two bytes outlive this call for as long as a callback may still set them.
CPlivTaskContentsMgr::WaitEnd CPlivTaskContentsMgr::m_WaitForScan(const QueryInfo& query) {
    if (ScanStatus(query.storageId) == MEDIA_STORAGE_SCAN_COMPLETE) return WaitEnd::Complete;
    LateFlag timedOut;
    LateFlag scanned;
    ScanTimeout timeout(timedOut);
    if (query.mediaType == MEDIA_TYPE_FOLDER) {
        void* byte = scanned.ForSingleCallback();
        if (media_content_scan_folder(query.folderPath.c_str(), false,
                                      s_FolderScanCompletedCallback, byte) != 0)
            scanned.NoCallback();
    }
    return m_PollScan(query, timedOut, scanned);
}

// Polls once a second: this worker is not notified of a scan's end. Once the watchers are gone no
// main loop may be left to deliver the time-out; the steady clock then ends the same minute.
CPlivTaskContentsMgr::WaitEnd CPlivTaskContentsMgr::m_PollScan(const QueryInfo& query,
                                                               const LateFlag& timedOut,
                                                               const LateFlag& scanned) {
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + std::chrono::milliseconds(ScanTimeoutMilliseconds());
    const bool isFolder = query.mediaType == MEDIA_TYPE_FOLDER;
    for (;;) {
        int status = MEDIA_STORAGE_SCAN_STOPPED;
        if (!isFolder) status = ScanStatus(query.storageId);
        const bool expired = timedOut.IsSet() || Clock::now() >= deadline;
        if (scanned.IsSet() && !expired) return WaitEnd::Complete;
        if (expired) {
            CM_PROGRESS(" TimeOut Occured \n");
            return WaitEnd::TimedOut;
        }
        if (status == MEDIA_STORAGE_SCAN_COMPLETE) return WaitEnd::Complete;
        CM_TRACE("Sync is Not Complete. It will be checked 1 Second after \n");
        if (!m_stop.Pause()) return WaitEnd::TimedOut;
    }
}

gboolean CPlivTaskContentsMgr::s_TimeOutCallback(void* flag) {
    LateFlag::Set(flag);
    return G_SOURCE_REMOVE;
}

}  // namespace dorn
