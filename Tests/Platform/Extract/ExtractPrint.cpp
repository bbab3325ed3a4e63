// extract_print FILE...: what is read out of files, one JSON object a line. For making expected
// results and for trying out.
#include <fcntl.h>

#include <cstdio>
#include <string>

#include "MediaContent/Extract/MediaTypes.h"
#include "MetadataJson.h"
#include "Process/UniqueFd.h"

int main(int argc, char** argv) {
    platform::ExtractorOptions options;
    options.helperPath = EXTRACT_HELPER;
    platform::ExtractorPool pool(options);
    const std::atomic<bool> cancel{false};
    for (int i = 1; i < argc; ++i) {
        media_content_type_e kind = MEDIA_CONTENT_TYPE_OTHERS;
        const char* mime = nullptr;
        const platform::UniqueFd file(open(argv[i], O_RDONLY | O_CLOEXEC | O_NONBLOCK));
        if (!file || !platform::LookUpMediaType(argv[i], kind, mime)) {
            std::printf("%s: not a media file\n", argv[i]);
            continue;
        }
        Json::Value line(Json::objectValue);
        line[argv[i]] = ToJson(pool.Extract(file.Get(), kind, mime, cancel));
        std::printf("%s", Json::FastWriter().write(line).c_str());
    }
}
