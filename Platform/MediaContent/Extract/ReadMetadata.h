// The readers themselves, over the metadata libraries. They run inside the helper process (and in
// tests, benchmarks and fuzz targets), never in the service.
#ifndef PLATFORM_MEDIA_CONTENT_EXTRACT_READ_METADATA_H
#define PLATFORM_MEDIA_CONTENT_EXTRACT_READ_METADATA_H

#include "MediaContent.h"
#include "MediaContent/Extract/FileSource.h"
#include "MediaContent/Extract/Metadata.h"

namespace platform {

// Sets the libraries up: once, before the first read, while the process has one thread.
void InitMetadataReaders();

// Reads one file by the reader of its kind. False when nothing of it could be read: `metadata` is
// then empty. Catches what the libraries throw. After InitMetadataReaders any thread.
bool ReadMetadata(FileSource& source, media_content_type_e kind, const char* mime,
                  Metadata& metadata);

// The readers, by library. Each may throw what its library throws.
bool ReadPicture(FileSource& source, Metadata& metadata);                      // Exiv2
bool ReadAudio(FileSource& source, const char* mime, Metadata& metadata);      // TagLib
bool ReadContainer(FileSource& source, const char* mime, Metadata& metadata);  // libavformat

}  // namespace platform

#endif
