// Real media files, created by the installed encoders.
#ifndef TOOLS_MAKE_SAMPLE_MEDIA_ENCODERS_H
#define TOOLS_MAKE_SAMPLE_MEDIA_ENCODERS_H

#include <string>
#include <vector>

namespace samples {

using Words = std::vector<std::string>;

// One file to create.
struct Encoding {
    std::string path;
    Words command;
};

// Runs ffmpeg on generated pictures and sound ("lavfi" sources, empty for none) and writes to
// `path`, with `options` for the encoder and `tags` as "key=value". The output is the same in every
// run.
Encoding Ffmpeg(const std::string& path, const std::string& picture, const std::string& sound,
                const Words& options, const Words& tags);

// Runs heif-enc on a JPEG, whose EXIF is kept.
Encoding HeifEnc(const std::string& path, const std::string& jpeg);

// Runs the encodings, two at a time. Files that cannot be created (program or encoder missing) are
// reported on standard error and skipped; returns how many.
int Encode(const std::vector<Encoding>& encodings);

}  // namespace samples

#endif
