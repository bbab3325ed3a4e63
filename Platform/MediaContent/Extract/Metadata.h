// The metadata of one media file.
#ifndef PLATFORM_MEDIA_CONTENT_EXTRACT_METADATA_H
#define PLATFORM_MEDIA_CONTENT_EXTRACT_METADATA_H

#include <cstdint>
#include <string>

namespace platform {

// A plain value. Every text is valid UTF-8 without control characters, leading or trailing blanks,
// and no longer than kMaxMetadataText bytes; empty when the file does not have it. Numbers are
// never negative (except positions) and 0 when unknown.
struct Metadata {
    std::string title;
    std::string description;
    std::string album;
    std::string artist;
    std::string genre;
    std::string composer;
    std::string copyright;
    std::string trackNumber;  // as stored in the file: "3" or "3/12"
    int32_t width = 0;        // pixels, before orientation
    int32_t height = 0;
    int32_t orientation = 0;  // media_content_orientation_e: 0 to 8
    int32_t bitRate = 0;      // bits per second
    int32_t durationMs = 0;
    bool hasPosition = false;
    double latitude = 0.0;   // degrees, -90 to 90
    double longitude = 0.0;  // degrees, -180 to 180
};

constexpr size_t kMaxMetadataText = 4096;

}  // namespace platform

#endif
