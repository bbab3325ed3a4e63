// The other direction: what a helper is sent.
#include "FuzzSupport.h"
#include "MediaContent/Extract/Protocol.h"

using namespace platform;

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view bytes = AsText(data, size);
    ExtractRequest request;
    if (!DecodeRequest(bytes, request)) return 0;
    MUST(!request.files.empty() && request.files.size() <= kMaxBatch);
    MUST(bytes.size() <= kMaxRequest);
    MUST(EncodeRequest(request) == bytes);
    return 0;
}
