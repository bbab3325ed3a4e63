// Metadata as JSON, for comparing it with what is expected.
#ifndef TESTS_PLATFORM_EXTRACT_METADATA_JSON_H
#define TESTS_PLATFORM_EXTRACT_METADATA_JSON_H

#include <json/json.h>

#include <cmath>
#include <string>

#include "MediaContent/Extract/Extractor.h"

// Only what the file has; positions to six places.
inline Json::Value ToJson(const platform::ExtractResult& result) {
    const platform::Metadata& data = result.metadata;
    Json::Value json(Json::objectValue);
    const auto text = [&json](const char* key, const std::string& value) {
        if (!value.empty()) json[key] = value;
    };
    const auto number = [&json](const char* key, int32_t value) {
        if (value != 0) json[key] = value;
    };
    static const char* const states[] = {"ok", "failed", "cancelled", "unavailable"};
    json["status"] = states[static_cast<int>(result.status)];
    text("title", data.title);
    text("description", data.description);
    text("album", data.album);
    text("artist", data.artist);
    text("genre", data.genre);
    text("composer", data.composer);
    text("copyright", data.copyright);
    text("trackNumber", data.trackNumber);
    number("width", data.width);
    number("height", data.height);
    number("orientation", data.orientation);
    number("bitRate", data.bitRate);
    number("durationMs", data.durationMs);
    if (data.hasPosition) {
        json["latitude"] = std::round(data.latitude * 1e6) / 1e6;
        json["longitude"] = std::round(data.longitude * 1e6) / 1e6;
    }
    return json;
}

inline std::string ToLine(const std::string& name, const platform::ExtractResult& result) {
    Json::Value line(Json::objectValue);
    line[name] = ToJson(result);
    return Json::FastWriter().write(line);
}

#endif
