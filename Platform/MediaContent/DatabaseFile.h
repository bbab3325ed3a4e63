// The database as files: looked at before SQLite may touch them, shut off from others, moved aside.
// One thread at a time for each database.
#ifndef PLATFORM_MEDIA_CONTENT_DATABASE_FILE_H
#define PLATFORM_MEDIA_CONTENT_DATABASE_FILE_H

#include <cstdint>
#include <string>

namespace platform {

constexpr uint32_t kDatabaseApplication = 0x434d4442;  // in the head of each file that is ours

// What the first page says, that in the write-ahead log before that in the file. Nothing is
// changed, not even what SQLite would mend at its first look.
struct DatabaseHead {
    enum Kind { NOTHING, OURS, FOREIGN };
    Kind kind = NOTHING;   // NOTHING: missing or empty, without a log
    uint32_t version = 0;  // of the schema; OURS only
};

// Throws DatabaseError for what is no regular file, and for one that cannot be read.
DatabaseHead ReadDatabaseHead(const std::string& file);

// Makes the file when it is missing, and shuts it and its journals off from all but their owner,
// whatever the umask; SQLite gives later journals the rights of the file. Logs what cannot be shut.
void KeepPrivate(const std::string& file);

// Renames a database with its journals to a name that is free: ".aside", then ".aside-2" and so on.
// When nine are taken nothing is moved. Connections that are still open go on with the old file.
// Logs it. Throws DatabaseError when it is still there.
void MoveAside(const std::string& file, const std::string& reason);

// The same for a damaged database of ours, of which three are kept: a further one is removed.
void MoveDamagedAside(const std::string& file, const std::string& reason);

}  // namespace platform

#endif
