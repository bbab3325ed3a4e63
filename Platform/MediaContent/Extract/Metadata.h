// The metadata of one media file.
#ifndef PLATFORM_MEDIA_CONTENT_EXTRACT_METADATA_H
#define PLATFORM_MEDIA_CONTENT_EXTRACT_METADATA_H

#include <cstdint>
#include <string>

#include "MediaContent.h"

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
    std::string discNumber;   // likewise
    std::string albumArtist;
    // When it was taken or recorded: ISO 8601, as exact as the file knows it, from "2004" to
    // "2004-05-02T10:11:12.123+02:00". Without an offset it is the local time of the place.
    std::string taken;
    std::string camera;  // make and model
    std::string lens;
    // What the content is; OTHERS: what the name says. A container can hold music or a film.
    media_content_type_e kind = MEDIA_CONTENT_TYPE_OTHERS;
    int32_t width = 0;  // pixels, before orientation
    int32_t height = 0;
    int32_t orientation = 0;  // media_content_orientation_e: 0 to 8
    int32_t bitRate = 0;      // bits per second
    int32_t durationMs = 0;
    int32_t framesPer1000s = 0;  // of a film: 29970 is 29.97 frames per second
    int32_t rating = 0;          // 1 to 5
    int32_t hasPicture = 0;      // 1: a song or film with a picture in it
    bool hasPosition = false;
    double latitude = 0.0;   // degrees, -90 to 90
    double longitude = 0.0;  // degrees, -180 to 180
    double altitude = 0.0;   // metres above the sea
};

constexpr size_t kMaxMetadataText = 4096;
constexpr int32_t kHighestRating = 5;
constexpr double kHighestAltitude = 1e6;  // metres

}  // namespace platform

#endif
