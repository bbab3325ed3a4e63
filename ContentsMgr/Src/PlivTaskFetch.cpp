// Pages of the current query.
#include <boost/make_shared.hpp>

#include "CJsonHelper.h"
#include "CMediaContentFolder.h"
#include "Log.h"
#include "MediaFilter.h"
#include "PlivEngineContentsMgr.h"
#include "PlivTaskContentsMgr.h"

namespace dorn {
namespace {

constexpr char kNewestFirstKey[] = "MEDIA_ADDED_TIME";
constexpr int kLargestPage = 1000;

bool IsFolderQuery(int requestId) {
    return requestId % 2 != 0;
}

bool IsLastPage(int total, const FetchInfo& fetch) {
    return total <= static_cast<long long>(fetch.startIndex) + fetch.count;
}

}  // namespace

// Returns 0 when counting fails.
int CPlivTaskContentsMgr::m_CountCurrent(int queryId, const QueryInfo& query) {
    int total = 0;
    if (IsFolderQuery(queryId))
        m_GetFolderCount(total, query);
    else
        m_GetMediaCount(total, query);
    return total;
}

bool CPlivTaskContentsMgr::Fetch(int startIndex, int count, int& fetchRequestId) {
    if (!m_connected) {
        CM_PROGRESS(" Media is NOT Connected");
        return false;
    }
    const int queryId = m_currentQueryId;
    QueryInfo query;
    if (!m_GetQueryInfo(query, queryId)) {
        CM_PROGRESS(" unavailable query ID \n");
        return false;
    }
    const int total = m_CountCurrent(queryId, query);
    if (count < 1 || count > kLargestPage || startIndex < 0 || startIndex > total) {
        CM_PROGRESS(" Error Invalid Parameter \n");
        return false;
    }
    FetchInfo fetch{queryId, startIndex, count, 0};
    return m_QueueJob(BytesOf(fetch), [&](CCMTaskJob& job, int id) {
        fetch.fetchRequestId = fetchRequestId = id;
        job.SetCommandType(COMMAND_TYPE_FETCH);
        job.SetFetchInfo(fetch);
    });
}

// The page comes from the query that is current now, not when the page was requested.
void CPlivTaskContentsMgr::m_Fetch(FetchInfo fetch) {
    const int queryId = m_currentQueryId;
    QueryInfo query;
    if (!m_GetQueryInfo(query, queryId)) CM_PROGRESS(" unavailable query ID \n");
    Json::Value page;
    if (IsFolderQuery(queryId)) {
        Json::Value folders(Json::arrayValue);
        Json::Value files(Json::arrayValue);
        int folderCount = 0;
        CJsonHelper::GenerateBelowFolderJson(folders, query.folderPath, fetch, folderCount);
        if (folderCount < fetch.count) m_GetFolderMediaContents(files, query, fetch, folderCount);
        page["folders"] = std::move(folders);
        page["files"] = std::move(files);
    } else {
        page = Json::Value(Json::arrayValue);
        m_GetMediaContents(page, query, fetch);
    }
    const int total = m_CountCurrent(queryId, query);
    auto* engine = m_engine.load();
    if (!engine) return;
    const bool isFirst = fetch.startIndex == 0;
    const bool isLast = IsLastPage(total, fetch);
    if (IsFolderQuery(queryId))
        engine->OnFetchFinished(1, fetch.fetchRequestId, page, isFirst, isLast);
    else
        engine->OnFetchFinished(1, fetch.fetchRequestId, page, query.mediaType, isFirst, isLast);
}

bool CPlivTaskContentsMgr::m_GetMediaContents(Json::Value& items, QueryInfo query,
                                              FetchInfo fetch) {
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
    if (media_filter_set_storage(filter, query.storageId.c_str()) != 0) {
        CM_PROGRESS("FAILED to media_filter_set_storage");
        return false;
    }
    if (media_filter_set_condition(filter, condition.c_str(), MEDIA_CONTENT_COLLATE_DEFAULT) != 0) {
        CM_PROGRESS("FAILED to media_filter_set_condition");
        return false;
    }
    if (media_filter_set_order(filter, MEDIA_CONTENT_ORDER_DESC, kNewestFirstKey,
                               MEDIA_CONTENT_COLLATE_DEFAULT) != 0) {
        CM_PROGRESS("FAILED to media_filter_set_order");
        return false;
    }
    if (media_filter_set_offset(filter, fetch.startIndex, fetch.count) != 0)
        CM_PROGRESS("FAILED TO media_filter_set_offset");
    if (media_info_foreach_media_from_db(filter, s_GetMediaCallback, &items) != 0) {
        CM_PROGRESS("FAILED to media_info_foreach_media_from_db");
        return false;
    }
    return true;
}

// Only the folders on this page count against it, whatever its start: clients page by this rule.
bool CPlivTaskContentsMgr::m_GetFolderMediaContents(Json::Value& files, QueryInfo query,
                                                    FetchInfo fetch, int folderCount) {
    std::string folderId;
    if (!m_GetFolderId(folderId, query)) {
        CM_PROGRESS("folderId is NULL or Wrong");
        return false;
    }
    MediaFilter filter(*this);
    if (!filter.Create()) {
        CM_PROGRESS("failed to meida_filter_create");
        filter.Forget();
        return false;
    }
    media_filter_set_condition(filter, kFolderItemsCondition, MEDIA_CONTENT_COLLATE_DEFAULT);
    if (media_filter_set_order(filter, MEDIA_CONTENT_ORDER_DESC, kNewestFirstKey,
                               MEDIA_CONTENT_COLLATE_DEFAULT) != 0)
        CM_PROGRESS("failed to media_filter_set_order");
    const int offset = fetch.startIndex > folderCount ? fetch.startIndex - folderCount : 0;
    if (media_filter_set_offset(filter, offset, fetch.count - folderCount) != 0)
        CM_PROGRESS("FAILED TO media_filter_set_offset");
    if (media_folder_foreach_media_from_db(folderId.c_str(), filter, s_GetFolderMediaCallback,
                                           &files) != 0)
        CM_PROGRESS("failed to media_folder_foreach_media_from_db");
    return true;
}

bool CPlivTaskContentsMgr::s_GetMediaCallback(media_info_s* media, void* userData) {
    CJsonHelper::GenerateMediaJson(media, *static_cast<Json::Value*>(userData));
    return true;
}

bool CPlivTaskContentsMgr::s_GetFolderMediaCallback(media_info_s* media, void* userData) {
    CJsonHelper::GenerateFolderMediaJson(media, *static_cast<Json::Value*>(userData));
    return true;
}

bool CPlivTaskContentsMgr::s_GetMediaFolderCallback(media_folder_s* folder, void* userData) {
    if (!folder) {
        CM_PROGRESS(" Folder is NULL \n");
        return true;
    }
    auto content = boost::make_shared<CMediaContentFolder>();
    content->SetMediaFolder(folder);
    auto& list = *static_cast<std::vector<boost::shared_ptr<CMediaContentFolder>>*>(userData);
    list.push_back(content);
    return true;
}

}  // namespace dorn
