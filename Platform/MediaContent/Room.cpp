#include "MediaContent/Room.h"

#include <sys/stat.h>
#include <sys/statvfs.h>

#include <algorithm>

namespace platform {
namespace {

constexpr int64_t kMib = 1024 * 1024;
constexpr int64_t kLargestFile = 4096 * kMib;  // about ten million items
constexpr int64_t kLargestReserve = 64 * kMib;

int64_t SizeOf(const std::string& file) {
    struct stat facts {};
    return stat(file.c_str(), &facts) == 0 ? facts.st_blocks * 512 : 0;
}

}  // namespace

Room MeasureRoom(const std::string& file) {
    struct statvfs disk {};
    const int64_t log = SizeOf(file + "-wal");
    int64_t all = kLargestFile + kLargestReserve;
    if (statvfs(file.c_str(), &disk) == 0)
        all = static_cast<int64_t>(disk.f_bavail * disk.f_frsize) + SizeOf(file) + log;
    // For the log, whose pages are later written to the file as well: a full disk would keep them
    // in the log for ever. And for other data on the disk.
    const int64_t reserve = std::min(all / 3, kLargestReserve);
    Room room;
    room.bound = std::min(all - reserve, kLargestFile);
    room.share = room.bound / 4;
    room.logIsLong = log > reserve / 4;
    return room;
}

}  // namespace platform
