// extract_print [--bare] FILE...: what is read out of files, one JSON object a line: through helper
// processes, or with --bare in this process. For making expected results and for trying out.
#include <fcntl.h>
#include <sys/stat.h>

#include <cstdio>
#include <string>

#include "MediaContent/Extract/Extractor.h"
#include "MediaContent/Extract/MediaTypes.h"
#include "MediaContent/Extract/ReadMetadata.h"
#include "MediaContent/Extract/UniqueFd.h"
#include "MetadataJson.h"

namespace {

using namespace platform;

ExtractResult Bare(int fd, media_content_type_e kind, const char* mime) {
    struct stat status = {};
    fstat(fd, &status);
    FileSource source(fd, static_cast<uint64_t>(status.st_size));
    ExtractResult result;
    result.status = ReadMetadata(source, kind, mime, result.metadata) ? ExtractStatus::OK
                                                                      : ExtractStatus::FAILED;
    return result;
}

void Print(const std::string& path, bool bare, ExtractorPool& pool) {
    media_content_type_e kind = MEDIA_CONTENT_TYPE_OTHERS;
    const char* mime = nullptr;
    const UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file || !LookUpMediaType(path, kind, mime)) {
        std::printf("%s: not a media file\n", path.c_str());
        return;
    }
    const std::atomic<bool> cancel{false};
    const ExtractResult result =
        bare ? Bare(file.Get(), kind, mime) : pool.Extract(file.Get(), kind, mime, cancel);
    std::printf("%s", ToLine(path, result).c_str());
}

}  // namespace

int main(int argc, char** argv) {
    const bool bare = argc > 1 && std::string(argv[1]) == "--bare";
    if (bare) InitMetadataReaders();
    ExtractorOptions options;
    options.helperPath = EXTRACT_HELPER;
    ExtractorPool pool(options);
    for (int i = bare ? 2 : 1; i < argc; ++i) Print(argv[i], bare, pool);
}
