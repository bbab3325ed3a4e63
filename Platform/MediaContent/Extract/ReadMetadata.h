// The readers, built on the metadata libraries. They run in the helper process (and in tests,
// benchmarks and fuzz targets), never in the service.
#ifndef PLATFORM_MEDIA_CONTENT_EXTRACT_READ_METADATA_H
#define PLATFORM_MEDIA_CONTENT_EXTRACT_READ_METADATA_H

#include "MediaContent.h"
#include "MediaContent/Extract/FileSource.h"
#include "MediaContent/Extract/Metadata.h"

namespace platform {

// Initialises the libraries: once, before the first read, while the process has one thread.
void InitMetadataReaders();

// Reads one file with the reader for its kind. False when nothing could be read: `metadata` is then
// empty. Catches the libraries' exceptions. Thread-safe after InitMetadataReaders.
bool ReadMetadata(FileSource& source, media_content_type_e kind, const char* mime,
                  Metadata& metadata);

// The readers, by library. Each may throw the exceptions of its library.
bool ReadPicture(FileSource& source, const char* mime, Metadata& metadata);  // Exiv2 and others
bool ReadAudio(FileSource& source, const char* mime, Metadata& metadata);    // TagLib
void ReadPngTexts(FileSource& source, Metadata& metadata);  // those that are still empty
bool ReadMidi(FileSource& source, Metadata& metadata);
bool ReadContainer(FileSource& source, const char* mime, Metadata& metadata);  // libavformat

}  // namespace platform

#endif
