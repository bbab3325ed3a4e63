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
        {"jpg", kImage, "image/jpeg"},
        {"jpeg", kImage, "image/jpeg"},
        {"apng", kImage, "image/apng"},
        {"jxl", kImage, "image/jxl"},
        {"pcx", kImage, "image/x-pcx"},
        {"tga", kImage, "image/x-tga"},
        {"qoi", kImage, "image/qoi"},
        {"pbm", kImage, "image/x-portable-bitmap"},
        {"pgm", kImage, "image/x-portable-graymap"},
        {"ppm", kImage, "image/x-portable-pixmap"},
        {"pnm", kImage, "image/x-portable-anymap"},
        {"pam", kImage, "image/x-portable-arbitrarymap"},
        {"mpo", kImage, "image/mpo"},
        {"jps", kImage, "image/jpeg"},
        {"jpf", kImage, "image/jpx"},
        {"svg", kImage, "image/svg+xml"},
        {"ico", kImage, "image/vnd.microsoft.icon"},
        {"jp2", kImage, "image/jp2"},
        {"jpx", kImage, "image/jpx"},
        {"j2k", kImage, "image/x-jp2-codestream"},
        {"j2c", kImage, "image/x-jp2-codestream"},
        {"jpc", kImage, "image/x-jp2-codestream"},
        {"dng", kImage, "image/x-adobe-dng"},
        {"cr2", kImage, "image/x-canon-cr2"},
        {"cr3", kImage, "image/x-canon-cr3"},
        {"crw", kImage, "image/x-canon-crw"},
        {"nef", kImage, "image/x-nikon-nef"},
        {"nrw", kImage, "image/x-nikon-nrw"},
        {"arw", kImage, "image/x-sony-arw"},
        {"sr2", kImage, "image/x-sony-sr2"},
        {"raf", kImage, "image/x-fuji-raf"},
        {"orf", kImage, "image/x-olympus-orf"},
        {"rw2", kImage, "image/x-panasonic-rw2"},
        {"pef", kImage, "image/x-pentax-pef"},
        {"srw", kImage, "image/x-samsung-srw"},
        {"mrw", kImage, "image/x-minolta-mrw"},
        {"mp2", kMusic, "audio/mpeg"},
        {"mpga", kMusic, "audio/mpeg"},
        {"spx", kMusic, "audio/x-speex"},
        {"wv", kMusic, "audio/x-wavpack"},
        {"ape", kMusic, "audio/x-ape"},
        {"mpc", kMusic, "audio/x-musepack"},
        {"tta", kMusic, "audio/x-tta"},
        {"dsf", kMusic, "audio/x-dsf"},
        {"ac3", kMusic, "audio/ac3"},
        {"mka", kMusic, "audio/x-matroska"},
        {"dff", kMusic, "audio/x-dff"},
        {"ra", kMusic, "audio/x-realaudio"},
        {"mptm", kMusic, "audio/x-mptm"},
        {"weba", kMusic, "audio/webm"},
        {"caf", kMusic, "audio/x-caf"},
        {"au", kMusic, "audio/basic"},
        {"snd", kMusic, "audio/basic"},
        {"mod", kMusic, "audio/x-mod"},
        {"s3m", kMusic, "audio/x-s3m"},
        {"xm", kMusic, "audio/x-xm"},
        {"it", kMusic, "audio/x-it"},
        {"ogv", kVideo, "video/ogg"},
        {"ogm", kVideo, "video/ogg"},
        {"flv", kVideo, "video/x-flv"},
        {"fli", kVideo, "video/x-flic"},
        {"flc", kVideo, "video/x-flic"},
        {"f4v", kVideo, "video/mp4"},
        {"mxf", kVideo, "application/mxf"},
        {"m2v", kVideo, "video/mpeg"},
        {"mpe", kVideo, "video/mpeg"},
        {"dv", kVideo, "video/x-dv"},
        {"rm", kVideo, "application/vnd.rn-realmedia"},
        {"jpe", kImage, "image/jpeg"},
        {"jfif", kImage, "image/jpeg"},
        {"png", kImage, "image/png"},
        {"gif", kImage, "image/gif"},
        {"webp", kImage, "image/webp"},
        {"heic", kImage, "image/heic"},
        {"heif", kImage, "image/heif"},
        {"hif", kImage, "image/heif"},
        {"avif", kImage, "image/avif"},
        {"tif", kImage, "image/tiff"},
        {"tiff", kImage, "image/tiff"},
        {"bmp", kImage, "image/bmp"},
        {"dib", kImage, "image/bmp"},
        {"mp3", kMusic, "audio/mpeg"},
        {"flac", kMusic, "audio/flac"},
        {"ogg", kMusic, "audio/ogg"},
        {"oga", kMusic, "audio/ogg"},
        {"opus", kMusic, "audio/opus"},
        {"m4a", kMusic, "audio/mp4"},
        {"m4b", kMusic, "audio/mp4"},
        {"aac", kMusic, "audio/aac"},
        {"wav", kMusic, "audio/x-wav"},
        {"aif", kMusic, "audio/x-aiff"},
        {"aiff", kMusic, "audio/x-aiff"},
        {"aifc", kMusic, "audio/x-aiff"},
        {"wma", kMusic, "audio/x-ms-wma"},
        {"amr", kSound, "audio/amr"},
        {"3ga", kSound, "audio/3gpp"},
        {"mid", kMusic, "audio/midi"},
        {"midi", kMusic, "audio/midi"},
        {"kar", kMusic, "audio/midi"},
        {"mp4", kVideo, "video/mp4"},
        {"m4v", kVideo, "video/mp4"},
        {"mov", kVideo, "video/quicktime"},
        {"qt", kVideo, "video/quicktime"},
        {"mkv", kVideo, "video/x-matroska"},
        {"webm", kVideo, "video/webm"},
        {"avi", kVideo, "video/x-msvideo"},
        {"divx", kVideo, "video/x-msvideo"},
        {"ts", kVideo, "video/mp2t"},
        {"mts", kVideo, "video/mp2t"},
        {"m2ts", kVideo, "video/mp2t"},
        {"mpg", kVideo, "video/mpeg"},
        {"mpeg", kVideo, "video/mpeg"},
        {"vob", kVideo, "video/mpeg"},
        {"3gp", kVideo, "video/3gpp"},
        {"3g2", kVideo, "video/3gpp2"},
        {"wmv", kVideo, "video/x-ms-wmv"},
        {"asf", kVideo, "video/x-ms-asf"},
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

std::string MimeOfKind(const std::string& mime, media_content_type_e kind) {
    const size_t slash = mime.find('/');
    const std::string whole = mime.substr(0, slash);
    if (whole == "video" && kind == MEDIA_CONTENT_TYPE_MUSIC) return "audio" + mime.substr(slash);
    if (whole == "audio" && kind == MEDIA_CONTENT_TYPE_VIDEO) return "video" + mime.substr(slash);
    return mime;
}

}  // namespace platform
