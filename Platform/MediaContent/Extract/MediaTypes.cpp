#include "MediaContent/Extract/MediaTypes.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace platform {
namespace {

constexpr media_content_type_e IMAGE = MEDIA_CONTENT_TYPE_IMAGE;
constexpr media_content_type_e VIDEO = MEDIA_CONTENT_TYPE_VIDEO;
constexpr media_content_type_e SOUND = MEDIA_CONTENT_TYPE_SOUND;
constexpr media_content_type_e MUSIC = MEDIA_CONTENT_TYPE_MUSIC;

std::vector<MediaType> MakeTable() {
    std::vector<MediaType> table = {
        {"jpg", IMAGE, "image/jpeg"},       {"jpeg", IMAGE, "image/jpeg"},
        {"jpe", IMAGE, "image/jpeg"},       {"jfif", IMAGE, "image/jpeg"},
        {"png", IMAGE, "image/png"},        {"gif", IMAGE, "image/gif"},
        {"webp", IMAGE, "image/webp"},      {"heic", IMAGE, "image/heic"},
        {"heif", IMAGE, "image/heif"},      {"hif", IMAGE, "image/heif"},
        {"avif", IMAGE, "image/avif"},      {"tif", IMAGE, "image/tiff"},
        {"tiff", IMAGE, "image/tiff"},      {"bmp", IMAGE, "image/bmp"},
        {"dib", IMAGE, "image/bmp"},        {"mp3", MUSIC, "audio/mpeg"},
        {"flac", MUSIC, "audio/flac"},      {"ogg", MUSIC, "audio/ogg"},
        {"oga", MUSIC, "audio/ogg"},        {"opus", MUSIC, "audio/opus"},
        {"m4a", MUSIC, "audio/mp4"},        {"m4b", MUSIC, "audio/mp4"},
        {"aac", MUSIC, "audio/aac"},        {"wav", MUSIC, "audio/x-wav"},
        {"aif", MUSIC, "audio/x-aiff"},     {"aiff", MUSIC, "audio/x-aiff"},
        {"aifc", MUSIC, "audio/x-aiff"},    {"wma", MUSIC, "audio/x-ms-wma"},
        {"amr", SOUND, "audio/amr"},        {"3ga", SOUND, "audio/3gpp"},
        {"mid", SOUND, "audio/midi"},       {"midi", SOUND, "audio/midi"},
        {"mp4", VIDEO, "video/mp4"},        {"m4v", VIDEO, "video/mp4"},
        {"mov", VIDEO, "video/quicktime"},  {"qt", VIDEO, "video/quicktime"},
        {"mkv", VIDEO, "video/x-matroska"}, {"webm", VIDEO, "video/webm"},
        {"avi", VIDEO, "video/x-msvideo"},  {"divx", VIDEO, "video/x-msvideo"},
        {"ts", VIDEO, "video/mp2t"},        {"mts", VIDEO, "video/mp2t"},
        {"m2ts", VIDEO, "video/mp2t"},      {"mpg", VIDEO, "video/mpeg"},
        {"mpeg", VIDEO, "video/mpeg"},      {"vob", VIDEO, "video/mpeg"},
        {"3gp", VIDEO, "video/3gpp"},       {"3g2", VIDEO, "video/3gpp2"},
        {"wmv", VIDEO, "video/x-ms-wmv"},   {"asf", VIDEO, "video/x-ms-asf"},
    };
    std::sort(table.begin(), table.end(), [](const MediaType& a, const MediaType& b) {
        return std::strcmp(a.extension, b.extension) < 0;
    });
    return table;
}

char LowerAscii(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

}  // namespace

const std::vector<MediaType>& AllMediaTypes() {
    static const std::vector<MediaType> table = MakeTable();
    return table;
}

bool LookUpMediaType(std::string_view fileName, media_content_type_e& kind, const char*& mime) {
    const size_t dot = fileName.rfind('.');
    if (dot == std::string_view::npos) return false;
    std::array<char, 8> lowered;
    const std::string_view given = fileName.substr(dot + 1);
    if (given.size() > lowered.size()) return false;
    std::transform(given.begin(), given.end(), lowered.begin(), LowerAscii);
    const std::string_view extension(lowered.data(), given.size());

    const std::vector<MediaType>& table = AllMediaTypes();
    const auto found = std::lower_bound(
        table.begin(), table.end(), extension,
        [](const MediaType& type, std::string_view wanted) { return type.extension < wanted; });
    if (found == table.end() || found->extension != extension) return false;
    kind = found->kind;
    mime = found->mime;
    return true;
}

}  // namespace platform
