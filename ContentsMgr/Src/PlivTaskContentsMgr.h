#ifndef CONTENTS_MGR_PLIV_TASK_CONTENTS_MGR_H
#define CONTENTS_MGR_PLIV_TASK_CONTENTS_MGR_H

#include <json/json.h>

#include <atomic>
#include <boost/shared_ptr.hpp>
#include <memory>
#include <string>
#include <vector>

#include "CCMTaskJob.h"
#include "CMediaStorage.h"
#include "CSafeQ.h"
#include "GMutexLock.h"
#include "JobSize.h"
#include "MediaContent.h"
#include "Pause.h"
#include "QueryList.h"
#include "ThreadCM.h"
#include "UsbDevice.h"

namespace dorn {

class CPlivEngineContentsMgr;
class LateFlag;
class SyncCompletionWatcher;
class USBConnectionWatcher;

// Declared for future clients; nothing sets it yet.
enum SyncState : int {
    SYNC_STATE_UNKNOWN = 0,
    SYNC_STATE_RUNNING = 1,
    SYNC_STATE_COMPLETED = 2,
};

// One engine's task manager: its connection to the platform, its storages, its queries, and the
// worker thread that runs the long database work.
//
// Threads: "commands" is the framework's thread of this engine, one at a time; "worker" the thread
// of this object; "dispatcher" whichever thread runs the default main context, possibly that of
// another engine's watcher. Operations return true for success and log failures.
// Lock order: m_processMutex, then the queue's or the query list's own mutex; the storage mutex is
// never held together with them. No lock is held while a job runs or the engine is called.
class CPlivTaskContentsMgr : public ThreadCM {
public:
    using StorageList = std::vector<boost::shared_ptr<CMediaStorage>>;

    CPlivTaskContentsMgr();  // the worker is running on return
    // Disconnects if connected, stops the worker after its current job (a scan wait ends at once),
    // frees the jobs still queued, and returns once no callback is inside any more.
    ~CPlivTaskContentsMgr() override;

    // The engine that receives the results; not owned. Call once, before the first command.
    bool SetEngineHandle(CPlivEngineContentsMgr* engine);

    // ---- Connection and storages (commands) ----

    // True also when already connected.
    bool Connect();
    // False when not connected, or when the database refuses to disconnect: then it is still
    // connected, but without notifications, and the call may be retried.
    bool Disconnect();
    // Discovers the storages again and appends them to `out`. May pause for two seconds, with the
    // storage mutex held, while the database has not recorded a stick yet.
    bool GetStorages(StorageList& out);

    // ---- Queries (commands) ----

    // Commands that queue work are refused, with a log line, when the client has reached its limit
    // of what the service holds for it.

    // Registers a query, makes it the current one and queues its count.
    bool Query(std::string storageId, MediaType mediaType, std::string folderPath,
               std::string syncOption);
    // Counts a registered query now. True whenever the id is known, even when counting fails.
    bool GetCount(int requestId, int& count);
    // Queues a page of the current query; blocks for a fresh count.
    bool Fetch(int startIndex, int count, int& fetchRequestId);
    // Queue an insertion of files or a removal of records.
    bool RegisterContents(std::string storageId, std::vector<std::string> paths, int& requestId);
    bool UnregisterContents(std::string storageId, std::vector<std::string> mediaIds,
                            int& requestId);

    // The database synchronises by itself: both do nothing and return true.
    bool StopSync(std::string storageId);
    bool GetSyncState(std::string storageId, SyncState& state);

    // ---- Worker ----

    void t_Main() override;
    // Runs every queued job, oldest first. A job of an unknown type is logged and stays.
    void m_Process();
    void m_Query(QueryInfo query);
    void m_Fetch(FetchInfo fetch);
    void m_RegisterContents(InsertDeleteInfo info);
    void m_UnregisterContents(InsertDeleteInfo info);

    // ---- Helpers of the above (any thread, unless noted otherwise) ----

    // The next request id: odd for folder queries (1), even for media queries, the next number
    // for anything else (0). The caller holds m_processMutex.
    int m_MakeRequestId(int mediaType);
    bool m_GetQueryInfo(QueryInfo& info, int requestId);
    bool m_SetMediaType(MediaType type, std::string& condition);
    bool m_GetMediaCount(int& count, QueryInfo query);
    // Adds to `count`: the folder's items in the database, and its visible subfolders on disk.
    bool m_GetFolderCount(int& count, QueryInfo query);
    // The database's id of the query's folder; unchanged when the folder is unknown.
    bool m_GetFolderId(std::string& folderId, QueryInfo query);
    bool m_DestroyFilter(media_filter_h filter);
    bool m_GetMediaContents(Json::Value& items, QueryInfo query, FetchInfo fetch);
    bool m_GetFolderMediaContents(Json::Value& files, QueryInfo query, FetchInfo fetch,
                                  int folderCount);

    // The caller must hold the storage mutex if `list` is the storage list.
    bool m_GetStorages(StorageList& list);
    bool m_AddStorage(usb_device_s* device, StorageList& list);
    bool m_SetStorageInfo(void* mediaStorage, usb_device_s* device, StorageList& list);
    bool m_UpdateStorageInfo(void* mediaStorage, usb_device_s* device, StorageList& list);
    bool m_GetStorageInfo(usb_device_s* device, boost::shared_ptr<CMediaStorage>& out);
    void m_DestroyUSBList(usb_device_list_s* list);

    // The listed storage mounted at that path, or null. Takes the storage mutex.
    boost::shared_ptr<CMediaStorage> m_GetStorageByMountPath(std::string mountPath);

    // Updates the storage list from one notification and sets `storage` to the record to report.
    // Takes the storage mutex, also during pauses.
    void m_UpdateSotrages(usb_device_s* device, boost::shared_ptr<CMediaStorage>& storage,
                          bool connected);
    void m_OnUsbConnectionChanged(bool connected, boost::shared_ptr<CMediaStorage>& storage);
    void m_OnSyncFinished(int error, std::string storageId);
    void m_OnMediaUpdated(int updateType, std::string path);

    // ---- The platform's callbacks ----

    // Dispatcher; `userData` is the task manager, which may be gone.
    static void s_USBConnctedCallback(usb_device_s* device, char* action, void* userData);
    static void s_SyncCompletedCallback(media_content_error_e error, int pid,
                                        media_content_db_update_item_type_e itemType,
                                        media_content_db_update_type_e updateType,
                                        media_content_type_e mediaType, char* uuid, char* path,
                                        char* mimeType, void* userData);
    // Set the byte at their user data; any thread, at any time.
    static gboolean s_TimeOutCallback(void* flag);
    static void s_FolderScanCompletedCallback(media_content_error_e error, void* userData);
    // Called during a listing, on its thread; `userData` is the collector. Always true.
    static bool s_GetStorageCallback(void* storage, void* userData);
    static bool s_GetMediaCallback(media_info_s* media, void* userData);
    static bool s_GetFolderMediaCallback(media_info_s* media, void* userData);
    static bool s_GetMediaFolderCallback(media_folder_s* folder, void* userData);

private:
    enum class WaitEnd { Complete, TimedOut };

    void m_RunJob(const CCMTaskJob& job);
    // Creates a request id, lets `fill(job, id)` complete the job, queues it and wakes the worker.
    // False, without any effect, when that would exceed the client's limit.
    template <typename Fill>
    bool m_QueueJob(const JobBytes& bytes, Fill fill);
    // Counts the job, and `more` bytes, to the client. The caller holds m_processMutex.
    bool m_HoldJob(CCMTaskJob& job, const JobBytes& bytes, size_t more);
    void m_LetJobGo(size_t bytes);
    WaitEnd m_WaitForScan(const QueryInfo& query);
    WaitEnd m_PollScan(const QueryInfo& query, const LateFlag& timedOut, const LateFlag& scanned);
    int m_CountCurrent(int queryId, const QueryInfo& query);
    bool m_ListStoragesAnew();
    void m_CloseAfterFailedConnect();
    void m_StartWatchers();
    bool m_PairStorages(const std::vector<usb_device_s*>& sticks, StorageList& list);
    bool m_PairOnce(const std::vector<usb_device_s*>& sticks, StorageList& list, bool& complete);
    bool m_PairDevice(usb_device_s* device, const std::string& path, StorageList& list,
                      bool& found);
    bool m_AddCameras(StorageList& list);
    void m_ReportScanEnd(int error, const std::string& path);

    // Constant after construction, or internally synchronised.
    std::atomic<CPlivEngineContentsMgr*> m_engine{nullptr};
    std::atomic<bool> m_connected{false};
    std::atomic<bool> m_running{true};
    StopSignal m_stop;          // raised permanently by the destructor
    StopSignal m_endPairing;    // raised while notifications are being stopped
    SemphoreCM m_jobSemaphore;  // posted once per queued job
    CSafeQ<CCMTaskJob> m_jobs;
    std::atomic<int> m_currentQueryId{0};
    std::atomic<gint64> m_usbEventStart{0};  // packed seconds and microseconds; logging only

    // Guarded by m_processMutex.
    OwnGMutex m_processMutex;
    int m_requestId = 0;
    size_t m_countedJobs = 0;   // waiting or running
    size_t m_runningBytes = 0;  // counted for the largest of these: only one runs at a time

    // Guarded by m_queryMutex, which is held for one copy. Only commands change it, so commands
    // read it without the mutex.
    OwnGMutex m_queryMutex;
    QueryList m_queries;

    // Guarded by m_storageMutex, except that Disconnect empties the list without it: Disconnect,
    // and the one reader that may run at the same time, hold m_storageClearMutex for one copy.
    OwnGMutex m_storageMutex;
    OwnGMutex m_storageClearMutex;
    StorageList m_storages;

    // Commands only.
    std::unique_ptr<USBConnectionWatcher> m_usbWatcher;
    std::unique_ptr<SyncCompletionWatcher> m_syncWatcher;
};

template <typename Fill>
bool CPlivTaskContentsMgr::m_QueueJob(const JobBytes& bytes, Fill fill) {
    {
        GMutexLock lock(m_processMutex);
        CCMTaskJob job;
        if (!m_HoldJob(job, bytes, 0)) return false;
        fill(job, m_MakeRequestId(MEDIA_TYPE_NONE));
        m_jobs.Push(job);
    }
    m_jobSemaphore.Post();
    return true;
}

}  // namespace dorn

#endif
