// How much disk space the media database may use.
#ifndef PLATFORM_MEDIA_CONTENT_ROOM_H
#define PLATFORM_MEDIA_CONTENT_ROOM_H

#include <cstdint>
#include <string>

namespace platform {

// Bytes. See Docs/decisions/shares.md for the figures.
struct Room {
    int64_t bound = 0;       // limit for all storages together
    int64_t share = 0;       // limit for one storage
    bool logIsLong = false;  // the write-ahead log takes up much of the remaining space
};

// Measures the database `file` and its disk now, so what other programs add or remove counts at
// once. A disk whose size cannot be read is assumed to be large. Thread-safe.
Room MeasureRoom(const std::string& file);

}  // namespace platform

#endif
