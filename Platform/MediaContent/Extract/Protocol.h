// The protocol between the service and its metadata helpers, in messages over a SOCK_SEQPACKET
// pair: a request for a few files, whose descriptors are passed with it in the same order, and an
// answer for each of them, in as many messages as needed. Numbers are little-endian. Neither side
// trusts the other: a decoder accepts a message only if it is complete and exact.
#ifndef PLATFORM_MEDIA_CONTENT_EXTRACT_PROTOCOL_H
#define PLATFORM_MEDIA_CONTENT_EXTRACT_PROTOCOL_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "MediaContent.h"
#include "MediaContent/Extract/Metadata.h"

namespace platform {

// The descriptor number of a helper's end of the pair.
constexpr int kHelperSocketFd = 3;
constexpr size_t kMaxBatch = 32;  // files per request
// The bytes that a helper reads from a file at once, starting at its beginning.
constexpr size_t kReadWindow = 16 * 1024;
constexpr size_t kMaxMimeLength = 64;
constexpr size_t kMaxRequest = 32 + kMaxBatch * (16 + kMaxMimeLength);  // bytes
constexpr size_t kMaxFileAnswer = 80 + 13 * (kMaxMetadataText + 2);     // bytes
// A message that has reached this size is sent, so that there is always room for one more file.
constexpr size_t kFullAnswer = 32 * 1024;
constexpr size_t kMaxAnswer = kFullAnswer + kMaxFileAnswer;

struct ExtractRequest {
    struct File {
        uint64_t size = 0;  // bytes
        media_content_type_e kind = MEDIA_CONTENT_TYPE_OTHERS;
        std::string mime;  // at most kMaxMimeLength bytes
    };
    uint32_t number = 0;      // repeated in the answers
    uint32_t deadlineMs = 0;  // the helper exits some time after it
    std::vector<File> files;  // 1 to kMaxBatch
};

struct ExtractAnswer {
    struct File {
        bool read = false;  // false: `metadata` is empty
        Metadata metadata;
    };
    uint32_t number = 0;
    bool retiring = false;    // the helper has grown and ends after this message
    std::vector<File> files;  // in the requested order, continuing earlier messages
};

std::string EncodeRequest(const ExtractRequest& request);

// Builds an answer message file by file.
class AnswerEncoder {
public:
    explicit AnswerEncoder(uint32_t number) : m_number(number) {}
    void Add(bool read, const Metadata& metadata);
    bool IsFull() const { return m_files.size() >= kFullAnswer; }
    // Returns the message and empties the encoder.
    std::string Take(bool retiring);

private:
    const uint32_t m_number;
    uint16_t m_count = 0;
    std::string m_files;
};

// False, with the output in an undefined state, for bytes that no encoder produces: wrong length,
// unknown kind or flag, number out of range, text that is not clean.
bool DecodeRequest(std::string_view bytes, ExtractRequest& request);
bool DecodeAnswer(std::string_view bytes, ExtractAnswer& answer);

}  // namespace platform

#endif
