#include "MediaContent/DatabaseFile.h"

#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdio>

#include "Log/Log.h"
#include "MediaContent/Database.h"
#include "Process/UniqueFd.h"

namespace platform {
namespace {

constexpr const char* kJournals[] = {"-wal", "-shm", "-journal"};
constexpr mode_t kOwnerOnly = 0600;
constexpr mode_t kAllRights = 07777;
constexpr int kMaxAside = 9;
constexpr int kMaxDamagedAside = 3;

// SQLite's file format: the start of a page, and the offsets that say whose the file is.
constexpr size_t kHeadBytes = 100;
constexpr char kMagic[] = "SQLite format 3";  // including the terminating zero
constexpr size_t kVersionAt = 60;
constexpr size_t kApplicationAt = 68;
using Head = std::array<unsigned char, kHeadBytes>;

// SQLite's write-ahead log: a header, then frames of a header and a page each.
constexpr size_t kLogHeader = 32;
constexpr size_t kLogPageSizeAt = 8;
constexpr size_t kLogSaltAt = 16;
constexpr size_t kFrameHeader = 24;
constexpr size_t kFrameCommitAt = 4;
constexpr size_t kFrameSaltAt = 8;
constexpr size_t kSaltBytes = 8;
constexpr uint32_t kLogMagic = 0x377f0682;  // or 1 more

[[noreturn]] void Refuse(const std::string& file, const char* why) {
    throw DatabaseError(SQLITE_CANTOPEN, file + ": " + why);
}

uint32_t Number(const unsigned char* bytes) {
    return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
}

bool Exists(const std::string& path) {
    struct stat facts {};
    return lstat(path.c_str(), &facts) == 0;
}

// Bytes; 0 when there is none.
off_t SizeOf(const std::string& path) {
    struct stat facts {};
    return stat(path.c_str(), &facts) == 0 ? facts.st_size : 0;
}

// Goes through SQLite's own handle: closing another descriptor of the file would drop the locks
// that this process holds on it through connections still in use.
Head HeadOf(const std::string& file) {
    const Connection look(file, SQLITE_OPEN_READONLY);
    sqlite3_file* handle = nullptr;
    sqlite3_file_control(look.Handle(), "main", SQLITE_FCNTL_FILE_POINTER, &handle);
    Head head{};
    const int result = handle->pMethods->xRead(handle, head.data(), kHeadBytes, 0);
    if (result != SQLITE_OK && result != SQLITE_IOERR_SHORT_READ) Refuse(file, "cannot be read");
    return head;
}

// Overwrites `head` with the first page's head if a transaction in the log has changed it.
// Checksums are not verified: SQLite does that when it opens a database of ours.
void ReadLog(const std::string& log, Head& head) {
    const UniqueFd fd(open(log.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    std::array<unsigned char, kLogHeader> start{};
    if (pread(fd.Get(), start.data(), start.size(), 0) != ssize_t{kLogHeader}) return;
    const uint32_t pageSize = Number(start.data() + kLogPageSizeAt);
    if ((Number(start.data()) & ~1u) != kLogMagic || pageSize < 512 || pageSize > 65536) return;
    Head seen = head;
    std::array<unsigned char, kFrameHeader + kHeadBytes> frame{};
    for (off_t at = kLogHeader;
         pread(fd.Get(), frame.data(), frame.size(), at) == static_cast<ssize_t>(frame.size());
         at += static_cast<off_t>(kFrameHeader + pageSize)) {
        const unsigned char* salt = frame.data() + kFrameSaltAt;
        if (memcmp(salt, start.data() + kLogSaltAt, kSaltBytes) != 0) break;  // from before a reset
        if (Number(frame.data()) == 1) memcpy(seen.data(), frame.data() + kFrameHeader, kHeadBytes);
        if (Number(frame.data() + kFrameCommitAt) != 0) head = seen;
    }
}

// Some file systems have no permissions, and a disk may be read-only: the database is used anyway.
void ShutOff(const std::string& path) {
    struct stat facts {};
    if (stat(path.c_str(), &facts) != 0 || (facts.st_mode & kAllRights) == kOwnerOnly) return;
    if (chmod(path.c_str(), kOwnerOnly) != 0)
        PLATFORM_LOG("MEDIA_CONTENT", LOG_WARNING, "%s can be read by others: %s", path.c_str(),
                     strerror(errno));
}

std::string AsideName(const std::string& file, int number) {
    return file + ".aside" + (number == 1 ? "" : '-' + std::to_string(number));
}

bool IsFree(const std::string& name) {
    for (const char* journal : kJournals)
        if (Exists(name + journal)) return false;
    return !Exists(name);
}

std::string FreeAsideName(const std::string& file, int limit) {
    for (int number = 1; number <= limit; ++number)
        if (IsFree(AsideName(file, number))) return AsideName(file, number);
    return {};
}

void Rename(const std::string& from, const std::string& to) {
    if (Exists(from) && rename(from.c_str(), to.c_str()) != 0)
        Refuse(from, ("cannot be moved aside: " + std::string(strerror(errno))).c_str());
}

// The journals first: if the process dies in between, the database does not meet another database's
// journals, nor its journals a new database.
void MoveTo(const std::string& file, const std::string& name, const std::string& reason) {
    for (const char* journal : kJournals) Rename(file + journal, name + journal);
    Rename(file, name);
    PLATFORM_LOG("MEDIA_CONTENT", LOG_WARNING,
                 "media database %s: %s; moved aside to %s and made anew", file.c_str(),
                 reason.c_str(), name.c_str());
}

}  // namespace

DatabaseHead ReadDatabaseHead(const std::string& file) {
    struct stat facts {};
    const bool exists = stat(file.c_str(), &facts) == 0;
    if (exists && !S_ISREG(facts.st_mode)) Refuse(file, "not a regular file");
    DatabaseHead found;
    if (!exists || facts.st_size == 0) {
        // SQLite would delete a log without its database.
        if (SizeOf(file + "-wal") > 0) found.kind = DatabaseHead::FOREIGN;
        return found;
    }
    Head head = HeadOf(file);
    found.kind = DatabaseHead::FOREIGN;
    if (memcmp(head.data(), kMagic, sizeof kMagic) != 0) return found;
    ReadLog(file + "-wal", head);
    if (Number(head.data() + kApplicationAt) != kDatabaseApplication) return found;
    found.kind = DatabaseHead::OURS;
    found.version = Number(head.data() + kVersionAt);
    return found;
}

void KeepPrivate(const std::string& file) {
    // Whether it worked shows when SQLite opens the file.
    const UniqueFd made(open(file.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, kOwnerOnly));
    ShutOff(file);
    for (const char* journal : kJournals) ShutOff(file + journal);
}

void MoveAside(const std::string& file, const std::string& reason) {
    const std::string name = FreeAsideName(file, kMaxAside);
    if (name.empty()) Refuse(file, (reason + "; nine were moved aside before: move them").c_str());
    MoveTo(file, name, reason);
}

void MoveDamagedAside(const std::string& file, const std::string& reason) {
    const std::string name = FreeAsideName(file, kMaxDamagedAside);
    if (!name.empty()) return MoveTo(file, name, reason);
    for (const char* journal : kJournals) unlink((file + journal).c_str());
    if (unlink(file.c_str()) != 0 && Exists(file)) Refuse(file, "damaged, and cannot be removed");
    PLATFORM_LOG("MEDIA_CONTENT", LOG_WARNING, "media database %s: %s; removed and made anew",
                 file.c_str(), reason.c_str());
}

}  // namespace platform
