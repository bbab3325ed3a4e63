// Counts and listings of the media database.
#ifndef PLATFORM_MEDIA_CONTENT_READER_H
#define PLATFORM_MEDIA_CONTENT_READER_H

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "MediaContent/Filter.h"
#include "MediaContent/Records.h"
#include "MediaContent/Store.h"
#include "MediaContent/Writer.h"

namespace platform {

// The storages to read: number and mount path (without a trailing slash) of each.
using Scope = std::map<int64_t, std::string>;

// What the database knows of one file, for the scanner.
struct KnownItem {
    int64_t number = 0;
    FileFacts facts;
    ItemState state = ItemState::Unread;
    bool pinned = false;
};

struct KnownPlace {
    int64_t number = 0;
    std::string folder;
    std::string name;
    bool pinned = false;
    FileFacts facts;
    media_content_type_e type = MEDIA_CONTENT_TYPE_OTHERS;
};

// Short-lived; every call borrows a connection. Throws DatabaseError and BadFilter. Callbacks run
// while no connection is held and may call the service.
class Reader {
public:
    explicit Reader(Store& store) : m_store(store) {}

    int64_t CountItems(const Scope& scope, const media_filter_s* filter);
    // `folder` limits the listing to the items directly in it; 0 means no limit.
    void ListItems(const Scope& scope, int64_t folder, const media_filter_s* filter,
                   const std::function<bool(const MediaRecord&)>& callback);
    // Null when there is no such item in the scope.
    MediaRecord FindItem(const Scope& scope, int64_t number);

    // The storage of a folder, 0 when there is no such folder.
    int64_t StorageOfFolder(int64_t folder);
    int64_t CountFolderItems(const Scope& scope, int64_t folder, const media_filter_s* filter);
    std::vector<FolderRecord> ListFolders(const Scope& scope, const media_filter_s* filter);

    // For the scanner: the items of one folder by name, the folders with items at or below a path,
    // and the items with a given inode.
    std::unordered_map<std::string, KnownItem> KnownItems(int64_t storage,
                                                          const std::string& folder);
    std::vector<std::string> KnownFolders(int64_t storage, const std::string& below);
    std::vector<KnownPlace> KnownPlaces(int64_t storage, int64_t inode);
    bool HoldsItems(int64_t storage);
    // The flag set by Writer::SetToBeReadAgain.
    bool IsToBeReadAgain(int64_t storage);
    // Storages last present before `before`, a time in seconds.
    std::vector<int64_t> StoragesUnseenSince(int64_t before);

private:
    Plan MakePlan(Connection& connection, const Scope& scope, int64_t folder,
                  const media_filter_s* filter);
    std::vector<MediaRecord> ReadRecords(Connection& connection, const Scope& scope,
                                         const std::vector<Position>& positions);
    int64_t CountBySql(Connection& connection, const Plan& plan);

    Store& m_store;
};

}  // namespace platform

#endif
