#ifndef CONTENTS_MGR_C_MEDIA_CONTENT_VIDEO_H
#define CONTENTS_MGR_C_MEDIA_CONTENT_VIDEO_H

#include "CMediaContent.h"

namespace dorn {

// A video's record with its video metadata. Both setters must be called before destruction.
class CMediaContentVideo : public CMediaContent {
public:
    CMediaContentVideo();
    ~CMediaContentVideo() override;  // releases both records

    // Fetches the record's video metadata; a failure is logged, and every getter that needs it then
    // fails with its own log line.
    void SetVideoMetaFromMediaInfo();

    int GetVideoDuration() const;      // milliseconds
    int GetVideoWidth() const;         // pixels
    int GetVideoHeight() const;        // pixels
    double GetVideoLatitude() const;   // degrees
    double GetVideoLongitude() const;  // degrees
    char* GetVideoAlbum() const;
    char* GetVideoGenre() const;

private:
    video_meta_h videoMeta = nullptr;
};

}  // namespace dorn

#endif
