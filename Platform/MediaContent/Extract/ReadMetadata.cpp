#include "MediaContent/Extract/ReadMetadata.h"

#include <cstring>
#include <exception>
#include <utility>

#include "MediaContent/Extract/ReaderSetup.h"

namespace platform {
namespace {

// TagLib takes an Ogg stream's length from its last page's time, which may be missing, or count
// from elsewhere: a recorded broadcast starts in the middle.
bool HasDoubtfulLength(const FileSource& source, const char* mime, const Metadata& metadata) {
    constexpr uint64_t kFewest = 12000, kMost = 1000000;  // bits per second
    if (metadata.durationMs == 0) return true;
    if (std::strcmp(mime, "audio/ogg") != 0) return false;
    const uint64_t rate = source.Size() * 8000 / static_cast<uint64_t>(metadata.durationMs);
    return rate < kFewest || rate > kMost;
}

// TagLib passes over a tag with one part that it does not understand, and over AIFF's own texts.
bool HasUnreadTag(FileSource& source, const Metadata& metadata) {
    if (!metadata.title.empty() || !metadata.artist.empty() || !metadata.album.empty())
        return false;
    char start[4] = {};
    source.ReadAt(0, start, sizeof start);
    return std::memcmp(start, "ID3", 3) == 0 || std::memcmp(start, "FORM", 4) == 0;
}

bool ReadMusic(FileSource& source, const char* mime, Metadata& metadata) {
    if (!ReadAudio(source, mime, metadata)) return ReadContainer(source, mime, metadata);
    const bool lengthIsDoubtful = HasDoubtfulLength(source, mime, metadata);
    const bool tagIsUnread = HasUnreadTag(source, metadata);
    Metadata container;
    if ((!lengthIsDoubtful && !tagIsUnread) || !ReadContainer(source, mime, container)) return true;
    if (lengthIsDoubtful && container.durationMs > 0) {
        metadata.durationMs = container.durationMs;
        metadata.bitRate = container.bitRate;
    }
    if (!tagIsUnread) return true;
    container.kind = metadata.kind;
    container.durationMs = metadata.durationMs;
    container.bitRate = metadata.bitRate;
    metadata = std::move(container);
    return true;
}

// A sound stays one.
bool ReadSound(FileSource& source, const char* mime, Metadata& metadata) {
    const bool read = ReadMusic(source, mime, metadata);
    if (metadata.kind == MEDIA_CONTENT_TYPE_MUSIC) metadata.kind = MEDIA_CONTENT_TYPE_SOUND;
    return read;
}

bool ReadByKind(FileSource& source, media_content_type_e kind, const char* mime,
                Metadata& metadata) {
    switch (kind) {
        case MEDIA_CONTENT_TYPE_IMAGE:
            return ReadPicture(source, mime, metadata);
        case MEDIA_CONTENT_TYPE_SOUND:
            return ReadSound(source, mime, metadata);
        case MEDIA_CONTENT_TYPE_MUSIC:
            if (std::strcmp(mime, "audio/midi") == 0) return ReadMidi(source, metadata);
            return ReadMusic(source, mime, metadata);
        case MEDIA_CONTENT_TYPE_VIDEO:
            return ReadContainer(source, mime, metadata);
        default:
            return false;
    }
}

}  // namespace

void InitMetadataReaders() {
    InitExiv();
    InitTagLib();
    InitAvformat();
}

bool ReadMetadata(FileSource& source, media_content_type_e kind, const char* mime,
                  Metadata& metadata) {
    metadata = {};
    bool read = false;
    // Exiv2::Error and the standard library's exceptions derive from this. Other exceptions have
    // not been observed, but catching them costs nothing.
    try {
        read = ReadByKind(source, kind, mime, metadata);
    } catch (const std::exception&) {
    } catch (...) {
    }
    if (!read) metadata = {};
    return read;
}

}  // namespace platform
