#ifndef CONTENTS_MGR_C_MEDIA_CONTENT_FOLDER_H
#define CONTENTS_MGR_C_MEDIA_CONTENT_FOLDER_H

#include "MediaContent.h"

namespace dorn {

// One folder record. Getters call the platform each time; one that fails logs a line and yields
// null. Texts are the caller's, to be freed with free().
class CMediaContentFolder {
public:
    CMediaContentFolder();
    ~CMediaContentFolder();  // gives the clone back, if any
    CMediaContentFolder(const CMediaContentFolder&) = delete;
    CMediaContentFolder& operator=(const CMediaContentFolder&) = delete;

    // Keeps a clone of `folder`, which stays the caller's. Once.
    void SetMediaFolder(media_folder_s* folder);

    char* GetFolderUUID() const;
    char* GetFolderPath() const;

private:
    media_folder_s* mediaFolder = nullptr;
};

}  // namespace dorn

#endif
