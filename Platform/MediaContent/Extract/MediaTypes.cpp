#include "MediaContent/Extract/MediaTypes.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace platform {
namespace {

constexpr media_content_type_e kImage = MEDIA_CONTENT_TYPE_IMAGE;
constexpr media_content_type_e kVideo = MEDIA_CONTENT_TYPE_VIDEO;
constexpr media_content_type_e kSound = MEDIA_CONTENT_TYPE_SOUND;
constexpr media_content_type_e kMusic = MEDIA_CONTENT_TYPE_MUSIC;

std::vector<MediaType> MakeTable() {
    std::vector<MediaType> table = {
        {"jpg", kImage, "image/jpeg"},       {"jpeg", kImage, "image/jpeg"},
        {"jpe", kImage, "image/jpeg"},       {"jfif", kImage, "image/jpeg"},
        {"png", kImage, "image/png"},        {"gif", kImage, "image/gif"},
        {"webp", kImage, "image/webp"},      {"heic", kImage, "image/heic"},
        {"heif", kImage, "image/heif"},      {"hif", kImage, "image/heif"},
        {"avif", kImage, "image/avif"},      {"tif", kImage, "image/tiff"},
        {"tiff", kImage, "image/tiff"},      {"bmp", kImage, "image/bmp"},
        {"dib", kImage, "image/bmp"},        {"mp3", kMusic, "audio/mpeg"},
        {"flac", kMusic, "audio/flac"},      {"ogg", kMusic, "audio/ogg"},
        {"oga", kMusic, "audio/ogg"},        {"opus", kMusic, "audio/opus"},
        {"m4a", kMusic, "audio/mp4"},        {"m4b", kMusic, "audio/mp4"},
        {"aac", kMusic, "audio/aac"},        {"wav", kMusic, "audio/x-wav"},
        {"aif", kMusic, "audio/x-aiff"},     {"aiff", kMusic, "audio/x-aiff"},
        {"aifc", kMusic, "audio/x-aiff"},    {"wma", kMusic, "audio/x-ms-wma"},
        {"amr", kSound, "audio/amr"},        {"3ga", kSound, "audio/3gpp"},
        {"mid", kSound, "audio/midi"},       {"midi", kSound, "audio/midi"},
        {"mp4", kVideo, "video/mp4"},        {"m4v", kVideo, "video/mp4"},
        {"mov", kVideo, "video/quicktime"},  {"qt", kVideo, "video/quicktime"},
        {"mkv", kVideo, "video/x-matroska"}, {"webm", kVideo, "video/webm"},
        {"avi", kVideo, "video/x-msvideo"},  {"divx", kVideo, "video/x-msvideo"},
        {"ts", kVideo, "video/mp2t"},        {"mts", kVideo, "video/mp2t"},
        {"m2ts", kVideo, "video/mp2t"},      {"mpg", kVideo, "video/mpeg"},
        {"mpeg", kVideo, "video/mpeg"},      {"vob", kVideo, "video/mpeg"},
        {"3gp", kVideo, "video/3gpp"},       {"3g2", kVideo, "video/3gpp2"},
        {"wmv", kVideo, "video/x-ms-wmv"},   {"asf", kVideo, "video/x-ms-asf"},
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
