// Small helpers shared by the files of the C interface.
#ifndef PLATFORM_MEDIA_CONTENT_HANDLES_H
#define PLATFORM_MEDIA_CONTENT_HANDLES_H

#include <stdlib.h>
#include <string.h>

#include <string_view>

#include "MediaContent.h"
#include "MediaContent/Records.h"

namespace platform {

// Returns a heap copy for the receiver to free; a missing value is null.
inline int GiveText(std::string_view text, char** out) {
    char* copy = text.empty() ? nullptr : strndup(text.data(), text.size());
    if (!text.empty() && !copy) return MEDIA_CONTENT_ERROR_OUT_OF_MEMORY;
    *out = copy;
    return MEDIA_CONTENT_ERROR_NONE;
}

// Adds one reference to what `source` points to.
template <typename Record>
int CloneHandle(Record** destination, Record* source) {
    if (!destination || !source) return MEDIA_CONTENT_ERROR_INVALID_PARAMETER;
    intrusive_ptr_add_ref(source);
    *destination = source;
    return MEDIA_CONTENT_ERROR_NONE;
}

template <typename Record>
int DestroyHandle(Record* record) {
    if (!record) return MEDIA_CONTENT_ERROR_INVALID_PARAMETER;
    intrusive_ptr_release(record);
    return MEDIA_CONTENT_ERROR_NONE;
}

}  // namespace platform

#endif
