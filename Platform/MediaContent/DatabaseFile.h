// The database as files: inspecting them before SQLite opens them, restricting their permissions,
// moving them aside. One thread at a time for each database.
#ifndef PLATFORM_MEDIA_CONTENT_DATABASE_FILE_H
#define PLATFORM_MEDIA_CONTENT_DATABASE_FILE_H

#include <cstdint>
#include <string>

namespace platform {

constexpr uint32_t kDatabaseApplication = 0x434d4442;  // in the header of each file that is ours

// What the first page says; the copy in the write-ahead log takes precedence over the one in the
// file. Nothing is changed, not even what SQLite would repair when it opens the file.
struct DatabaseHead {
    enum Kind { NOTHING, OURS, FOREIGN };
    Kind kind = NOTHING;   // NOTHING: missing or empty, and no log
    uint32_t version = 0;  // of the schema; only for OURS
};

// Throws DatabaseError when `file` is not a regular file or cannot be read.
DatabaseHead ReadDatabaseHead(const std::string& file);

// Creates the file if it is missing and restricts it and its journals to their owner, whatever the
// umask; SQLite gives later journals the permissions of the file. Logs files whose permissions
// cannot be changed.
void KeepPrivate(const std::string& file);

// Renames a database with its journals to a free name: ".aside", then ".aside-2" and so on. When
// nine are taken nothing is moved. Connections that are still open keep using the old file. Logs
// the move. Throws DatabaseError when the database is still in its old place.
void MoveAside(const std::string& file, const std::string& reason);

// The same for a damaged database of ours. At most three of these are kept; further ones are
// deleted.
void MoveDamagedAside(const std::string& file, const std::string& reason);

}  // namespace platform

#endif
