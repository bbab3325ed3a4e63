// Texts and positions as media files carry them, and file names.
#include <cmath>

#include "FuzzSupport.h"
#include "MediaContent/Extract/CleanText.h"
#include "MediaContent/Extract/Iso6709.h"
#include "MediaContent/Extract/MediaTypes.h"
#include "MediaContent/Extract/Metadata.h"
#include "MediaContent/Extract/Moment.h"

using namespace platform;

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text = AsText(data, size);
    const std::string clean = CleanText(text);
    MUST(clean.size() <= kMaxMetadataText);
    MUST(IsCleanText(clean));
    MUST(CleanText(clean) == clean);

    double latitude = 0.0;
    double longitude = 0.0;
    double altitude = 0.0;
    if (ParseIso6709(text, latitude, longitude, altitude)) {
        MUST(latitude >= -90.0 && latitude <= 90.0);
        MUST(longitude >= -180.0 && longitude <= 180.0);
        MUST(std::fabs(altitude) <= kHighestAltitude);
    }

    const std::string moment = ParseMoment(text);
    MUST(ParseMoment(moment) == moment);

    media_content_type_e kind = MEDIA_CONTENT_TYPE_OTHERS;
    const char* mime = nullptr;
    MUST(LookUpMediaType(text, kind, mime) == (mime != nullptr));
    return 0;
}
