// The tables of the media database, and how its file is opened.
#ifndef PLATFORM_MEDIA_CONTENT_SCHEMA_H
#define PLATFORM_MEDIA_CONTENT_SCHEMA_H

#include <memory>
#include <string>

#include "MediaContent/Database.h"

namespace platform {

// Opens the writing connection of the database `file`. Creates the file and its folder when
// missing, accessible only to their owner. A database with an older schema is upgraded, with all
// its data, in one transaction. A file that is not ours or has a newer schema is moved aside
// unchanged, a damaged one is moved aside as well, both with a log line, and the database is
// recreated: it only caches what the storages hold. Throws DatabaseError when the database cannot
// be written.
std::unique_ptr<Connection> OpenWriter(const std::string& file);

// A read-only connection. Throws DatabaseError.
std::unique_ptr<Connection> OpenReader(const std::string& file);

// The name of the setting that says that a storage's passed-over files are to be read.
std::string ReadAgainSetting(int64_t storage);

// A random word, generated once per database file. Item and folder ids begin with it, so a
// recreated database never reuses an old id for another file.
std::string ReadSalt(Connection& connection);

}  // namespace platform

#endif
