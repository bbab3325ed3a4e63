// The open media database: one connection that writes, a few that read, and their shared state.
#ifndef PLATFORM_MEDIA_CONTENT_STORE_H
#define PLATFORM_MEDIA_CONTENT_STORE_H

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "MediaContent/Database.h"
#include "MediaContent/Pages.h"

namespace platform {

class Writer;

// Closed when the last user releases it, so that a call in progress when the service disconnects
// can still finish.
class Store {
public:
    // Throws DatabaseError.
    explicit Store(const std::string& file);
    ~Store();
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    // A reading connection for the calling thread; returned to the pool on destruction.
    class Borrowed {
    public:
        Borrowed(Store& store, std::unique_ptr<Connection> connection)
            : m_store(store), m_connection(std::move(connection)) {}
        ~Borrowed() { m_store.GiveBack(std::move(m_connection)); }
        Borrowed(const Borrowed&) = delete;
        Borrowed& operator=(const Borrowed&) = delete;
        Connection& operator*() const { return *m_connection; }

    private:
        Store& m_store;
        std::unique_ptr<Connection> m_connection;
    };
    Borrowed Read() { return {*this, Take()}; }

    Writer& Write() { return *m_writer; }
    AnchorCache& Anchors() { return m_anchors; }
    const std::string& File() const { return m_file; }
    const std::string& Salt() const { return m_salt; }

    // Converts item numbers to the ids that clients see and back; 0 for a text that is not an id of
    // this database.
    std::string ItemId(int64_t number) const { return m_salt + '-' + std::to_string(number); }
    std::string FolderId(int64_t number) const { return m_salt + "-f" + std::to_string(number); }
    int64_t ItemNumber(const std::string& id) const { return Number(id, "-"); }
    int64_t FolderNumber(const std::string& id) const { return Number(id, "-f"); }

    // A caller found damage in the file: it is replaced at the next opportunity.
    void ReportDamage() { m_damaged = true; }
    bool IsDamaged() const { return m_damaged; }

private:
    std::unique_ptr<Connection> Take();
    void GiveBack(std::unique_ptr<Connection> connection);
    int64_t Number(const std::string& id, const char* separator) const;

    const std::string m_file;
    std::unique_ptr<Writer> m_writer;
    std::string m_salt;
    AnchorCache m_anchors;
    std::atomic<bool> m_damaged{false};

    std::mutex m_mutex;
    std::vector<std::unique_ptr<Connection>> m_idle;  // guarded by m_mutex
};

}  // namespace platform

#endif
