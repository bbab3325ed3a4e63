// The storages that are mounted now.
#ifndef PLATFORM_MEDIA_CONTENT_STORAGES_H
#define PLATFORM_MEDIA_CONTENT_STORAGES_H

#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "MediaContent/MediaService.h"
#include "MediaContent/Mount.h"
#include "MediaContent/Reader.h"

namespace platform {

// Storages are remembered whether a database is open or not. Thread-safe, except that Make, Add and
// Take must not run concurrently. Takes its own lock while it reads or changes the list.
class Storages {
public:
    // Creates a mount with the best identity that no other mounted storage has: sticks that are
    // copied whole share their UUIDs. The log reports it if it was not found there before.
    MountPtr Make(const MountedStorage& storage);
    void Add(MountPtr mount);
    // Removes the mount from the list and marks it as gone; null when there is none. The log
    // reports it unless it is removed because the last client leaves.
    MountPtr Take(const std::string& mountPath);

    std::vector<MountPtr> All() const;
    MountPtr At(const std::string& mountPath) const;
    // By the id that clients use; null while no database contains it.
    MountPtr Find(const std::string& storageId) const;
    // The mounted storages that the database contains; with a filter that names a storage, only
    // that one, if present.
    Scope ScopeOf(const media_filter_s* filter) const;
    // The storage that contains `path` (links resolved), and the path below its root.
    MountPtr Resolve(const std::string& path, std::string& below) const;

private:
    std::string ChooseIdentity(const MountedStorage& storage, const std::string& path) const;

    // Logged storages, by identity and path: each first client finds all storages again.
    std::set<std::string> m_told;

    mutable std::mutex m_mutex;
    std::vector<MountPtr> m_mounts;  // guarded by m_mutex
};

}  // namespace platform

#endif
