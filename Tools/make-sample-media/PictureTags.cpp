#include "PictureTags.h"

#include <cmath>
#include <exiv2/exiv2.hpp>
#include <filesystem>

namespace samples {
namespace {

// Whole degrees and minutes, and hundredths of seconds, as cameras write them.
std::string Angle(double degrees) {
    const long hundredths = std::lround(std::fabs(degrees) * 360'000.0);
    return std::to_string(hundredths / 360'000) + "/1 " + std::to_string(hundredths / 6'000 % 60) +
           "/1 " + std::to_string(hundredths % 6'000) + "/100";
}

// Two bytes per character and two zero bytes, in the form in which Exiv2 parses a list of bytes.
std::string TwoByteText(const std::string& ascii) {
    std::string bytes;
    for (const char c : ascii) bytes += std::to_string(static_cast<unsigned char>(c)) + " 0 ";
    return bytes + "0 0";
}

void SetPosition(Exiv2::ExifData& exif, const PictureTags& tags) {
    if (!tags.hasPosition) return;
    exif["Exif.GPSInfo.GPSLatitudeRef"] = tags.latitude < 0 ? "S" : "N";
    exif["Exif.GPSInfo.GPSLatitude"].setValue(Angle(tags.latitude));
    exif["Exif.GPSInfo.GPSLongitudeRef"] = tags.longitude < 0 ? "W" : "E";
    exif["Exif.GPSInfo.GPSLongitude"].setValue(Angle(tags.longitude));
}

// The tags that a camera writes into every shot, in its own words and numbers.
void SetShot(Exiv2::ExifData& exif, const std::string& thumbnail) {
    static constexpr struct {
        const char* key;
        const char* value;
    } kShot[] = {
        {"Image.Make", "Sample Cameras"},
        {"Image.Model", "SC-1"},
        {"Image.Software", "Firmware 1.02"},
        {"Image.DateTime", "2024:06:01 12:34:56"},
        {"Image.XResolution", "72/1"},
        {"Image.YResolution", "72/1"},
        {"Image.ResolutionUnit", "2"},
        {"Image.YCbCrPositioning", "2"},
        {"Photo.ExposureTime", "1/250"},
        {"Photo.FNumber", "28/10"},
        {"Photo.ExposureProgram", "2"},
        {"Photo.ISOSpeedRatings", "200"},
        {"Photo.ExifVersion", "48 50 51 49"},
        {"Photo.DateTimeOriginal", "2024:06:01 12:34:56"},
        {"Photo.DateTimeDigitized", "2024:06:01 12:34:56"},
        {"Photo.ComponentsConfiguration", "1 2 3 0"},
        {"Photo.ShutterSpeedValue", "7965/1000"},
        {"Photo.ApertureValue", "297/100"},
        {"Photo.BrightnessValue", "41/10"},
        {"Photo.ExposureBiasValue", "0/3"},
        {"Photo.MaxApertureValue", "297/100"},
        {"Photo.MeteringMode", "5"},
        {"Photo.LightSource", "0"},
        {"Photo.Flash", "16"},
        {"Photo.FocalLength", "48/10"},
        {"Photo.SubSecTime", "21"},
        {"Photo.SubSecTimeOriginal", "21"},
        {"Photo.FlashpixVersion", "48 49 48 48"},
        {"Photo.ColorSpace", "1"},
        {"Photo.PixelXDimension", "1024"},
        {"Photo.PixelYDimension", "768"},
        {"Photo.SensingMethod", "2"},
        {"Photo.SceneType", "1"},
        {"Photo.ExposureMode", "0"},
        {"Photo.WhiteBalance", "0"},
        {"Photo.DigitalZoomRatio", "1/1"},
        {"Photo.FocalLengthIn35mmFilm", "27"},
        {"Photo.SceneCaptureType", "0"},
        {"Photo.LensModel", "SC-1 4.8mm f/2.8"},
    };
    for (const auto& [key, value] : kShot) exif[std::string("Exif.") + key].setValue(value);
    std::string note;
    for (int i = 0; i < 2000; ++i) note += std::to_string(i * 7 % 251) + " ";
    exif["Exif.Photo.MakerNote"].setValue(note);
    Exiv2::ExifThumb(exif).setJpegThumbnail(thumbnail, {72, 1}, {72, 1}, 2);
}

void SetExif(Exiv2::ExifData& exif, const PictureTags& tags) {
    if (!tags.description.empty()) exif["Exif.Image.ImageDescription"] = tags.description;
    if (!tags.copyright.empty()) exif["Exif.Image.Copyright"] = tags.copyright;
    if (!tags.comment.empty())
        exif["Exif.Photo.UserComment"].setValue("charset=Unicode " + tags.comment);
    if (!tags.xpTitle.empty()) exif["Exif.Image.XPTitle"].setValue(TwoByteText(tags.xpTitle));
    if (tags.orientation) exif["Exif.Image.Orientation"] = static_cast<uint16_t>(tags.orientation);
    SetPosition(exif, tags);
    if (!tags.thumbnail.empty()) SetShot(exif, tags.thumbnail);
}

}  // namespace

void TagPicture(const std::string& path, const PictureTags& tags) {
    if (!std::filesystem::exists(path)) return;
    const auto image = Exiv2::ImageFactory::open(path);
    image->readMetadata();
    SetExif(image->exifData(), tags);
    if (!tags.title.empty())
        image->xmpData()["Xmp.dc.title"].setValue("lang=x-default " + tags.title);
    if (!tags.iptcTitle.empty()) image->iptcData()["Iptc.Application2.ObjectName"] = tags.iptcTitle;
    if (!tags.iptcCaption.empty())
        image->iptcData()["Iptc.Application2.Caption"] = tags.iptcCaption;
    for (const auto& [key, value] : tags.more) {
        if (key.rfind("Xmp.", 0) == 0)
            image->xmpData()[key].setValue(value);
        else
            image->exifData()[key].setValue(value);
    }
    image->writeMetadata();
}

}  // namespace samples
