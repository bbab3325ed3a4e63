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

// They are remembered whether a database is open or not. Any thread, but for Make, Add and Take, of
// which one runs at a time. Takes a lock of its own for a look at the list.
class Storages {
public:
    // A storage with the best identity that no other mounted one bears: sticks that are copied
    // whole share their UUIDs. The log tells of it as news when nobody found it there before.
    MountPtr Make(const MountedStorage& storage);
    void Add(MountPtr mount);
    // Out of the list, and marked as gone; null when there is none. The log tells of it unless it
    // is given back because the last client leaves.
    MountPtr Take(const std::string& mountPath);

    std::vector<MountPtr> All() const;
    MountPtr At(const std::string& mountPath) const;
    // By the id that clients know; null while no database has it.
    MountPtr Find(const std::string& storageId) const;
    // Those that the database has; with a filter that names a storage, that one if it is present.
    Scope ScopeOf(const media_filter_s* filter) const;
    // The one that holds `path` (links resolved), and the path below its root.
    MountPtr Resolve(const std::string& path, std::string& below) const;

private:
    std::string ChooseIdentity(const MountedStorage& storage, const std::string& path) const;

    // Of which the log has told, by identity and path: each first client finds all storages anew.
    std::set<std::string> m_told;

    mutable std::mutex m_mutex;
    std::vector<MountPtr> m_mounts;  // guarded by m_mutex
};

}  // namespace platform

#endif
