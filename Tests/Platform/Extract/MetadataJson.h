// Metadata as JSON, for comparing it with what is expected.
#ifndef TESTS_PLATFORM_EXTRACT_METADATA_JSON_H
#define TESTS_PLATFORM_EXTRACT_METADATA_JSON_H

#include <json/json.h>

#include <cmath>
#include <string>

#include "MediaContent/Extract/Extractor.h"

// Only what the file has; positions to six places.
inline Json::Value ToJson(const platform::ExtractResult& result) {
    using platform::Metadata;
    const std::pair<const char*, std::string Metadata::*> texts[] = {
        {"title", &Metadata::title},
        {"description", &Metadata::description},
        {"album", &Metadata::album},
        {"artist", &Metadata::artist},
        {"genre", &Metadata::genre},
        {"composer", &Metadata::composer},
        {"copyright", &Metadata::copyright},
        {"trackNumber", &Metadata::trackNumber},
        {"discNumber", &Metadata::discNumber},
        {"albumArtist", &Metadata::albumArtist},
        {"taken", &Metadata::taken},
        {"camera", &Metadata::camera},
        {"lens", &Metadata::lens}};
    const std::pair<const char*, int32_t Metadata::*> numbers[] = {
        {"width", &Metadata::width},
        {"height", &Metadata::height},
        {"orientation", &Metadata::orientation},
        {"bitRate", &Metadata::bitRate},
        {"durationMs", &Metadata::durationMs},
        {"framesPer1000s", &Metadata::framesPer1000s},
        {"rating", &Metadata::rating},
        {"hasPicture", &Metadata::hasPicture}};
    const Metadata& data = result.metadata;
    static const char* const states[] = {"ok", "failed", "cancelled", "unavailable"};
    Json::Value json(Json::objectValue);
    json["status"] = states[static_cast<int>(result.status)];
    for (const auto& [key, text] : texts)
        if (!(data.*text).empty()) json[key] = data.*text;
    for (const auto& [key, number] : numbers)
        if (data.*number != 0) json[key] = data.*number;
    if (data.kind != MEDIA_CONTENT_TYPE_OTHERS) json["kind"] = static_cast<int>(data.kind);
    if (data.hasPosition) {
        json["latitude"] = std::round(data.latitude * 1e6) / 1e6;
        if (data.altitude != 0.0) json["altitude"] = std::round(data.altitude * 1e3) / 1e3;
        json["longitude"] = std::round(data.longitude * 1e6) / 1e6;
    }
    return json;
}

#endif
