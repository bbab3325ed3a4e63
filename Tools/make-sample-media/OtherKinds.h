// The rarer kinds of media, for the small library.
#ifndef TOOLS_MAKE_SAMPLE_MEDIA_OTHER_KINDS_H
#define TOOLS_MAKE_SAMPLE_MEDIA_OTHER_KINDS_H

#include <string>
#include <vector>

#include "Encoders.h"

namespace samples {

// What encoders make of them, in the existing folder `dir`.
std::vector<Encoding> OtherKinds(const std::string& dir);

// The others, byte by byte, and the tags of the pictures that were encoded.
void FinishOtherKinds(const std::string& dir);

}  // namespace samples

#endif
