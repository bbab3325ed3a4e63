#include "CMediaContentImage.h"

#include "PlatformGetter.h"

namespace dorn {

CMediaContentImage::CMediaContentImage() = default;

CMediaContentImage::~CMediaContentImage() {
    image_meta_destroy(imageMeta);
    media_info_destroy(mediaInfo);
}

void CMediaContentImage::SetImageMetaFromMediaInfo() {
    if (media_info_get_image(mediaInfo, &imageMeta) != 0)
        CM_TRACE("CMediaContentImage - failed to media_info_get_image");
}

CM_GETTER(int, CMediaContentImage, GetImageWidth, 0, image_meta_get_width, imageMeta,
          "CMediaContentImage - failed to image_meta_get_width")
CM_GETTER(int, CMediaContentImage, GetImageHeight, 0, image_meta_get_height, imageMeta,
          "CMediaContentImage - failed to image_meta_get_height")
CM_GETTER(media_content_orientation_e, CMediaContentImage, GetImageOrientation,
          MEDIA_CONTENT_ORIENTATION_NOT_AVAILABLE, image_meta_get_orientation, imageMeta,
          "CMediaContentImage - failed to image_meta_get_orientation")
CM_GETTER(double, CMediaContentImage, GetImageLatitude, 0.0, media_info_get_latitude, mediaInfo,
          "CMediaContentImage - failed to media_info_get_latitude")
CM_GETTER(double, CMediaContentImage, GetImageLongitude, 0.0, media_info_get_longitude, mediaInfo,
          "CMediaContentImage - failed to media_info_get_longitude")

}  // namespace dorn
