#ifndef CONTENTS_MGR_C_MEDIA_CONTENT_FOLDER_H
#define CONTENTS_MGR_C_MEDIA_CONTENT_FOLDER_H

#include "MediaContent.h"

namespace dorn {

// One folder record. Getters call the platform each time; a failing getter logs a line and returns
// null. The caller owns returned texts and frees them with free().
class CMediaContentFolder {
public:
    CMediaContentFolder();
    ~CMediaContentFolder();  // releases the clone, if any
    CMediaContentFolder(const CMediaContentFolder&) = delete;
    CMediaContentFolder& operator=(const CMediaContentFolder&) = delete;

    // Keeps a clone of `folder`, which the caller still owns. Call once.
    void SetMediaFolder(media_folder_s* folder);

    char* GetFolderUUID() const;
    char* GetFolderPath() const;

private:
    media_folder_s* mediaFolder = nullptr;
};

}  // namespace dorn

#endif
