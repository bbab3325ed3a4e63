// The rarer kinds of media, a file of each, and those whose names do not tell what they hold.
#include "OtherKinds.h"

#include "Files.h"
#include "PictureTags.h"

namespace samples {
namespace {

using namespace std::string_literals;

constexpr char kPicture[] = "testsrc=size=128x96";
constexpr char kClip[] = "testsrc2=size=160x120:rate=25:duration=1";
constexpr char kTone[] = "sine=frequency=330:duration=2";

std::string Little(uint64_t value, int bytes) {
    std::string out;
    for (; bytes > 0; --bytes, value >>= 8) out += static_cast<char>(value);
    return out;
}

std::string Big(uint64_t value, int bytes) {
    const std::string little = Little(value, bytes);
    return {little.rbegin(), little.rend()};
}

// Of OS/2, with sides of two bytes; one bit a pixel, two colours.
std::string OldBitmap(uint32_t width, uint32_t height) {
    const uint32_t row = (width + 31) / 32 * 4;
    return "BM" + Little(32 + row * height, 4) + Little(0, 4) + Little(32, 4) + Little(12, 4) +
           Little(width, 2) + Little(height, 2) + Little(1, 2) + Little(1, 2) + "\0\0\0"s +
           "\xff\xff\xff"s + std::string(row * height, '\x55');
}

// With its top row first, so with a negative height.
std::string TopDownBitmap(uint32_t width, uint32_t height) {
    const uint32_t size = width * height * 4;
    return "BM" + Little(54 + size, 4) + Little(0, 4) + Little(54, 4) + Little(40, 4) +
           Little(width, 4) + Little(-uint64_t{height}, 4) + Little(1, 2) + Little(32, 2) +
           std::string(24, '\0') + std::string(size, '\x7f');
}

std::string Event(unsigned ticks, const std::string& bytes) {
    return static_cast<char>(ticks) + bytes;
}

std::string Track(const std::string& events) {
    const std::string all = events + Event(0, "\xff\x2f\0"s);
    return "MTrk" + Big(all.size(), 4) + all;
}

// Twelve quarter notes: four at 120 and eight at 60 a minute, ten seconds.
std::string Tune() {
    const std::string tempos = Event(0, "\xff\x03\x0bGreen Field"s) +
                               Event(0, "\xff\x51\x03\x07\xa1\x20"s) +
                               Event(96, "\xff\x51\x03\x0f\x42\x40"s);
    std::string notes = Event(0, "\xc0\x10"s);
    for (int i = 0; i < 12; ++i) notes += Event(0, "\x90\x3c\x40"s) + Event(24, "\x3c\0"s);
    return "MThd" + Big(6, 4) + Big(1, 2) + Big(2, 2) + Big(24, 2) + Track(tempos) + Track(notes);
}

std::string Padded(std::string text, size_t size) {
    text.resize(size, '\0');
    return text;
}

// One pattern of 64 empty rows: at 125 beats a minute and six ticks a row, 7.68 seconds.
std::string Module() {
    std::string instruments;
    for (int i = 0; i < 31; ++i) instruments += std::string(28, '\0') + "\0\1"s;
    return Padded("Old Computer", 20) + instruments + "\1\x7f"s + std::string(128, '\0') + "M.K." +
           std::string(64 * 16, '\0');
}

// One second of two channels of 2,822,400 single bits.
std::string DirectStream() {
    constexpr uint64_t kSamples = 2822400, kBlock = 4096;
    const uint64_t blocks = (kSamples / 8 + kBlock - 1) / kBlock * 2;
    const std::string data =
        "data" + Little(12 + blocks * kBlock, 8) + std::string(blocks * kBlock, '\x69');
    const std::string format = "fmt " + Little(52, 8) + Little(1, 4) + Little(0, 4) + Little(2, 4) +
                               Little(2, 4) + Little(kSamples, 4) + Little(1, 4) +
                               Little(kSamples, 8) + Little(kBlock, 4) + Little(0, 4);
    return "DSD " + Little(28, 8) + Little(28 + format.size() + data.size(), 8) + Little(0, 8) +
           format + data;
}

// A directory of numbers of four bytes and of texts, after the mark that tells the maker's format.
// Raw photos are TIFF files with marks and tags of their own; these have no pixels.
std::string RawPhoto(const std::string& mark, const std::string& model,
                     const std::vector<std::pair<uint16_t, uint32_t>>& numbers) {
    const std::string make = "Sample Cameras\0"s, text = model + '\0';
    const size_t start = mark.size();
    const size_t count = numbers.size() + 2;
    uint64_t at = start + 2 + count * 12 + 4;  // of the texts
    std::string entries, texts;
    const auto addText = [&](uint16_t tag, const std::string& value) {
        entries += Little(tag, 2) + Little(2, 2) + Little(value.size(), 4) + Little(at, 4);
        texts += value;
        at += value.size();
    };
    bool hasTexts = false;
    for (const auto& [tag, value] : numbers) {
        if (tag > 0x0110 && !std::exchange(hasTexts, true)) {  // tags come in their order
            addText(0x010f, make);
            addText(0x0110, text);
        }
        entries += Little(tag, 2) + Little(4, 2) + Little(1, 4) + Little(value, 4);
    }
    return mark + Little(count, 2) + entries + Little(0, 4) + texts;
}

// Two seconds of 44,100 samples.
std::string MonkeysAudio() {
    constexpr uint32_t kBlocks = 73728;
    const std::string descriptor = "MAC " + Little(3990, 2) + Little(0, 2) + Little(52, 4) +
                                   Little(24, 4) + std::string(36, '\0');
    return descriptor + Little(2000, 2) + Little(0, 2) + Little(kBlocks, 4) +
           Little(88200 - kBlocks, 4) + Little(2, 4) + Little(16, 2) + Little(2, 2) +
           Little(44100, 4) + std::string(500, '\0');
}

// A hundred frames of 1,152 samples at 44,100 a second.
std::string Musepack() {
    return "MP+\7"s + Little(100, 4) + std::string(400, '\0');
}

constexpr char kDrawing[] =
    "<?xml version=\"1.0\"?>\n<!DOCTYPE svg>\n"
    "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"50.8mm\" viewBox=\"0 0 200 100\">"
    "<circle cx=\"100\" cy=\"50\" r=\"40\"/></svg>\n";

}  // namespace

std::vector<Encoding> OtherKinds(const std::string& dir) {
    const Words tags = {"title=Evening Song",
                        "artist=The Sparrows",
                        "album=Field Recordings",
                        "album_artist=Various Birds",
                        "disc=2/3",
                        "date=2017-06-05"};
    const Words film = {"title=At the Lake", "creation_time=2017-06-05T18:30:15.250Z"};
    const auto picture = [&](const char* name, const Words& options = {}) {
        Words all = {"-frames:v", "1"};
        all.insert(all.end(), options.begin(), options.end());
        return Ffmpeg(dir + name, kPicture, "", all, {});
    };
    const auto song = [&](const char* name, const Words& options) {
        return Ffmpeg(dir + name, "", kTone, options, tags);
    };
    return {
        picture("/picture.jxl"),
        picture("/picture.jp2"),
        picture("/picture.ico"),
        picture("/xmp.jpg"),
        picture("/shot.jpg"),
        Ffmpeg(dir + "/moving.apng", kClip, "", {}, {}),
        Ffmpeg(dir + "/moving.webp", kClip, "", {"-c:v", "libwebp_anim"}, {}),
        song("/song.wv", {"-c:a", "wavpack"}),
        song("/song.tta", {}),
        song("/song.spx", {"-c:a", "libspeex", "-ar", "16000"}),
        song("/song.ac3", {}),
        song("/song.mka", {"-c:a", "flac"}),
        song("/sound-only.mkv", {"-c:a", "flac"}),
        song("/sound-only.mp4", {"-c:a", "aac"}),
        song("/sound-only.3g2", {"-c:a", "aac"}),
        Ffmpeg(dir + "/cover.mp3", "testsrc=size=128x96:rate=1:duration=1", kTone,
               {"-map", "0", "-map", "1", "-c:v", "mjpeg", "-disposition:v", "attached_pic"}, tags),
        Ffmpeg(dir + "/film.ogv", kClip, kTone, {"-c:v", "libtheora", "-c:a", "libvorbis"}, film),
        Ffmpeg(dir + "/film.ogg", kClip, "", {"-c:v", "libtheora"}, film),
        Ffmpeg(dir + "/film.flv", kClip, "", {"-c:v", "flv"}, film),
        Ffmpeg(dir + "/film.mxf", kClip, "", {"-c:v", "mpeg2video"}, film),
        Ffmpeg(dir + "/dated.mov", kClip, "", {"-c:v", "mpeg4", "-r", "30000/1001"}, film),
    };
}

void FinishOtherKinds(const std::string& dir) {
    WriteFile(dir + "/os2.bmp", OldBitmap(127, 64));
    WriteFile(dir + "/top-down.bmp", TopDownBitmap(30, 20));
    WriteFile(dir + "/drawing.svg", kDrawing);
    WriteFile(dir + "/tune.mid", Tune());
    WriteFile(dir + "/old.mod", Module());
    WriteFile(dir + "/direct.dsf", DirectStream());
    WriteFile(dir + "/monkey.ape", MonkeysAudio());
    WriteFile(dir + "/pack.mpc", Musepack());
    const std::string tiff = "II*\0\x08\0\0\0"s;
    const std::vector<std::pair<uint16_t, uint32_t>> size = {
        {0x0100, 4000}, {0x0101, 3000}, {0x0112, 8}};
    for (const char* kind : {"dng", "nef", "arw"})
        WriteFile(dir + "/raw." + kind, RawPhoto(tiff, std::string("Raw ") + kind, size));
    WriteFile(dir + "/raw.orf", RawPhoto("IIRO\x08\0\0\0"s, "Raw orf", size));
    WriteFile(dir + "/raw.rw2",
              RawPhoto("IIU\0\x08\0\0\0"s, "Raw rw2",
                       {{2, 4060}, {3, 3020}, {4, 8}, {5, 12}, {6, 3008}, {7, 4012}, {0x0112, 8}}));
    WriteFile(dir + "/film-called.jpg", ReadFile(dir + "/dated.mov"));
    PictureTags xmp;
    xmp.more = {{"Xmp.tiff.Orientation", "6"},
                {"Xmp.xmp.Rating", "3"},
                {"Xmp.exif.GPSLatitude", "54,59.38N"},
                {"Xmp.exif.GPSLongitude", "1,54,51W"},
                {"Xmp.dc.creator", "A. Finch"}};
    TagPicture(dir + "/xmp.jpg", xmp);
    PictureTags shot;
    shot.hasPosition = true;
    shot.latitude = 46.5763;
    shot.longitude = 7.9904;
    shot.more = {{"Exif.Photo.DateTimeOriginal", "2019:08:07 06:05:04"},
                 {"Exif.Photo.SubSecTimeOriginal", "120"},
                 {"Exif.Photo.OffsetTimeOriginal", "+02:00"},
                 {"Exif.Image.Make", "SAMPLE CORPORATION"},
                 {"Exif.Image.Model", "Sample D1"},
                 {"Exif.Photo.LensModel", "35mm f/2"},
                 {"Exif.Image.Rating", "4"},
                 {"Exif.GPSInfo.GPSAltitudeRef", "0"},
                 {"Exif.GPSInfo.GPSAltitude", "34540/10"}};
    TagPicture(dir + "/shot.jpg", shot);
}

}  // namespace samples
