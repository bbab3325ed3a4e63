// All changes of the media database go through here, a batch a transaction.
#ifndef PLATFORM_MEDIA_CONTENT_WRITER_H
#define PLATFORM_MEDIA_CONTENT_WRITER_H

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "MediaContent.h"
#include "MediaContent/Database.h"
#include "MediaContent/Extract/Metadata.h"

namespace platform {

constexpr int kMediaTypes = 5;

// What was learnt by opening a file.
enum class ItemState {
    Unread = 0,  // not opened yet: to be tried again at the next scan
    Read = 1,
    Failed = 2,      // not readable as media; tried again only when the file changes
    PassedOver = 3,  // not opened: others took too long; tried when the storage has changed
};

// What stat tells of a file, and by which a change is recognised.
struct FileFacts {
    int64_t size = -1;       // bytes; below 0: nothing is known of the file yet
    int64_t modified = 0;    // seconds, UTC
    int64_t modifiedNs = 0;  // nanoseconds on top
    int64_t inode = 0;
};

inline bool SameContent(const FileFacts& a, const FileFacts& b) {
    return a.size == b.size && a.modified == b.modified && a.modifiedNs == b.modifiedNs;
}

struct Change {
    enum Kind {
        PUT,     // the file has this content: insert it, or bring its item up to date
        MOVE,    // the item is now found elsewhere, with the same content
        REMOVE,  // the item is gone, provided that it is still where `folder` and `name` say
        INODE,   // the same file has another inode number
    };
    Kind kind = PUT;
    int64_t number = 0;  // the item; PUT: 0 for "the one at this place, if any"
    std::string folder;  // below the storage's root
    std::string name;
    media_content_type_e type = MEDIA_CONTENT_TYPE_OTHERS;
    std::string mime;
    FileFacts facts;
    ItemState state = ItemState::Unread;
    bool pinned = false;
    bool retry = false;  // the database knows all of this but the metadata
    bool isNew = false;  // the scan found nothing of it in the database
    Metadata metadata;
};

// What a batch has done, for those who wait for news.
struct Done {
    media_content_db_update_type_e update;
    media_content_type_e type;
    int64_t number;
    std::string path;  // below the storage's root
    std::string mime;
};

// What is left for the items of one storage.
enum class SpaceLeft {
    Some,
    ShareTaken,  // the storage has what a single one may have
    None,        // the disk has no more, or the file is as large as it may be
};

// Every call takes the writer's own lock for one transaction. Throws DatabaseError; the database
// is then as before the call. On a full disk storages that are away are forgotten, as in
// FindSpace, before a call fails.
class Writer {
public:
    explicit Writer(std::unique_ptr<Connection> connection);

    const std::string& Salt() const { return m_salt; }

    // Records that a storage is mounted at `mountPath` and returns its number.
    int64_t RecordStorage(const std::string& id, const std::string& identity,
                          const std::string& mountPath, int64_t now);
    // The storage has been taken away: it was there until just now, and may be forgotten to make
    // room. Those that RecordStorage was called for are not.
    void StorageWent(int64_t storage, int64_t now);

    // Looks how much of the disk is left; see Room.h. When the file comes near its bound, forgets
    // storages that are away, those first that were seen last longest ago, as much as is needed.
    SpaceLeft FindSpace(int64_t storage);

    std::vector<Done> Apply(int64_t storage, const std::vector<Change>& changes, int64_t now);
    // Removes one item of any storage; false when there is none.
    bool Remove(int64_t number, int64_t& storage, Done& done);

    // Whether a scan is to read what was PASSED_OVER on this storage.
    void SetToBeReadAgain(int64_t storage, bool again);

    // Drops the records of folders that hold nothing any more.
    void DropEmptyFolders(int64_t storage);
    // Forgets up to `limit` items of a storage that is away and was not there since `before`, and
    // with the last of them the storage itself. True when there is nothing more to do.
    bool Purge(int64_t storage, int64_t before, int limit);
    // Moves what is in the write-ahead log into the database and shortens it, as far as readers
    // allow.
    void Checkpoint();

private:
    struct Counts {
        std::array<int64_t, kMediaTypes> direct{};
        int64_t here = 0;   // the sum of these
        int64_t below = 0;  // and of the folders below
    };
    struct Row {
        int64_t number = 0;
        int64_t storage = 0;
        int64_t folder = 0;
        std::string name;
        std::string title;
        std::string mime;
        media_content_type_e type = MEDIA_CONTENT_TYPE_OTHERS;
        FileFacts facts;
        bool pinned = false;
    };
    // The sums of one batch.
    struct Batch {
        int64_t storage;
        int64_t now;
        std::map<std::string, Counts> folders;
        std::array<int64_t, kMediaTypes> items{};
        std::vector<Done> done;
    };

    void ApplyOne(Batch& batch, const Change& change);
    void Put(Batch& batch, const Change& change);
    void Move(Batch& batch, const Change& change);
    void RemoveRow(Batch& batch, const Row& row);
    bool Insert(const Batch& batch, int64_t folder, const Change& change, int64_t& number);
    void Update(const Row& row, int64_t folder, const Change& change);
    void Count(Batch& batch, const std::string& folder, media_content_type_e type, int by);
    static void SumUp(Batch& batch);
    void StoreCounts(Batch& batch);
    bool FindByPlace(int64_t folder, const std::string& name, Row& row);
    bool FindByNumber(int64_t number, Row& row);
    bool ReadRow(Query& query, Row& row);
    std::string FolderPath(int64_t number);
    int64_t FolderNumber(int64_t storage, const std::string& path);
    bool PurgeSome(int64_t storage, int limit);
    bool PurgeOldest();
    bool MoveLog();
    int64_t Ask(const char* sql);
    int64_t UsedBytes();
    int64_t& TakenBy(int64_t storage);
    template <typename Body>
    void InTransaction(Body body);
    template <typename Body>
    void InOneTransaction(Body body);

    std::mutex m_mutex;
    std::unique_ptr<Connection> m_connection;  // guarded by m_mutex
    std::string m_salt;                        // constant
    // Guarded; a cache, by storage and path.
    std::unordered_map<int64_t, std::unordered_map<std::string, int64_t>> m_folders;
    std::set<int64_t> m_present;                   // guarded: storages that are not away
    std::unordered_map<int64_t, int64_t> m_taken;  // guarded: bytes, as far as looked at
};

}  // namespace platform

#endif
