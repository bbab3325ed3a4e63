// Creates libraries of real media files, for the demonstration, the tests and the benchmarks. Needs
// no network; ffmpeg and heif-enc do the encoding.
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <exiv2/exiv2.hpp>
#include <string>
#include <vector>

#include "Libraries.h"

namespace {

const char kUsage[] =
    "usage: make-sample-media --small DIR       every format, odd names, broken files\n"
    "       make-sample-media --photos DIR N    N photos with EXIF, quickly\n"
    "       make-sample-media --large DIR N     N photos, songs and films\n"
    "       make-sample-media --camera DIR N    the same, with all that cameras put into them\n"
    "       make-sample-media --hostile DIR     files to break a reader or a walk on\n"
    "       make-sample-media --damaged DIR N   N damaged copies of the small library's files\n";

int Usage() {
    std::fputs(kUsage, stderr);
    return 2;
}

bool ParseCount(const std::string& text, unsigned& count) {
    char* end = nullptr;
    const unsigned long value = std::strtoul(text.c_str(), &end, 10);
    if (text.empty() || *end || value == 0 || value > 100'000'000) return false;
    count = static_cast<unsigned>(value);
    return true;
}

int Run(const std::vector<std::string>& words) {
    unsigned count = 0;
    if (words.size() == 2 && words[0] == "--small") {
        const int leftOut = samples::MakeSmallLibrary(words[1]);
        if (leftOut) std::fprintf(stderr, "%d formats left out: no encoder here\n", leftOut);
    } else if (words.size() == 2 && words[0] == "--hostile") {
        samples::MakeHostileLibrary(words[1]);
    } else if (words.size() == 3 && words[0] == "--photos" && ParseCount(words[2], count)) {
        samples::MakePhotos(words[1], count);
    } else if (words.size() == 3 && words[0] == "--large" && ParseCount(words[2], count)) {
        samples::MakeLargeLibrary(words[1], count);
    } else if (words.size() == 3 && words[0] == "--camera" && ParseCount(words[2], count)) {
        samples::MakeCameraLibrary(words[1], count);
    } else if (words.size() == 3 && words[0] == "--damaged" && ParseCount(words[2], count)) {
        samples::MakeDamagedLibrary(words[1], count);
    } else {
        return Usage();
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        Exiv2::XmpParser::initialize();
        Exiv2::LogMsg::setLevel(Exiv2::LogMsg::error);
        return Run(std::vector<std::string>(argv + 1, argv + argc));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "make-sample-media: %s\n", error.what());
        return 1;
    }
}
