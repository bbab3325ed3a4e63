#include <array>
#include <cstdio>
#include <future>
#include <stdexcept>

#include "Encoders.h"
#include "Files.h"
#include "Libraries.h"
#include "PictureTags.h"

namespace samples {
namespace {

// A tagged file in memory, and the positions of the digits that make each copy unique.
class Template {
public:
    Template(std::string suffix, std::string bytes)
        : m_suffix(std::move(suffix)),
          m_bytes(std::move(bytes)),
          m_number(Find("Number 00000000")),
          m_album(Find("Album 00000000")) {
        if (m_number == std::string::npos)
            throw std::runtime_error("the sample" + m_suffix + " has lost its title");
    }
    const std::string& Suffix() const { return m_suffix; }
    std::string Copy(unsigned number) const {
        std::string bytes = m_bytes;
        PutDigits(bytes, m_number, number);
        if (m_album != std::string::npos) PutDigits(bytes, m_album, number / 12);
        return bytes;
    }

private:
    // The position after the last digit of `text`.
    size_t Find(const char* text) const {
        const size_t at = m_bytes.find(text);
        return at == std::string::npos ? at : at + std::char_traits<char>::length(text);
    }
    static void PutDigits(std::string& bytes, size_t end, unsigned number) {
        for (int i = 0; i < 8; ++i, number /= 10)
            bytes[--end] = static_cast<char>('0' + number % 10);
    }

    std::string m_suffix;
    std::string m_bytes;
    size_t m_number;
    size_t m_album;
};

const Words kSong = {"title=Number 00000000", "album=Album 00000000", "artist=The Copies",
                     "genre=Test", "track=1"};

// A folder that is removed once the templates have been read.
class Workshop {
public:
    explicit Workshop(const std::string& root) : m_path(root + "/.making") { MakeFolders(m_path); }
    ~Workshop() {
        try {
            RemoveTree(m_path);
        } catch (const std::exception& error) {
            std::fprintf(stderr, "%s\n", error.what());
        }
    }
    Workshop(const Workshop&) = delete;
    Workshop& operator=(const Workshop&) = delete;
    std::string File(const std::string& name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};

enum class Scale { Small, Camera };

std::string MakePicture(const Workshop& shop, const char* name, const char* size, const char* q) {
    const std::string path = shop.File(name);
    const std::string source = std::string("testsrc2=size=") + size;
    if (Encode({Ffmpeg(path, source, "", {"-frames:v", "1", "-q:v", q}, {})}))
        throw std::runtime_error("no JPEG encoder");
    return path;
}

// Eight photos, one for each orientation, four of them with a position.
std::vector<Template> PhotoTemplates(const Workshop& shop, Scale scale) {
    const bool camera = scale == Scale::Camera;
    const std::string small = MakePicture(shop, "small.jpg", "160x120", "20");
    const std::string base =
        camera ? MakePicture(shop, "base.jpg", "1024x768", "6") : shop.File("base.jpg");
    const std::string plain = ReadFile(camera ? base : small);
    std::vector<Template> templates;
    for (int i = 1; i <= 8; ++i) {
        PictureTags tags;
        tags.description = "Number 00000000";
        tags.orientation = i;
        tags.hasPosition = i % 2 == 0;
        tags.latitude = 10.5 * i - 45.0;
        tags.longitude = 120.25 - 30.0 * i;
        if (camera) tags.thumbnail = small;
        WriteFile(base, plain);
        TagPicture(base, tags);
        templates.emplace_back(".jpg", ReadFile(base));
    }
    return templates;
}

std::vector<Template> OtherTemplates(const Workshop& shop, Scale scale) {
    const std::string mp3 = shop.File("a.mp3"), flac = shop.File("a.flac"),
                      m4a = shop.File("a.m4a"), mp4 = shop.File("a.mp4");
    const bool camera = scale == Scale::Camera;
    const std::string tone = camera ? "sine=duration=10" : "sine=duration=0.3";
    const std::string clip =
        camera ? "testsrc2=size=640x480:duration=1" : "testsrc2=size=128x96:duration=0.2";
    Words song = {"-c:a", "libmp3lame", "-b:a", "32k", "-id3v2_version", "4"};
    const Words cover = {"-map", "1:a", "-map", "0:v", "-frames:v", "1", "-c:v", "mjpeg"};
    if (camera) song.insert(song.end(), cover.begin(), cover.end());
    const int leftOut = Encode({
        Ffmpeg(mp3, camera ? "testsrc2=size=500x500:duration=0.04" : "", tone, song, kSong),
        Ffmpeg(flac, "", tone, {"-c:a", "flac", "-ar", "8000"}, kSong),
        Ffmpeg(m4a, "", tone, {"-c:a", "aac", "-b:a", "32k"}, kSong),
        Ffmpeg(mp4, clip, "", {"-c:v", "libx264", "-preset", "ultrafast", "-crf", "40"}, kSong),
    });
    if (leftOut) throw std::runtime_error("encoders are missing");
    return {{".mp3", ReadFile(mp3)},
            {".flac", ReadFile(flac)},
            {".m4a", ReadFile(m4a)},
            {".mp4", ReadFile(mp4)}};
}

// The file types within a hundred: mostly photos.
const Template& Choose(unsigned number, const std::vector<Template>& photos,
                       const std::vector<Template>& others) {
    const unsigned place = number % 20;
    if (place < 14) return photos[number % photos.size()];
    static constexpr std::array<size_t, 6> kKinds = {0, 0, 0, 1, 2, 3};
    return others[kKinds[place - 14]];
}

void WriteCopy(const std::string& path, const Template& from, unsigned number) {
    WriteFile(path, from.Copy(number));
    SetTime(path, number);
}

std::string Padded(unsigned number, size_t digits) {
    const std::string text = std::to_string(number);
    return std::string(digits > text.size() ? digits - text.size() : 0, '0') + text;
}

// One folder of a hundred.
void WriteFolder(const std::string& root, unsigned folder, unsigned count,
                 const std::vector<Template>& photos, const std::vector<Template>& others) {
    const std::string path = root + "/" + Padded(folder / 100, 3) + "/" + Padded(folder % 100, 2);
    MakeFolders(path);
    for (unsigned number = folder * 100; number < count && number < folder * 100 + 100; ++number) {
        const Template& from = Choose(number, photos, others);
        WriteCopy(path + "/item" + Padded(number, 8) + from.Suffix(), from, number);
    }
}

void MakeLibrary(const std::string& root, unsigned count, Scale scale) {
    MakeFolders(root);
    std::vector<Template> photos;
    std::vector<Template> others;
    {
        const Workshop shop(root);
        photos = PhotoTemplates(shop, scale);
        others = OtherTemplates(shop, scale);
    }
    const unsigned folders = (count + 99) / 100;
    const auto work = [&](unsigned first) {
        for (unsigned folder = first; folder < folders; folder += 2)
            WriteFolder(root, folder, count, photos, others);
    };
    std::future<void> other = std::async(std::launch::async, work, 1);
    work(0);
    other.get();
}

}  // namespace

void MakePhotos(const std::string& root, unsigned count) {
    static constexpr std::array<const char*, 4> kFolders = {"", "/DCIM", "/DCIM/100TEST", "/Trip"};
    for (const char* folder : kFolders) MakeFolders(root + folder);
    const std::vector<Template> photos = PhotoTemplates(Workshop(root), Scale::Small);
    for (unsigned i = 0; i < count; ++i) {
        const std::string name = "/IMG_" + Padded(i + 1, 4) + ".jpg";
        WriteCopy(root + kFolders[i % kFolders.size()] + name, photos[i % photos.size()], i);
    }
    WriteFile(root + "/broken.jpg", photos[0].Copy(0).substr(0, 20));
    SetTime(root + "/broken.jpg", count);
}

void MakeLargeLibrary(const std::string& root, unsigned count) {
    MakeLibrary(root, count, Scale::Small);
}

void MakeCameraLibrary(const std::string& root, unsigned count) {
    MakeLibrary(root, count, Scale::Camera);
}

}  // namespace samples
