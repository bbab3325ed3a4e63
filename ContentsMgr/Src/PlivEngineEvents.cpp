// The engine's notifications. Names and keys are the clients' interface and must not change.
#include "CJsonHelper.h"
#include "JsonText.h"
#include "Log.h"
#include "PlivEngineContentsMgr.h"

namespace dorn {
namespace {

enum : int { EVENT_KIND_USB = 0, EVENT_KIND_CONTENTS = 1 };

// Null, not an empty array, for an empty list.
Json::Value ToArray(const std::vector<std::string>& texts) {
    Json::Value array;
    for (const std::string& text : texts) array.append(text);
    return array;
}

const char* ItemKey(MediaType type) {
    switch (type) {
        case MEDIA_TYPE_PHOTO:
            return "photos";
        case MEDIA_TYPE_VIDEO:
            return "videos";
        case MEDIA_TYPE_MUSIC:
            return "music";
        default:
            return nullptr;
    }
}

void SetPageMembers(Json::Value& page, int result, int id, bool isFirstPage, bool isLastPage) {
    page["id"] = id;
    page["result"] = result;
    page["isFirstPage"] = isFirstPage;
    page["isLastPage"] = isLastPage;
}

}  // namespace

void CPlivEngineContentsMgr::OnUsbConnectionChanged(bool connected,
                                                    boost::shared_ptr<CMediaStorage>& storage) {
    const std::string name = connected ? "USB_CONNECTED" : "USB_DISCONNECTED";
    Json::Value payload;
    CJsonHelper::GenerateStorageInfoJson(payload["storage"], storage);
    const std::string text = WriteJson(payload);
    CM_PROGRESS("[%s]:%s", name.c_str(), text.c_str());
    SendEvent(EVENT_KIND_USB, name, text);
}

void CPlivEngineContentsMgr::OnContentsRegistered(int result, int,
                                                  std::map<std::string, std::string>& succeeded,
                                                  std::vector<std::string>& failed) {
    Json::Value payload;
    payload["result"] = result;
    Json::Value& items = payload["succeeded"] = Json::Value(Json::arrayValue);
    for (const auto& [path, id] : succeeded) {
        Json::Value item;
        item["path"] = path;
        item["id"] = id;
        items.append(std::move(item));
    }
    payload["failed"] = ToArray(failed);
    const std::string text = WriteJson(payload);
    CM_PROGRESS("%s", text.c_str());
    SendEvent(EVENT_KIND_CONTENTS, "CONTETNS_REGISTER_COMPLETED", text);
}

void CPlivEngineContentsMgr::OnContentsUnregistered(int result, int,
                                                    std::vector<std::string>& succeeded,
                                                    std::vector<std::string>& failed) {
    Json::Value payload;
    payload["result"] = result;
    payload["succeeded"] = ToArray(succeeded);
    payload["failed"] = ToArray(failed);
    const std::string text = WriteJson(payload);
    CM_PROGRESS("%s", text.c_str());
    SendEvent(EVENT_KIND_CONTENTS, "CONTENTS_UNREGISTER_COMPLETED", text);
}

void CPlivEngineContentsMgr::OnSyncFinished(int result, std::string storageId) {
    CM_PROGRESS("Storage Sync Finished(%s), result [%d]", storageId.c_str(), result);
    SendEvent(EVENT_KIND_CONTENTS, result == 1 ? "SYNC_COMPLETED" : "SYNC_FAILED", storageId);
}

void CPlivEngineContentsMgr::OnMediaUpdated(int type, std::string) {
    CM_TRACE("TYPE: %d", type);
}

void CPlivEngineContentsMgr::OnQueryFinished(int result, int count) {
    CM_PROGRESS("Query Finished Result: %d, Count: %d", result, count);
    Json::Value payload;
    payload["result"] = result;
    if (result == 1) payload["count"] = count;
    const std::string text = WriteJson(payload);
    CM_PROGRESS("%s", text.c_str());
    SendEvent(EVENT_KIND_CONTENTS, "QUERY_COMPLETED", text);
}

void CPlivEngineContentsMgr::OnFetchFinished(int result, int id, Json::Value& items, MediaType type,
                                             bool isFirstPage, bool isLastPage) {
    CM_PROGRESS("Fetch Finished Result: %d, Id: %d", result, id);
    Json::Value payload;
    SetPageMembers(payload, result, id, isFirstPage, isLastPage);
    const char* key = ItemKey(type);
    const bool withItems = result == 1 && key;
    if (withItems) payload[key].swap(items);  // borrowed, as pages can be large
    std::string text = WriteJson(payload);
    if (withItems) payload[key].swap(items);
    SendEvent(EVENT_KIND_CONTENTS, "FETCH_COMPLETED", std::move(text));
}

void CPlivEngineContentsMgr::OnFetchFinished(int result, int id, Json::Value& items,
                                             bool isFirstPage, bool isLastPage) {
    CM_PROGRESS("Fetch Finished Result: %d, Id: %d", result, id);
    SetPageMembers(items, result, id, isFirstPage, isLastPage);
    SendEvent(EVENT_KIND_CONTENTS, "FETCH_COMPLETED", WriteJson(items));
}

}  // namespace dorn
