// How much of its disk the media database may take.
#ifndef PLATFORM_MEDIA_CONTENT_ROOM_H
#define PLATFORM_MEDIA_CONTENT_ROOM_H

#include <cstdint>
#include <string>

namespace platform {

// Bytes. See Docs/decisions/shares.md for the figures.
struct Room {
    int64_t bound = 0;       // what all storages may take together
    int64_t share = 0;       // what one of them may take
    bool logIsLong = false;  // the write-ahead log takes much of what is left for it
};

// Looks at the database `file` and its disk now: what other programs put there or take away counts
// at once. A disk that cannot be asked is taken for a large one. Any thread.
Room MeasureRoom(const std::string& file);

}  // namespace platform

#endif
