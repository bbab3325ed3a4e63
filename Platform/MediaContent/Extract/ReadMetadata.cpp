#include "MediaContent/Extract/ReadMetadata.h"

#include <exception>

#include "MediaContent/Extract/ReaderSetup.h"

namespace platform {
namespace {

bool ReadByKind(FileSource& source, media_content_type_e kind, const char* mime,
                Metadata& metadata) {
    switch (kind) {
        case MEDIA_CONTENT_TYPE_IMAGE:
            return ReadPicture(source, metadata);
        case MEDIA_CONTENT_TYPE_SOUND:
        case MEDIA_CONTENT_TYPE_MUSIC:
            return ReadAudio(source, mime, metadata) || ReadContainer(source, mime, metadata);
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
