#include "CMediaContentFolder.h"

#include "PlatformGetter.h"

namespace dorn {

CMediaContentFolder::CMediaContentFolder() = default;

CMediaContentFolder::~CMediaContentFolder() {
    if (mediaFolder) media_folder_destroy(mediaFolder);
}

void CMediaContentFolder::SetMediaFolder(media_folder_s* folder) {
    media_folder_clone(&mediaFolder, folder);
}

CM_GETTER(char*, CMediaContentFolder, GetFolderUUID, nullptr, media_folder_get_folder_id,
          mediaFolder, "GetFolderPath - failed to media_folder_get_folder_id")
CM_GETTER(char*, CMediaContentFolder, GetFolderPath, nullptr, media_folder_get_path, mediaFolder,
          "GetFolderPath - failed to media_folder_get_path")

}  // namespace dorn
