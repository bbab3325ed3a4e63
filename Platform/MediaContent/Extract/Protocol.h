// What the service and its metadata helpers say to each other: one request, one answer, each one
// message of a SOCK_SEQPACKET pair. The request carries the file's descriptor beside its bytes.
// Numbers are little-endian. Neither side trusts the other: a decoder takes a message whole and
// exact, or not at all.
#ifndef PLATFORM_MEDIA_CONTENT_EXTRACT_PROTOCOL_H
#define PLATFORM_MEDIA_CONTENT_EXTRACT_PROTOCOL_H

#include <cstdint>
#include <string>
#include <string_view>

#include "MediaContent.h"
#include "MediaContent/Extract/Metadata.h"

namespace platform {

// The descriptor on which a helper finds its end of the pair.
constexpr int HELPER_SOCKET_FD = 3;
constexpr size_t MAX_MIME_LENGTH = 64;
constexpr size_t MAX_REQUEST = 32 + MAX_MIME_LENGTH;
constexpr size_t MAX_ANSWER = 128 + 8 * (MAX_METADATA_TEXT + 2);

struct ExtractRequest {
    uint32_t number = 0;      // comes back in the answer
    uint64_t fileSize = 0;    // bytes
    uint32_t deadlineMs = 0;  // the helper ends itself some time after it
    media_content_type_e kind = MEDIA_CONTENT_TYPE_OTHERS;
    std::string mime;  // at most MAX_MIME_LENGTH bytes
};

struct ExtractAnswer {
    uint32_t number = 0;
    bool read = false;      // false: `metadata` is empty
    bool retiring = false;  // the helper has grown and ends after this answer
    Metadata metadata;
};

std::string EncodeRequest(const ExtractRequest& request);
std::string EncodeAnswer(const ExtractAnswer& answer);

// False, and the output is in no particular state, for bytes that no encoder made: wrong length,
// unknown kind or flag, number out of range, text that is not clean.
bool DecodeRequest(std::string_view bytes, ExtractRequest& request);
bool DecodeAnswer(std::string_view bytes, ExtractAnswer& answer);

}  // namespace platform

#endif
