// All that a metadata helper does with one file of a kind (READ_KIND, a target each): the reader
// and what it falls back to, and the answer. The last byte of the input chooses the type that the
// file's name would give it.
#include <sys/mman.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "MediaContent/Extract/MediaTypes.h"
#include "MediaContent/Extract/Protocol.h"
#include "MediaContent/Extract/ReadMetadata.h"
#include "Process/UniqueFd.h"

using namespace platform;

namespace {

std::vector<const char*> TypesOfKind() {
    std::vector<const char*> types;
    for (const auto& type : AllMediaTypes()) {
        const bool sound =
            type.kind == MEDIA_CONTENT_TYPE_SOUND && READ_KIND == MEDIA_CONTENT_TYPE_MUSIC;
        if (type.kind == READ_KIND || sound) types.push_back(type.mime);
    }
    MUST(!types.empty());
    return types;
}

UniqueFd FileOf(const uint8_t* data, size_t size) {
    UniqueFd file(memfd_create("input", MFD_CLOEXEC));
    MUST(file);
    MUST(write(file.Get(), data, size) == static_cast<ssize_t>(size));
    return file;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    InitMetadataReaders();
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::vector<const char*> types = TypesOfKind();
    const UniqueFd file = FileOf(data, size);
    FileSource source(file.Get(), size);
    Metadata metadata;
    const bool read =
        ReadMetadata(source, READ_KIND, types[size ? data[size - 1] % types.size() : 0], metadata);
    AnswerEncoder encoder(1);
    encoder.Add(read, metadata);
    ExtractAnswer answer;
    MUST(DecodeAnswer(encoder.Take(false), answer));  // the service takes it
    MUST(answer.files.size() == 1 && answer.files[0].read == read);
    return 0;
}
