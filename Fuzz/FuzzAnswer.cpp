// What a metadata helper that was taken over may send to the service.
#include "FuzzSupport.h"
#include "MediaContent/Extract/CleanText.h"
#include "MediaContent/Extract/Protocol.h"

using namespace platform;

namespace {

void CheckMetadata(const Metadata& data) {
    for (const auto text :
         {&Metadata::title, &Metadata::description, &Metadata::album, &Metadata::artist,
          &Metadata::genre, &Metadata::composer, &Metadata::copyright, &Metadata::trackNumber})
        MUST(IsCleanText(data.*text));
    MUST(data.width >= 0 && data.height >= 0 && data.bitRate >= 0 && data.durationMs >= 0);
    MUST(data.orientation >= 0 && data.orientation <= 8);
    MUST(data.latitude >= -90.0 && data.latitude <= 90.0);
    MUST(data.longitude >= -180.0 && data.longitude <= 180.0);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view bytes = AsText(data, size);
    ExtractAnswer answer;
    if (!DecodeAnswer(bytes, answer)) return 0;
    AnswerEncoder encoder(answer.number);
    for (const ExtractAnswer::File& file : answer.files) {
        CheckMetadata(file.metadata);
        encoder.Add(file.read, file.metadata);
    }
    // One message has one meaning, and one meaning has one message.
    MUST(encoder.Take(answer.retiring) == bytes);
    return 0;
}
