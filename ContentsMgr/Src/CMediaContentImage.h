#ifndef CONTENTS_MGR_C_MEDIA_CONTENT_IMAGE_H
#define CONTENTS_MGR_C_MEDIA_CONTENT_IMAGE_H

#include "CMediaContent.h"

namespace dorn {

// A picture's record with its image metadata. Both setters must be called before destruction.
class CMediaContentImage : public CMediaContent {
public:
    CMediaContentImage();
    ~CMediaContentImage() override;  // releases both records

    // Fetches the record's image metadata; a failure is logged, and every getter that needs it then
    // fails with its own log line.
    void SetImageMetaFromMediaInfo();

    int GetImageWidth() const;   // pixels
    int GetImageHeight() const;  // pixels
    media_content_orientation_e GetImageOrientation() const;
    double GetImageLatitude() const;   // degrees
    double GetImageLongitude() const;  // degrees

private:
    image_meta_h imageMeta = nullptr;
};

}  // namespace dorn

#endif
