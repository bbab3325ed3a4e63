// A camera's name.
#ifndef PLATFORM_MEDIA_CONTENT_EXTRACT_MAKE_AND_MODEL_H
#define PLATFORM_MEDIA_CONTENT_EXTRACT_MAKE_AND_MODEL_H

#include <strings.h>

#include <string>

namespace platform {

// "Canon" and "Canon EOS 5D" are "Canon EOS 5D", "NIKON CORPORATION" and "NIKON D90" are "NIKON
// D90", "SONY" and "DSC-W80" are "SONY DSC-W80". Thread-safe.
inline std::string MakeAndModel(const std::string& make, const std::string& model) {
    const size_t word = make.find(' ') == std::string::npos ? make.size() : make.find(' ');
    if (make.empty() || strncasecmp(make.c_str(), model.c_str(), word) == 0) return model;
    return model.empty() ? make : make + " " + model;
}

}  // namespace platform

#endif
