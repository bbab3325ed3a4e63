#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <stdexcept>

#include "Encoders.h"
#include "Files.h"
#include "Libraries.h"
#include "OtherKinds.h"
#include "PictureTags.h"

namespace samples {
namespace {

constexpr char kOtherKinds[] = "/World";

const Words kSong = {
    "title=Morning Song", "artist=The Sparrows",         "album=Field Recordings",    "genre=Folk",
    "composer=A. Finch",  "copyright=2017 The Sparrows", "comment=Taped in the barn", "track=3/12"};
const Words kFilm = {
    "title=At the Lake",          "artist=The Sparrows",         "album=Holidays",
    "genre=Documentary",          "copyright=2017 The Sparrows", "comment=One summer's day",
    "location=+48.8566+002.3522/"};

std::string Picture(const std::string& source, int width, int height) {
    return source + "=size=" + std::to_string(width) + "x" + std::to_string(height);
}

std::string Clip(int width, int height, int seconds, int rate = 25) {
    return Picture("testsrc2", width, height) + ":rate=" + std::to_string(rate) +
           ":duration=" + std::to_string(seconds);
}

std::string Tone(int hertz, int seconds) {
    return "sine=frequency=" + std::to_string(hertz) + ":duration=" + std::to_string(seconds);
}

Encoding Still(const std::string& path, const std::string& picture, const Words& more = {}) {
    Words options = {"-frames:v", "1"};
    options.insert(options.end(), more.begin(), more.end());
    return Ffmpeg(path, picture, "", options, {});
}

std::vector<Encoding> Pictures(const std::string& dir) {
    std::vector<Encoding> all = {
        Still(dir + "/beach.jpg", Picture("testsrc2", 640, 480)),
        Still(dir + "/harbour.jpeg", Picture("smptehdbars", 480, 640)),
        Still(dir + "/plain.jpg", Picture("rgbtestsrc", 200, 100)),
        Still(dir + "/latin1.jpg", Picture("rgbtestsrc", 120, 90)),
        Still(dir + "/Formats/picture.png", Picture("testsrc", 400, 300)),
        Still(dir + "/Formats/picture.webp", Picture("testsrc", 320, 200), {"-c:v", "libwebp"}),
        Still(dir + "/Formats/picture.tiff", Picture("testsrc", 256, 192)),
        Still(dir + "/Formats/picture.bmp", Picture("testsrc", 160, 120)),
        Still(dir + "/Formats/picture.avif", Picture("testsrc2", 352, 288),
              {"-c:v", "libaom-av1", "-cpu-used", "8", "-still-picture", "1"}),
        Ffmpeg(dir + "/Formats/moving.gif", Clip(100, 80, 1, 5), "", {}, {}),
    };
    for (int i = 1; i <= 8; ++i)
        all.push_back(Still(dir + "/Orientations/orientation-" + std::to_string(i) + ".jpg",
                            Picture("testsrc", 240 + i, 160)));
    return all;
}

std::vector<Encoding> Songs(const std::string& dir) {
    const auto song = [&dir](const char* name, int seconds, const Words& options,
                             const Words& tags = kSong) {
        return Ffmpeg(dir + name, "", Tone(330 + seconds, seconds), options, tags);
    };
    return {
        song("/song.mp3", 3, {"-c:a", "libmp3lame", "-b:a", "96k"}),
        song("/song.flac", 2, {"-c:a", "flac"}),
        song("/song.ogg", 4, {"-c:a", "libvorbis"}),
        song("/song.opus", 3, {"-c:a", "libopus"}),
        song("/song.m4a", 2, {"-c:a", "aac", "-b:a", "64k"}),
        song("/song.wav", 1, {"-ar", "22050"}),
        song("/song.aiff", 1, {"-ar", "22050", "-write_id3v2", "1"}),
        song("/song.wma", 2, {"-c:a", "wmav2"}),
        song("/untagged.mp3", 1, {"-c:a", "libmp3lame", "-id3v2_version", "0"}, {}),
        song("/raw.aac", 2, {"-c:a", "aac", "-b:a", "64k"}, {}),
        song("/Ünïcödé/Überflieger.mp3", 1, {"-c:a", "libmp3lame"},
             {"title=日本の歌", "artist=Ænima “quoted”", "album=Tab\there", "track=7"}),
    };
}

std::vector<Encoding> Films(const std::string& dir) {
    const auto film = [&dir](const char* name, const std::string& picture, const Words& options,
                             const std::string& sound = "") {
        return Ffmpeg(dir + name, picture, sound, options, kFilm);
    };
    const Words x264 = {"-c:v", "libx264", "-preset", "ultrafast", "-pix_fmt", "yuv420p"};
    Words withSound = x264;
    withSound.insert(withSound.end(), {"-c:a", "aac"});
    return {
        film("/film.mp4", Clip(320, 180, 3), withSound, Tone(440, 3)),
        film("/film.m4v", Clip(192, 108, 1), x264),
        film("/film.mov", Clip(256, 144, 2), x264),
        film("/film.mkv", Clip(320, 240, 2), x264),
        film("/film.webm", Clip(160, 120, 1),
             {"-c:v", "libvpx", "-deadline", "good", "-cpu-used", "5"}),
        film("/film.avi", Clip(352, 288, 2), {"-c:v", "mpeg4"}),
        film("/film.ts", Clip(384, 216, 3), withSound, Tone(550, 3)),
        film("/camera.m2ts", Clip(320, 180, 2), x264),
        film("/film.mpg", Clip(352, 240, 2), {"-c:v", "mpeg2video"}),
        film("/phone.3gp", Clip(176, 144, 2), {"-c:v", "mpeg4"}),
        film("/film.wmv", Clip(320, 200, 2), {"-c:v", "wmv2"}),
    };
}

PictureTags Place(double latitude, double longitude) {
    PictureTags tags;
    tags.hasPosition = true;
    tags.latitude = latitude;
    tags.longitude = longitude;
    return tags;
}

void TagPictures(const std::string& dir) {
    PictureTags beach = Place(48.8566, 2.3522);
    beach.title = "Beach – Ebbe";
    beach.description = "Low tide at noon";
    beach.copyright = "2017 A. Finch";
    beach.orientation = 1;
    TagPicture(dir + "/beach.jpg", beach);
    PictureTags harbour = Place(-33.8568, -151.2153);
    harbour.xpTitle = "Harbour";
    harbour.comment = "Seen from the ferry";
    TagPicture(dir + "/harbour.jpeg", harbour);
    PictureTags latin1;
    latin1.description = "caf\xe9 au lait";
    latin1.iptcTitle = "Breakfast";
    TagPicture(dir + "/latin1.jpg", latin1);
    for (int i = 1; i <= 8; ++i) {
        PictureTags turned;
        turned.orientation = i;
        TagPicture(dir + "/Orientations/orientation-" + std::to_string(i) + ".jpg", turned);
    }
    for (const char* name : {"picture.png", "picture.webp", "picture.tiff"}) {
        PictureTags tags = Place(40.6892, -74.0445);
        tags.title = std::string("A ") + name;
        tags.description = "Test card";
        tags.orientation = 1;
        TagPicture(dir + "/Formats/" + name, tags);
    }
}

void MakeHidden(const std::string& root, const std::string& photo) {
    const std::string bytes = ReadFile(photo);
    MakeFolders(root + "/Private");
    WriteFile(root + "/Private/.nomedia", "");
    WriteFile(root + "/Private/not to be listed.jpg", bytes);
    MakeFolders(root + "/.trash");
    WriteFile(root + "/.trash/not to be listed.jpg", bytes);
    WriteFile(root + "/.not to be listed.jpg", bytes);
    MakeFolders(root + "/Documents");
    WriteFile(root + "/Documents/notes.txt", "No media here.\n");
}

void CutCopy(const std::string& from, const std::string& to, double part) {
    const std::string bytes = ReadFile(from);
    WriteFile(to, bytes.substr(0, static_cast<size_t>(part * static_cast<double>(bytes.size()))));
}

void MakeBroken(const std::string& root) {
    const std::string dir = root + "/Broken";
    MakeFolders(dir);
    CutCopy(root + "/Photos/beach.jpg", dir + "/cut.jpg", 0.01);
    CutCopy(root + "/Music/song.flac", dir + "/cut.flac", 0.001);
    CutCopy(root + "/Videos/film.mp4", dir + "/cut.mp4", 0.5);
    WriteFile(dir + "/empty.png", "");
    WriteFile(dir + "/random.jpg", RandomBytes(1, 5000));
    WriteFile(dir + "/random.mp3", RandomBytes(2, 5000));
    WriteFile(dir + "/random.mkv", RandomBytes(3, 5000));
    WriteFile(dir + "/text.mp4", "This is no film.\n");
    WriteFile(dir + "/really-a-png.jpg", ReadFile(root + "/Photos/Formats/picture.png"));
}

// In name order, so that the times do not depend on the order of creation.
void SetTimes(const std::string& root) {
    std::vector<std::string> paths;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root))
        paths.push_back(entry.path().string());
    std::sort(paths.begin(), paths.end());
    for (size_t i = 0; i < paths.size(); ++i) SetTime(paths[i], i);
}

}  // namespace

int MakeSmallLibrary(const std::string& root) {
    const std::string photos = root + "/Photos";
    for (const char* folder :
         {"/Photos/Formats", "/Photos/Orientations", "/Music/Ünïcödé", "/Videos", kOtherKinds})
        MakeFolders(root + folder);
    std::vector<Encoding> all = Films(root + "/Videos");
    for (const auto& more :
         {Pictures(photos), Songs(root + "/Music"), OtherKinds(root + kOtherKinds)})
        all.insert(all.end(), more.begin(), more.end());
    int leftOut = Encode(all);
    if (leftOut == static_cast<int>(all.size()))
        throw std::runtime_error("ffmpeg cannot be run; scripts/setup.sh installs it");
    TagPictures(photos);
    FinishOtherKinds(root + kOtherKinds);
    leftOut += Encode({HeifEnc(photos + "/Formats/picture.heic", photos + "/beach.jpg")});
    MakeOddNames(root + "/Odd names", photos + "/beach.jpg");
    MakeHidden(root, photos + "/beach.jpg");
    MakeBroken(root);
    SetTimes(root);
    return leftOut;
}

}  // namespace samples
