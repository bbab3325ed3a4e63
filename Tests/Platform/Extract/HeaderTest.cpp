// What is read from pictures' headers without a library.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "MediaContent/Extract/PictureSize.h"
#include "MediaContent/Extract/ReadMetadata.h"
#include "Process/UniqueFd.h"

namespace {

using namespace platform;
using namespace std::string_literals;

UniqueFd FileOf(const std::string& bytes) {
    UniqueFd file(memfd_create("header", MFD_CLOEXEC));
    EXPECT_EQ(write(file.Get(), bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    return file;
}

TEST(HeaderTest, TellsThePicturesSize) {
    const std::string jpegFrame = "\xff\xc0\0\x11\x08\0\x20\0\x30"s;
    const struct {
        const char* what;
        std::string bytes;
        uint64_t width;
        uint64_t height;
    } cases[] = {
        {"GIF of 35 bytes", "GIF89a\x03\0\x02\x01"s + std::string(25, '\0'), 3, 258},
        {"JPEG", "\xff\xd8\xff\xe0\0\x04xx"s + jpegFrame, 48, 32},
        {"JPEG, rubbish and fill bytes", "\xff\xd8\xff\xe0\0\x04xxRUBBISH\xff\xff"s + jpegFrame, 48,
         32},
        {"JPEG, cut", "\xff\xd8\xff\xe0\0\x04xx"s, 0, 0},
        {"PCX", "\x0a\x05\x01\x08\x0a\0\x14\0\x13\0\x1d\0"s, 10, 10},
        {"PGM with comments", "P5 # a comment\n# one more\n 640\t480\n255\n", 640, 480},
        {"PAM", "P7\nWIDTH 12\nHEIGHT 34\nDEPTH 1\n", 12, 34},
        {"PNM, no number", "P6 x y", 0, 0},
        {"QOI", "qoif\0\0\x01\0\0\0\0\x20\x03\0"s, 256, 32},
        {"JPEG 2000 code stream",
         "\xff\x4f\xff\x51\0\x2f\0\0\0\0\0\x40\0\0\0\x30\0\0\0\x04\0\0\0\x08"s, 60, 40},
        {"JPEG 2000", "\0\0\0\x0cjP  \x0d\x0a\x87\x0a....ihdr\0\0\0\x05\0\0\0\x07"s, 7, 5},
        {"HEIF, the largest",
         "\0\0\0\x10"s + "ftypheic....ispe\0\0\0\0\0\0\0\x08\0\0\0\x06"s +
             "ispe\0\0\0\0\0\0\0\x80\0\0\0\x60"s,
         128, 96},
        {"RAF",
         "FUJIFILMCCD-RAW "s + std::string(0x4c, '\0') +
             "\0\0\0\x60"
             "\0\0\0\2"s +
             "\x01\0\0\4\1\2\3\4"s + "\x01\x11\0\4\x0b\xb8\x0f\xa0"s,
         4000, 3000},
        {"no picture", "plain text", 0, 0},
    };
    for (const auto& given : cases) {
        const UniqueFd file = FileOf(given.bytes);
        FileSource source(file.Get(), given.bytes.size());
        const PictureSize size = ReadPictureSize(source).value_or(PictureSize{});
        EXPECT_EQ(size.width, given.width) << given.what;
        EXPECT_EQ(size.height, given.height) << given.what;
    }
}

TEST(HeaderTest, TellsThePngsTexts) {
    const auto chunk = [](const std::string& type, const std::string& content) {
        return "\0\0\0"s + static_cast<char>(content.size()) + type + content + "crc.";
    };
    const std::string bytes = "\x89PNG\r\n\x1a\n"s + chunk("IHDR", std::string(13, '\0')) +
                              chunk("tEXt", "Title\0caf\xe9"s) +
                              chunk("iTXt", "Author\0\0\0en\0Autor\0Ana"s) +
                              chunk("iTXt", "Copyright\0\1\0\0\0x"s) + chunk("IDAT", "") +
                              chunk("tEXt", "Description\0x"s);
    const UniqueFd file = FileOf(bytes);
    FileSource source(file.Get(), bytes.size());
    Metadata metadata;
    ReadPngTexts(source, metadata);
    EXPECT_EQ(metadata.title, "café");
    EXPECT_EQ(metadata.artist, "Ana");
    EXPECT_EQ(metadata.copyright + metadata.description, "");
}

}  // namespace
