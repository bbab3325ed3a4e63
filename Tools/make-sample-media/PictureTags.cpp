#include "PictureTags.h"

#include <cmath>
#include <exiv2/exiv2.hpp>
#include <filesystem>

namespace samples {
namespace {

// Whole degrees and minutes, and seconds in hundredths, as cameras do.
std::string Angle(double degrees) {
    const long hundredths = std::lround(std::fabs(degrees) * 360'000.0);
    return std::to_string(hundredths / 360'000) + "/1 " + std::to_string(hundredths / 6'000 % 60) +
           "/1 " + std::to_string(hundredths % 6'000) + "/100";
}

// Two bytes a character and two zero bytes, written as Exiv2 reads a list of bytes.
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

void SetExif(Exiv2::ExifData& exif, const PictureTags& tags) {
    if (!tags.description.empty()) exif["Exif.Image.ImageDescription"] = tags.description;
    if (!tags.copyright.empty()) exif["Exif.Image.Copyright"] = tags.copyright;
    if (!tags.comment.empty())
        exif["Exif.Photo.UserComment"].setValue("charset=Unicode " + tags.comment);
    if (!tags.xpTitle.empty()) exif["Exif.Image.XPTitle"].setValue(TwoByteText(tags.xpTitle));
    if (tags.orientation) exif["Exif.Image.Orientation"] = static_cast<uint16_t>(tags.orientation);
    SetPosition(exif, tags);
}

}  // namespace

void TagPicture(const std::string& path, const PictureTags& tags) {
    if (!std::filesystem::exists(path)) return;
    const Exiv2::Image::AutoPtr image = Exiv2::ImageFactory::open(path);
    image->readMetadata();
    SetExif(image->exifData(), tags);
    if (!tags.title.empty())
        image->xmpData()["Xmp.dc.title"].setValue("lang=x-default " + tags.title);
    if (!tags.iptcTitle.empty()) image->iptcData()["Iptc.Application2.ObjectName"] = tags.iptcTitle;
    if (!tags.iptcCaption.empty())
        image->iptcData()["Iptc.Application2.Caption"] = tags.iptcCaption;
    image->writeMetadata();
}

}  // namespace samples
