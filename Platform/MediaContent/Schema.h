// The tables of the media database and the way its file is opened.
#ifndef PLATFORM_MEDIA_CONTENT_SCHEMA_H
#define PLATFORM_MEDIA_CONTENT_SCHEMA_H

#include <memory>
#include <string>

#include "MediaContent/Database.h"

namespace platform {

// Opens the writing connection of the database `file`; it is made when missing, with its folder,
// for its owner's eyes only. One of an earlier schema is brought up to this one's in one
// transaction, with all that it holds. What is not ours or of a newer schema is moved aside
// unchanged, what is damaged is moved aside as well, both with a log line, and the database is made
// anew: it only caches what the storages hold. Throws DatabaseError when there is no writing it.
std::unique_ptr<Connection> OpenWriter(const std::string& file);

// A connection that cannot write. Throws DatabaseError.
std::unique_ptr<Connection> OpenReader(const std::string& file);

// The name of the setting that a storage's passed-over files are to be read.
std::string ReadAgainSetting(int64_t storage);

// A word made once a database file; item and folder ids begin with it, so that a database made
// anew never gives an old id to another file.
std::string ReadSalt(Connection& connection);

}  // namespace platform

#endif
