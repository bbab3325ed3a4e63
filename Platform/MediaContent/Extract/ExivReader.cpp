// Pictures, through Exiv2.
#include <iconv.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <exiv2/exiv2.hpp>

#include "MediaContent/Extract/CleanText.h"
#include "MediaContent/Extract/ExivIo.h"
#include "MediaContent/Extract/MakeAndModel.h"
#include "MediaContent/Extract/Moment.h"
#include "MediaContent/Extract/PictureSize.h"
#include "MediaContent/Extract/ReadMetadata.h"
#include "MediaContent/Extract/ReaderSetup.h"

namespace platform {
namespace {

constexpr uint64_t kLongestSide = 500000;  // pixels; longer ones come from damaged headers

// Exiv2 prefixes such values with "lang=\"x-default\" " and "charset=Ascii ".
std::string WithoutPrefix(std::string text, const char* prefix) {
    if (text.rfind(prefix, 0) != 0) return text;
    const size_t blank = text.find(' ');
    return blank == std::string::npos ? std::string() : text.substr(blank + 1);
}

// Looking up a value by number takes a tenth of the time of looking it up by name.
struct ExifTag {
    uint16_t number;
    const char* group;
};
constexpr ExifTag kDescription = {0x010e, "Image"};
constexpr ExifTag kOrientation = {0x0112, "Image"};
constexpr ExifTag kArtist = {0x013b, "Image"};
constexpr ExifTag kCopyright = {0x8298, "Image"};
constexpr ExifTag kXpAuthor = {0x9c9d, "Image"};
constexpr ExifTag kXpTitle = {0x9c9b, "Image"};
constexpr ExifTag kXpComment = {0x9c9c, "Image"};
constexpr ExifTag kUserComment = {0x9286, "Photo"};
constexpr ExifTag kMake = {0x010f, "Image"};
constexpr ExifTag kModel = {0x0110, "Image"};
constexpr ExifTag kRating = {0x4746, "Image"};
constexpr ExifTag kTimeOriginal = {0x9003, "Photo"};
constexpr ExifTag kOffsetOriginal = {0x9011, "Photo"};
constexpr ExifTag kFractionOriginal = {0x9291, "Photo"};
constexpr ExifTag kTimeDigitized = {0x9004, "Photo"};
constexpr ExifTag kOffsetDigitized = {0x9012, "Photo"};
constexpr ExifTag kFractionDigitized = {0x9292, "Photo"};
constexpr ExifTag kLensModel = {0xa434, "Photo"};
constexpr ExifTag kAltitudeRef = {0x0005, "GPSInfo"};
constexpr ExifTag kAltitude = {0x0006, "GPSInfo"};
constexpr ExifTag kSensorTop = {0x0004, "PanasonicRaw"};
constexpr ExifTag kSensorLeft = {0x0005, "PanasonicRaw"};
constexpr ExifTag kSensorBottom = {0x0006, "PanasonicRaw"};
constexpr ExifTag kSensorRight = {0x0007, "PanasonicRaw"};
constexpr ExifTag kLatitudeRef = {0x0001, "GPSInfo"};
constexpr ExifTag kLatitude = {0x0002, "GPSInfo"};
constexpr ExifTag kLongitudeRef = {0x0003, "GPSInfo"};
constexpr ExifTag kLongitude = {0x0004, "GPSInfo"};

// Null when the value is missing or empty.
const Exiv2::Exifdatum* Find(const Exiv2::ExifData& exif, const ExifTag& wanted) {
    for (const Exiv2::Exifdatum& value : exif) {
        if (value.tag() == wanted.number && value.groupName() == wanted.group)
            return value.count() > 0 ? &value : nullptr;
    }
    return nullptr;
}

std::string ExifText(const Exiv2::ExifData& exif, const ExifTag& tag) {
    const Exiv2::Exifdatum* found = Find(exif, tag);
    // print() also converts the two-byte characters of the XP tags to UTF-8.
    return found ? CleanText(found->print(&exif)) : std::string();
}

std::string ExifComment(const Exiv2::ExifData& exif) {
    const Exiv2::Exifdatum* found = Find(exif, kUserComment);
    if (!found) return {};
    const auto* comment = dynamic_cast<const Exiv2::CommentValue*>(&found->value());
    return comment ? CleanText(WithoutPrefix(comment->comment(), "charset=")) : std::string();
}

std::string XmpText(const Exiv2::XmpData& xmp, const char* key) {
    if (xmp.empty()) return {};
    const auto found = xmp.findKey(Exiv2::XmpKey(key));
    if (found == xmp.end() || found->count() == 0) return {};
    return CleanText(WithoutPrefix(found->toString(0), "lang="));
}

std::string IptcText(const Exiv2::IptcData& iptc, const char* key) {
    if (iptc.empty()) return {};
    const auto found = iptc.findKey(Exiv2::IptcKey(key));
    return found == iptc.end() ? std::string() : CleanText(found->toString());
}

// Returns the first text that is not empty, calling the sources in order.
template <typename... Sources>
std::string FirstText(Sources... sources) {
    std::string text;
    static_cast<void>(((text = sources(), !text.empty()) || ...));
    return text;
}

void ReadTexts(Exiv2::Image& image, Metadata& metadata) {
    const Exiv2::ExifData& exif = image.exifData();
    const Exiv2::XmpData& xmp = image.xmpData();
    const Exiv2::IptcData& iptc = image.iptcData();
    metadata.title = FirstText([&] { return XmpText(xmp, "Xmp.dc.title"); },
                               [&] { return IptcText(iptc, "Iptc.Application2.ObjectName"); },
                               [&] { return ExifText(exif, kXpTitle); });
    metadata.description = FirstText(
        [&] { return ExifText(exif, kDescription); },
        [&] { return XmpText(xmp, "Xmp.dc.description"); },
        [&] { return IptcText(iptc, "Iptc.Application2.Caption"); },
        [&] { return ExifText(exif, kXpComment); }, [&] { return ExifComment(exif); },
        // Programs put their signature into a JPEG's comment; a PNG's comment is its "Description".
        [&] { return image.mimeType() == "image/png" ? CleanText(image.comment()) : ""; });
    metadata.copyright = FirstText([&] { return ExifText(exif, kCopyright); },
                                   [&] { return XmpText(xmp, "Xmp.dc.rights"); },
                                   [&] { return IptcText(iptc, "Iptc.Application2.Copyright"); });
    metadata.artist = FirstText([&] { return ExifText(exif, kArtist); },
                                [&] { return XmpText(xmp, "Xmp.dc.creator"); },
                                [&] { return IptcText(iptc, "Iptc.Application2.Byline"); },
                                [&] { return ExifText(exif, kXpAuthor); });
}

// Degrees, minutes and seconds as three fractions, with the hemisphere's letter in another tag.
bool ReadAngle(const Exiv2::ExifData& exif, const ExifTag& tag, const ExifTag& refTag, double limit,
               double& degrees) {
    const Exiv2::Exifdatum* value = Find(exif, tag);
    const Exiv2::Exifdatum* ref = Find(exif, refTag);
    if (!value || !ref || value->typeId() != Exiv2::unsignedRational) return false;
    double sum = 0.0;
    double unit = 1.0;
    for (long i = 0; i < 3 && i < value->count(); ++i, unit /= 60.0) {
        const Exiv2::Rational part = value->toRational(i);
        // Cameras that do not record minutes or seconds write 0/0 for them.
        if (part.second == 0 && i > 0) continue;
        if (part.second == 0 || part.first < 0 || part.second < 0) return false;
        sum += unit * part.first / part.second;
    }
    if (!std::isfinite(sum) || sum > limit) return false;
    const std::string letter = ref->toString();
    const bool negative = !letter.empty() && (letter[0] == 'S' || letter[0] == 'W');
    degrees = negative ? -sum : sum;
    return true;
}

// Metres; below the sea when the reference is 1.
double ReadAltitude(const Exiv2::ExifData& exif) {
    const Exiv2::Exifdatum* value = Find(exif, kAltitude);
    if (!value) return 0.0;
    const Exiv2::Rational metres = value->toRational(0);
    if (metres.second <= 0) return 0.0;
    const Exiv2::Exifdatum* ref = Find(exif, kAltitudeRef);
    const double altitude = static_cast<double>(metres.first) / metres.second;
    if (std::fabs(altitude) >= kHighestAltitude) return 0.0;
    return ref && ref->toLong() == 1 ? -altitude : altitude;
}

// "54,59.38N" and "54,59,22.8N".
bool ReadXmpAngle(const Exiv2::XmpData& xmp, const char* key, double limit, double& degrees) {
    const std::string text = XmpText(xmp, key);
    const char* at = text.c_str();
    double sum = 0.0;
    for (double unit = 1.0; unit > 1e-4; unit /= 60.0) {
        char* end = nullptr;
        sum += std::strtod(at, &end) * unit;
        if (end == at) return false;
        at = end + (*end == ',');
        if (*end != ',') break;
    }
    if (*at == '\0' || !std::strchr("NSEW", *at) || !(sum >= 0 && sum <= limit)) return false;
    degrees = *at == 'S' || *at == 'W' ? -sum : sum;
    return true;
}

bool ReadXmpPosition(const Exiv2::XmpData& xmp, Metadata& metadata) {
    return ReadXmpAngle(xmp, "Xmp.exif.GPSLatitude", 90.0, metadata.latitude) &&
           ReadXmpAngle(xmp, "Xmp.exif.GPSLongitude", 180.0, metadata.longitude);
}

void ReadPosition(const Exiv2::ExifData& exif, const Exiv2::XmpData& xmp, Metadata& metadata) {
    double latitude = 0.0;
    double longitude = 0.0;
    if (!ReadAngle(exif, kLatitude, kLatitudeRef, 90.0, latitude) ||
        !ReadAngle(exif, kLongitude, kLongitudeRef, 180.0, longitude)) {
        metadata.hasPosition = ReadXmpPosition(xmp, metadata);
        if (!metadata.hasPosition) metadata.latitude = metadata.longitude = 0.0;
        return;
    }
    metadata.hasPosition = true;
    metadata.latitude = latitude;
    metadata.longitude = longitude;
    metadata.altitude = ReadAltitude(exif);
}

// EXIF's number, or else that of XMP; 0 when neither is from `least` to `most`.
int32_t ReadNumber(const Exiv2::Image& image, const ExifTag& tag, const char* xmpKey, long least,
                   long most) {
    const Exiv2::Exifdatum* found = Find(image.exifData(), tag);
    const auto fits = [&](long value) { return value >= least && value <= most; };
    if (found && fits(found->toLong())) return static_cast<int32_t>(found->toLong());
    const std::string text = XmpText(image.xmpData(), xmpKey);
    const long value = std::strtol(text.c_str(), nullptr, 10);
    return fits(value) ? static_cast<int32_t>(value) : 0;
}

// A fraction of a second and an offset have tags of their own.
std::string ExifMoment(const Exiv2::ExifData& exif, const ExifTag& time, const ExifTag& fraction,
                       const ExifTag& offset) {
    const std::string text = ExifText(exif, time);
    if (text.empty()) return {};
    const std::string digits = ExifText(exif, fraction);
    return ParseMoment(text + (digits.empty() ? "" : "." + digits) + ExifText(exif, offset));
}

// When the picture was taken, not when a program last changed it.
std::string ReadTaken(const Exiv2::Image& image) {
    const Exiv2::ExifData& exif = image.exifData();
    const Exiv2::XmpData& xmp = image.xmpData();
    return FirstText(
        [&] { return ExifMoment(exif, kTimeOriginal, kFractionOriginal, kOffsetOriginal); },
        [&] { return ParseMoment(XmpText(xmp, "Xmp.exif.DateTimeOriginal")); },
        [&] { return ParseMoment(XmpText(xmp, "Xmp.photoshop.DateCreated")); },
        [&] { return ExifMoment(exif, kTimeDigitized, kFractionDigitized, kOffsetDigitized); },
        [&] { return ParseMoment(XmpText(xmp, "Xmp.xmp.CreateDate")); },
        [&] { return ParseMoment(IptcText(image.iptcData(), "Iptc.Application2.DateCreated")); });
}

void ReadCamera(const Exiv2::Image& image, Metadata& metadata) {
    const Exiv2::ExifData& exif = image.exifData();
    const Exiv2::XmpData& xmp = image.xmpData();
    metadata.camera = MakeAndModel(FirstText([&] { return ExifText(exif, kMake); },
                                             [&] { return XmpText(xmp, "Xmp.tiff.Make"); }),
                                   FirstText([&] { return ExifText(exif, kModel); },
                                             [&] { return XmpText(xmp, "Xmp.tiff.Model"); }));
    metadata.lens = FirstText([&] { return ExifText(exif, kLensModel); },
                              [&] { return XmpText(xmp, "Xmp.exifEX.LensModel"); },
                              [&] { return XmpText(xmp, "Xmp.aux.Lens"); });
}

void SetSize(const PictureSize& size, Metadata& metadata) {
    const bool isSensible = size.width <= kLongestSide && size.height <= kLongestSide;
    metadata.width = isSensible ? static_cast<int32_t>(size.width) : 0;
    metadata.height = isSensible ? static_cast<int32_t>(size.height) : 0;
}

// Panasonic's raw photos: Exiv2 tells the sensor's size, of which the picture is a part.
void CutToPicture(const Exiv2::ExifData& exif, Metadata& metadata) {
    const Exiv2::Exifdatum* top = Find(exif, kSensorTop);
    const Exiv2::Exifdatum* left = Find(exif, kSensorLeft);
    const Exiv2::Exifdatum* bottom = Find(exif, kSensorBottom);
    const Exiv2::Exifdatum* right = Find(exif, kSensorRight);
    if (!top || !left || !bottom || !right) return;
    const long width = right->toLong() - left->toLong();
    const long height = bottom->toLong() - top->toLong();
    if (width <= 0 || height <= 0) return;
    SetSize({static_cast<uint64_t>(width), static_cast<uint64_t>(height)}, metadata);
}

// Exiv2 goes by the content, and its readers of films end the process on a damaged one.
bool IsFilm(const Exiv2::Image& image) {
    // Not mimeType(): called before readMetadata() it makes pixelWidth() tell a thumbnail's.
    // The numbers stand in headers of the library that cannot be included by themselves.
    constexpr int kRiff = 20, kMatroska = 21, kQuickTime = 22, kAsf = 24;
    const int type = image.imageType();
    return type == kRiff || type == kMatroska || type == kQuickTime || type == kAsf;
}

// What Exiv2 has read when it comes upon a damaged part is kept.
void ReadTags(FileSource& source, Metadata& metadata) {
// The library still uses std::auto_ptr.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    const Exiv2::Image::AutoPtr image =
        Exiv2::ImageFactory::open(Exiv2::BasicIo::AutoPtr(new ExivIo(source)));
#pragma GCC diagnostic pop
    if (image.get() == nullptr || IsFilm(*image)) return;
    try {
        image->readMetadata();
    } catch (const Exiv2::Error&) {
    }
    SetSize(
        {static_cast<uint32_t>(image->pixelWidth()), static_cast<uint32_t>(image->pixelHeight())},
        metadata);
    if (image->imageType() == Exiv2::ImageType::rw2) CutToPicture(image->exifData(), metadata);
    metadata.orientation =
        ReadNumber(*image, kOrientation, "Xmp.tiff.Orientation", MEDIA_CONTENT_ORIENTATION_NORMAL,
                   MEDIA_CONTENT_ORIENTATION_ROT_270);
    metadata.rating = ReadNumber(*image, kRating, "Xmp.xmp.Rating", 1, kHighestRating);
    metadata.taken = ReadTaken(*image);
    ReadCamera(*image, metadata);
    ReadPosition(image->exifData(), image->xmpData(), metadata);
    ReadTexts(*image, metadata);
}

// Exiv2 reads a bitmap's header wrongly if it is OS/2's or starts with the top row. Of a Fujifilm
// raw photo it tells the preview's size, and of the HEIF family EXIF's, which an editor may have
// left.
bool IsMisread(const char* mime) {
    for (const char* known :
         {"image/bmp", "image/x-fuji-raf", "image/heic", "image/heif", "image/avif"})
        if (std::strcmp(mime, known) == 0) return true;
    return false;
}

bool HasSize(const Metadata& metadata) {
    return metadata.width > 0 && metadata.height > 0;
}

// The C library loads its character tables at the first conversion; later the helper may not open
// files any more.
void LoadConversion(const char* to, const char* from) {
    const iconv_t conversion = iconv_open(to, from);
    if (conversion != reinterpret_cast<iconv_t>(-1)) iconv_close(conversion);
}

}  // namespace

void InitExiv() {
    LoadConversion("UTF-8", "UCS-2LE");
    LoadConversion("UTF-8", "UCS-2BE");
    Exiv2::XmpParser::initialize();
    Exiv2::enableBMFF(true);
    Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute);
}

bool ReadPicture(FileSource& source, const char* mime, Metadata& metadata) {
    const bool isDrawing = std::strcmp(mime, "image/svg+xml") == 0;
    if (isDrawing || std::strcmp(mime, "image/x-tga") == 0) {
        const auto size = isDrawing ? ReadDrawingSize(source) : ReadTargaSize(source);
        if (size) SetSize(*size, metadata);
        return HasSize(metadata);
    }
    try {
        ReadTags(source, metadata);
        ReadPngTexts(source, metadata);
    } catch (const Exiv2::Error&) {  // not its format: the header may still tell
    }
    if (!HasSize(metadata) || IsMisread(mime)) {
        const auto size = ReadPictureSize(source);
        if (size && size->width > 0) SetSize(*size, metadata);
        if (size && size->orientation != 0) metadata.orientation = size->orientation;
    }
    return HasSize(metadata);
}

}  // namespace platform
