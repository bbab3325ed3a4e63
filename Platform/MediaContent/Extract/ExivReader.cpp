// Pictures, through Exiv2.
#include <iconv.h>
#include <sys/mman.h>

#include <cmath>
#include <exiv2/exiv2.hpp>

#include "MediaContent/Extract/CleanText.h"
#include "MediaContent/Extract/ReadMetadata.h"
#include "MediaContent/Extract/ReaderSetup.h"

namespace platform {
namespace {

// Lets Exiv2 read a source. It is read-only: operations that would write do nothing and fail.
class ExivIo : public Exiv2::BasicIo {
public:
    explicit ExivIo(FileSource& source) : m_source(source), m_cursor(source) {}
    ~ExivIo() override { Unmap(); }

    int open() override {
        m_open = true;
        m_atEnd = false;
        m_cursor.Seek(0, SourceCursor::From::Start);
        return 0;
    }
    int close() override {
        m_open = false;
        return munmap();
    }
    long write(const Exiv2::byte*, long) override { return 0; }
    long write(Exiv2::BasicIo&) override { return 0; }
    int putb(Exiv2::byte) override { return EOF; }
    void transfer(Exiv2::BasicIo&) override {}

    Exiv2::DataBuf read(long count) override {
        if (count < 0 || static_cast<uint64_t>(count) > m_source.Size())
            throw Exiv2::Error(Exiv2::kerInvalidMalloc);
        Exiv2::DataBuf data(count);
        data.size_ = read(data.pData_, count);
        return data;
    }
    long read(Exiv2::byte* buffer, long count) override {
        if (count <= 0) return 0;
        const size_t got = m_cursor.Read(buffer, static_cast<size_t>(count));
        if (got < static_cast<size_t>(count)) m_atEnd = true;
        return static_cast<long>(got);
    }
    int getb() override {
        Exiv2::byte one = 0;
        return read(&one, 1) == 1 ? one : EOF;
    }
    int seek(long offset, Position from) override {
        const SourceCursor::From base = from == beg   ? SourceCursor::From::Start
                                        : from == cur ? SourceCursor::From::Here
                                                      : SourceCursor::From::End;
        if (!m_cursor.Seek(offset, base)) return 1;
        m_atEnd = false;
        return 0;
    }

    Exiv2::byte* mmap(bool) override {
        if (m_mapped) return m_mapped;
        void* place = ::mmap(nullptr, m_source.Size(), PROT_READ, MAP_PRIVATE, m_source.Fd(), 0);
        if (place == MAP_FAILED) throw Exiv2::Error(Exiv2::kerCallFailed, path(), "", "mmap");
        m_mapped = static_cast<Exiv2::byte*>(place);
        return m_mapped;
    }
    int munmap() override {
        Unmap();
        return 0;
    }

    long tell() const override { return static_cast<long>(m_cursor.Tell()); }
    size_t size() const override { return m_source.Size(); }
    bool isopen() const override { return m_open; }
    int error() const override { return 0; }
    bool eof() const override { return m_atEnd; }
    std::string path() const override { return "file"; }

private:
    void Unmap() {
        if (m_mapped) ::munmap(m_mapped, m_source.Size());
        m_mapped = nullptr;
    }

    FileSource& m_source;
    SourceCursor m_cursor;
    bool m_open = false;
    bool m_atEnd = false;
    Exiv2::byte* m_mapped = nullptr;
};

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
constexpr ExifTag kCopyright = {0x8298, "Image"};
constexpr ExifTag kXpTitle = {0x9c9b, "Image"};
constexpr ExifTag kXpComment = {0x9c9c, "Image"};
constexpr ExifTag kUserComment = {0x9286, "Photo"};
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
                                   [&] { return XmpText(xmp, "Xmp.dc.rights"); });
}

// Degrees, minutes and seconds as three fractions, with the hemisphere's letter in another tag.
bool ReadAngle(const Exiv2::ExifData& exif, const ExifTag& tag, const ExifTag& refTag, double limit,
               double& degrees) {
    const Exiv2::Exifdatum* value = Find(exif, tag);
    const Exiv2::Exifdatum* ref = Find(exif, refTag);
    if (!value || !ref) return false;
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

void ReadPosition(const Exiv2::ExifData& exif, Metadata& metadata) {
    double latitude = 0.0;
    double longitude = 0.0;
    if (!ReadAngle(exif, kLatitude, kLatitudeRef, 90.0, latitude) ||
        !ReadAngle(exif, kLongitude, kLongitudeRef, 180.0, longitude))
        return;
    metadata.hasPosition = true;
    metadata.latitude = latitude;
    metadata.longitude = longitude;
}

void ReadOrientation(const Exiv2::ExifData& exif, Metadata& metadata) {
    const Exiv2::Exifdatum* found = Find(exif, kOrientation);
    if (!found) return;
    const long value = found->toLong();
    if (value >= MEDIA_CONTENT_ORIENTATION_NORMAL && value <= MEDIA_CONTENT_ORIENTATION_ROT_270)
        metadata.orientation = static_cast<int32_t>(value);
}

int32_t Pixels(uint32_t value) {
    return value <= INT32_MAX ? static_cast<int32_t>(value) : 0;
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

bool ReadPicture(FileSource& source, Metadata& metadata) {
// The library still uses std::auto_ptr.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    const Exiv2::Image::AutoPtr image =
        Exiv2::ImageFactory::open(Exiv2::BasicIo::AutoPtr(new ExivIo(source)));
#pragma GCC diagnostic pop
    if (image.get() == nullptr) return false;  // unknown format
    image->readMetadata();
    const Exiv2::ExifData& exif = image->exifData();
    metadata.width = Pixels(static_cast<uint32_t>(image->pixelWidth()));
    metadata.height = Pixels(static_cast<uint32_t>(image->pixelHeight()));
    ReadOrientation(exif, metadata);
    ReadPosition(exif, metadata);
    ReadTexts(*image, metadata);
    return metadata.width > 0 && metadata.height > 0;
}

}  // namespace platform
