#include "MediaContent/Extract/PictureSize.h"

#include <jxl/decode.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "MediaContent/Extract/HeaderBytes.h"

namespace platform {
namespace {

constexpr int kMaxSteps = 4000;  // through a JPEG, to its size
constexpr size_t kBoxes = 16 * 1024;
constexpr size_t kJxlStart = 64 * 1024;

// The oldest header, of OS/2, has sides of two bytes. A negative height means "top row first".
PictureSize BitmapSize(FileSource& source) {
    constexpr uint32_t kOldHeader = 12;
    const HeaderBytes<26> header(source, 0);
    if (header.Little32(14) == kOldHeader) return {header.Little16(18), header.Little16(20)};
    const auto height = static_cast<int32_t>(header.Little32(22));
    return {header.Little32(18), static_cast<uint64_t>(std::abs(int64_t{height}))};
}

// The largest of its pictures. A side of 0 means 256.
PictureSize IconSize(FileSource& source) {
    PictureSize largest;
    const uint32_t count = HeaderBytes<6>(source, 0).Little16(4);
    for (uint32_t i = 0; i < count; ++i) {
        const HeaderBytes<16> entry(source, 6 + 16 * uint64_t{i});
        if (!entry.AreThere()) break;
        const PictureSize size{entry[0] == 0 ? 256 : entry[0], entry[1] == 0 ? 256 : entry[1]};
        if (size.width * size.height > largest.width * largest.height) largest = size;
    }
    return largest;
}

bool IsFrameHeader(uint32_t marker) {
    return marker >= 0xc0 && marker <= 0xcf && marker != 0xc4 && marker != 0xc8 && marker != 0xcc;
}

PictureSize JpegSize(FileSource& source) {
    uint64_t at = 2;
    for (int steps = 0; steps < kMaxSteps; ++steps) {
        const HeaderBytes<9> segment(source, at);
        if (!segment.AreThere()) break;
        if (segment[0] != 0xff || segment[1] == 0xff) {  // fill bytes, or rubbish
            ++at;
            continue;
        }
        if (IsFrameHeader(segment[1])) return {segment.Big16(7), segment.Big16(5)};
        at += 2 + segment.Big16(2);
    }
    return {};
}

PictureSize Jpeg2000Size(FileSource& source) {
    const HeaderBytes<24> header(source, 0);
    return {uint64_t{header.Big32(8)} - header.Big32(16),
            uint64_t{header.Big32(12)} - header.Big32(20)};
}

// The largest of the sizes in boxes called `name`, each `skipped` bytes after it. For files whose
// boxes do not nest as they should: others are read by Exiv2.
PictureSize LargestBox(FileSource& source, std::string_view name, size_t skipped,
                       bool heightFirst) {
    std::string start(kBoxes, '\0');
    start.resize(source.ReadAt(0, start.data(), start.size()));
    PictureSize largest;
    for (size_t at = 0; (at = start.find(name, at)) != std::string::npos; ++at) {
        const HeaderBytes<8> sides(source, at + name.size() + skipped);
        PictureSize size{sides.Big32(0), sides.Big32(4)};
        if (heightFirst) std::swap(size.width, size.height);
        if (size.width * size.height > largest.width * largest.height) largest = size;
    }
    return largest;
}

PictureSize PcxSize(FileSource& source) {
    const HeaderBytes<12> header(source, 0);
    return {uint64_t{header.Little16(8)} - header.Little16(4) + 1,
            uint64_t{header.Little16(10)} - header.Little16(6) + 1};
}

// A directory of tags, of which one is the size of the picture within the sensor's.
PictureSize RafSize(FileSource& source) {
    constexpr uint32_t kCroppedSize = 0x0111, kMostTags = 255;
    uint64_t at = HeaderBytes<4>(source, 0x5c).Big32(0);
    const uint32_t count = std::min(HeaderBytes<4>(source, at).Big32(0), kMostTags);
    at += 4;
    for (uint32_t i = 0; i < count; ++i) {
        const HeaderBytes<8> tag(source, at);
        if (tag.Big16(0) == kCroppedSize) return {tag.Big16(6), tag.Big16(4)};
        at += uint64_t{4} + tag.Big16(2);
    }
    return {};
}

// "P6", then the sides in decimal, with blanks and comments to the end of a line between; "P7"
// names them.
PictureSize AnymapSize(FileSource& source) {
    std::string start(512, '\0');
    start.resize(source.ReadAt(0, start.data(), start.size()));
    for (size_t at = 0; (at = start.find('#', at)) != std::string::npos;)
        start.erase(at, start.find('\n', at) - at);
    const bool named = start[1] == '7';
    PictureSize size;
    const char* const format = named ? "P7 WIDTH %lu HEIGHT %lu" : "P%*1[1-6] %lu %lu";
    unsigned long width = 0, height = 0;
    if (sscanf(start.c_str(), format, &width, &height) == 2) size = {width, height};
    return size;
}

PictureSize JpegXlSize(FileSource& source) {
    std::vector<uint8_t> start(std::min<uint64_t>(source.Size(), kJxlStart));
    start.resize(source.ReadAt(0, start.data(), start.size()));
    const std::unique_ptr<JxlDecoder, decltype(&JxlDecoderDestroy)> decoder(
        JxlDecoderCreate(nullptr), &JxlDecoderDestroy);
    JxlBasicInfo info{};
    if (!decoder ||
        JxlDecoderSubscribeEvents(decoder.get(), JXL_DEC_BASIC_INFO) != JXL_DEC_SUCCESS ||
        JxlDecoderSetKeepOrientation(decoder.get(), JXL_TRUE) != JXL_DEC_SUCCESS ||
        JxlDecoderSetInput(decoder.get(), start.data(), start.size()) != JXL_DEC_SUCCESS ||
        JxlDecoderProcessInput(decoder.get()) != JXL_DEC_BASIC_INFO ||
        JxlDecoderGetBasicInfo(decoder.get(), &info) != JXL_DEC_SUCCESS)
        return {};
    return {info.xsize, info.ysize, static_cast<int32_t>(info.orientation)};
}

}  // namespace

std::optional<PictureSize> ReadPictureSize(FileSource& source) {
    using namespace std::string_view_literals;
    const HeaderBytes<12> start(source, 0);
    const bool isAnymap = start[0] == 'P' && start[1] >= '1' && start[1] <= '7';
    const bool isPcx = start[0] == 0x0a && start[1] <= 5 && start[2] == 1;
    if (start.Start("GIF8"sv)) return PictureSize{start.Little16(6), start.Little16(8)};
    if (start.Start("qoif"sv)) return PictureSize{start.Big32(4), start.Big32(8)};
    if (start.Start("FUJIFILMCCD-"sv)) return RafSize(source);
    if (isAnymap) return AnymapSize(source);
    if (isPcx) return PcxSize(source);
    if (start.Start("\0\0\0\x0cjP  "sv)) return LargestBox(source, "ihdr", 0, true);
    if (HeaderBytes<4>(source, 4).Start("ftyp"sv)) return LargestBox(source, "ispe", 4, false);
    if (start.Start("BM"sv)) return BitmapSize(source);
    if (start.Start("\0\0\1\0"sv)) return IconSize(source);
    if (start.Start("\xff\xd8\xff"sv)) return JpegSize(source);
    if (start.Start("\xff\x4f\xff\x51"sv)) return Jpeg2000Size(source);
    if (start.Start("\xff\x0a"sv) || start.Start("\0\0\0\x0cJXL \r\n\x87\n"sv))
        return JpegXlSize(source);
    return {};
}

std::optional<PictureSize> ReadTargaSize(FileSource& source) {
    const HeaderBytes<18> header(source, 0);
    const uint32_t kind = header[2] & ~8u;  // 8: compressed
    const uint32_t depth = header[16];
    const bool isTarga = header.AreThere() && header[1] <= 1 && kind >= 1 && kind <= 3 &&
                         (depth == 8 || depth == 15 || depth == 16 || depth == 24 || depth == 32);
    if (!isTarga) return {};
    return PictureSize{header.Little16(12), header.Little16(14)};
}

}  // namespace platform
