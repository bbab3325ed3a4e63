#ifndef CONTENTS_MGR_C_MEDIA_CONTENT_H
#define CONTENTS_MGR_C_MEDIA_CONTENT_H

#include "MediaContent.h"

namespace dorn {

// One media record. Created, read and destroyed by one thread.
//
// Getters call the platform each time. A failing getter logs a line and returns null, 0 or 0.0. The
// caller owns returned texts and frees them with free().
class CMediaContent {
public:
    CMediaContent();
    // Does not release its record: a record that was shown stays known for the life of the process.
    // Records are shared, so the memory that this keeps is bounded by the library.
    virtual ~CMediaContent();
    CMediaContent(const CMediaContent&) = delete;
    CMediaContent& operator=(const CMediaContent&) = delete;

    // Keeps a clone of `info`, which the caller still owns. Call once, before any getter.
    void SetMediaInfo(media_info_s* info);

    virtual char* GetUUID() const;
    virtual char* GetFilePath() const;
    virtual char* GetName() const;
    virtual media_content_type_e GetMediaType() const;
    virtual char* GetMimeType() const;
    virtual unsigned long long GetSize() const;  // bytes
    virtual time_t GetAddedTime() const;
    virtual time_t GetModifiedTime() const;
    virtual char* GetThumbnailPath() const;
    virtual char* GetDescription() const;
    virtual char* GetTitle() const;
    virtual int GetRating() const;

protected:
    media_info_s* mediaInfo = nullptr;
};

}  // namespace dorn

#endif
