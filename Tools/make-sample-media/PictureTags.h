// The tags of a picture, as written by a camera or a picture program.
#ifndef TOOLS_MAKE_SAMPLE_MEDIA_PICTURE_TAGS_H
#define TOOLS_MAKE_SAMPLE_MEDIA_PICTURE_TAGS_H

#include <string>
#include <utility>
#include <vector>

namespace samples {

// Empty and zero values are not written.
struct PictureTags {
    std::string title;        // XMP
    std::string description;  // EXIF, bytes unchanged
    std::string copyright;    // EXIF
    std::string comment;      // EXIF user comment, in UCS-2
    std::string xpTitle;      // EXIF, as one of the desktops writes it (UCS-2); ASCII here
    std::string iptcTitle;
    std::string iptcCaption;
    int orientation = 0;
    bool hasPosition = false;
    double latitude = 0.0;
    double longitude = 0.0;
    std::vector<std::pair<std::string, std::string>> more;  // further ones, by Exiv2's names
    std::string thumbnail;  // a JPEG to embed; adds all other tags that a camera writes per shot
};

// Writes the tags into a JPEG, PNG, TIFF or WebP file; does nothing when there are none. Throws
// Exiv2::Error (a std::exception).
void TagPicture(const std::string& path, const PictureTags& tags);

}  // namespace samples

#endif
