// Registration and removal of content.
#include <cstdlib>
#include <map>
#include <utility>

#include "LateFlag.h"
#include "Log.h"
#include "PlatformText.h"
#include "PlivEngineContentsMgr.h"
#include "PlivTaskContentsMgr.h"

namespace dorn {
namespace {

// Owns the record that an insertion returns.
struct InsertedMedia {
    media_info_h handle = nullptr;
    InsertedMedia() = default;
    ~InsertedMedia() {
        if (handle) media_info_destroy(handle);
    }
    InsertedMedia(const InsertedMedia&) = delete;
    InsertedMedia& operator=(const InsertedMedia&) = delete;
};

using Registered = std::map<std::string, std::string>;

// A file whose record has no readable id is reported neither as registered nor as failed.
void RegisterOne(const std::string& path, Registered& registered,
                 std::vector<std::string>& failed) {
    InsertedMedia media;
    const int error = media_info_insert_to_db(path.c_str(), &media.handle);
    if (error != 0) {
        CM_PROGRESS("FAILED to Insertion  : %s (error:%d) \n", path.c_str(), error);
        failed.push_back(path);
        return;
    }
    PlatformText id;
    if (media_info_get_media_id(media.handle, id.Out()) == 0) registered.emplace(path, id.Get());
}

}  // namespace

bool CPlivTaskContentsMgr::RegisterContents(std::string, std::vector<std::string> paths,
                                            int& requestId) {
    if (!m_connected) {
        CM_PROGRESS(" Media is NOT Connected");
        return false;
    }
    if (paths.empty()) {
        CM_PROGRESS("paths is NULL \n");
        return false;
    }
    InsertDeleteInfo info{0, std::move(paths)};
    return m_QueueJob(BytesOf(info), [&](CCMTaskJob& job, int id) {
        info.requestId = requestId = id;
        job.SetCommandType(COMMAND_TYPE_REGISTER);
        job.SetInsertDeleteInfo(std::move(info));
    });
}

bool CPlivTaskContentsMgr::UnregisterContents(std::string, std::vector<std::string> mediaIds,
                                              int& requestId) {
    if (!m_connected) {
        CM_PROGRESS(" Media is NOT Connected");
        return false;
    }
    if (mediaIds.empty()) {
        CM_PROGRESS(" MeidaIds is NULL \n");
        return false;
    }
    InsertDeleteInfo info{0, std::move(mediaIds)};
    return m_QueueJob(BytesOf(info), [&](CCMTaskJob& job, int id) {
        info.requestId = requestId = id;
        job.SetCommandType(COMMAND_TYPE_UNREGISTER);
        job.SetInsertDeleteInfo(std::move(info));
    });
}

// A long list does not delay the engine's destruction: the remaining items are not reported.
void CPlivTaskContentsMgr::m_RegisterContents(InsertDeleteInfo info) {
    Registered registered;
    std::vector<std::string> failed;
    for (const std::string& path : info.items) {
        if (!m_running) return;
        RegisterOne(path, registered, failed);
    }
    const int allSucceeded = registered.size() == info.items.size() ? 1 : 0;
    if (auto* engine = m_engine.load())
        engine->OnContentsRegistered(allSucceeded, info.requestId, registered, failed);
}

void CPlivTaskContentsMgr::m_UnregisterContents(InsertDeleteInfo info) {
    std::vector<std::string> removed;
    std::vector<std::string> failed;
    for (const std::string& id : info.items) {
        if (!m_running) return;
        const int error = media_info_delete_from_db(id.c_str());
        if (error == 0) {
            removed.push_back(id);
            continue;
        }
        CM_PROGRESS(" FAILED to Delete!! : %s (error:%d)\n", id.c_str(), error);
        failed.push_back(id);
    }
    const int allSucceeded = removed.size() == info.items.size() ? 1 : 0;
    if (auto* engine = m_engine.load())
        engine->OnContentsUnregistered(allSucceeded, info.requestId, removed, failed);
}

void CPlivTaskContentsMgr::s_FolderScanCompletedCallback(media_content_error_e, void* userData) {
    LateFlag::Set(userData);
}

}  // namespace dorn
