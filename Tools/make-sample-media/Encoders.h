// Real media files, made by the encoders that are installed.
#ifndef TOOLS_MAKE_SAMPLE_MEDIA_ENCODERS_H
#define TOOLS_MAKE_SAMPLE_MEDIA_ENCODERS_H

#include <string>
#include <vector>

namespace samples {

using Words = std::vector<std::string>;

// One file to be made.
struct Encoding {
    std::string path;
    Words command;
};

// ffmpeg from generated pictures and sound ("lavfi" sources, empty for none) to `path`, with
// `options` for the encoder and `tags` as "key=value". The same bytes in every run.
Encoding Ffmpeg(const std::string& path, const std::string& picture, const std::string& sound,
                const Words& options, const Words& tags);

// heif-enc from a JPEG, whose EXIF goes along.
Encoding HeifEnc(const std::string& path, const std::string& jpeg);

// Runs them, two at a time. What cannot be made (no such program or encoder here) is said on
// standard error and left out; returns how many.
int Encode(const std::vector<Encoding>& encodings);

}  // namespace samples

#endif
