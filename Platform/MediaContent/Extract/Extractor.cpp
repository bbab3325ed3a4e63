#include "MediaContent/Extract/Extractor.h"

namespace platform {

struct ExtractorPool::Impl {};

ExtractorPool::ExtractorPool(ExtractorOptions) {}
ExtractorPool::~ExtractorPool() = default;

// The helpers are still to come: until then every file is listed without metadata.
ExtractResult ExtractorPool::Extract(int, media_content_type_e, const char*,
                                     const std::atomic<bool>&) {
    return {ExtractStatus::UNAVAILABLE, {}};
}

void ExtractorPool::EndIdleHelpers() {}

}  // namespace platform
