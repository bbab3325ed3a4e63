#include "MediaContent/Extract/Protocol.h"

#include <cmath>
#include <cstring>
#include <utility>

#include "MediaContent/Extract/CleanText.h"

namespace platform {
namespace {

constexpr uint32_t kRequestMark = 0x31515843;  // "CXQ1"
constexpr uint32_t kAnswerMark = 0x31415843;   // "CXA1"

enum : uint8_t { FLAG_READ = 1, FLAG_POSITION = 2, ALL_FILE_FLAGS = 3 };

template <typename T>
void PutNumber(std::string& out, T value) {
    for (size_t i = 0; i < sizeof(T); ++i)
        out.push_back(static_cast<char>(static_cast<uint64_t>(value) >> (8 * i)));
}

void PutText(std::string& out, std::string_view text) {
    PutNumber(out, static_cast<uint16_t>(text.size()));
    out.append(text);
}

void PutDouble(std::string& out, double value) {
    uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    PutNumber(out, bits);
}

// Takes values from the front. After the first missing value everything else fails too.
class Taker {
public:
    explicit Taker(std::string_view bytes) : m_left(bytes) {}

    bool Good() const { return m_good; }
    bool AtEnd() const { return m_good && m_left.empty(); }
    bool Refuse() { return m_good = false; }

    template <typename T>
    T Number() {
        const std::string_view bytes = Bytes(sizeof(T));
        uint64_t value = 0;
        for (size_t i = bytes.size(); i > 0; --i)
            value = value << 8 | static_cast<unsigned char>(bytes[i - 1]);
        return static_cast<T>(value);
    }
    int32_t Natural() {
        const auto value = Number<uint32_t>();
        if (value > INT32_MAX) Refuse();
        return m_good ? static_cast<int32_t>(value) : 0;
    }
    double Double(double limit) {
        const auto bits = Number<uint64_t>();
        double value = 0.0;
        std::memcpy(&value, &bits, sizeof value);
        // Written this way to refuse NaN as well.
        if (!(std::fabs(value) <= limit)) Refuse();
        return m_good ? value : 0.0;
    }
    std::string Text(size_t limit) {
        const size_t length = Number<uint16_t>();
        if (length > limit) Refuse();
        return std::string(Bytes(length));
    }
    std::string CleanedText() {
        std::string text = Text(kMaxMetadataText);
        if (!IsCleanText(text)) Refuse();
        return text;
    }

private:
    std::string_view Bytes(size_t count) {
        if (count > m_left.size()) Refuse();
        if (!m_good) return {};
        const std::string_view taken = m_left.substr(0, count);
        m_left.remove_prefix(count);
        return taken;
    }

    std::string_view m_left;
    bool m_good = true;
};

// The texts, in transmission order.
constexpr std::string Metadata::*kTexts[] = {
    &Metadata::title,      &Metadata::description, &Metadata::album,     &Metadata::artist,
    &Metadata::genre,      &Metadata::composer,    &Metadata::copyright, &Metadata::trackNumber,
    &Metadata::discNumber, &Metadata::albumArtist, &Metadata::taken,     &Metadata::camera,
    &Metadata::lens};
constexpr int32_t Metadata::*kNumbers[] = {&Metadata::width,       &Metadata::height,
                                           &Metadata::orientation, &Metadata::bitRate,
                                           &Metadata::durationMs,  &Metadata::framesPer1000s,
                                           &Metadata::rating,      &Metadata::hasPicture};

media_content_type_e TakeKind(Taker& taker) {
    const auto kind = taker.Number<uint8_t>();
    if (kind > MEDIA_CONTENT_TYPE_OTHERS) taker.Refuse();
    return taker.Good() ? static_cast<media_content_type_e>(kind) : MEDIA_CONTENT_TYPE_OTHERS;
}

void TakeMetadata(Taker& taker, Metadata& metadata) {
    metadata.kind = TakeKind(taker);
    for (const auto number : kNumbers) metadata.*number = taker.Natural();
    metadata.latitude = taker.Double(90.0);
    metadata.longitude = taker.Double(180.0);
    metadata.altitude = taker.Double(kHighestAltitude);
    for (const auto text : kTexts) metadata.*text = taker.CleanedText();
    if (metadata.orientation > MEDIA_CONTENT_ORIENTATION_ROT_270 ||
        metadata.rating > kHighestRating || metadata.hasPicture > 1)
        taker.Refuse();
    if (!metadata.hasPosition &&
        (metadata.latitude != 0.0 || metadata.longitude != 0.0 || metadata.altitude != 0.0))
        taker.Refuse();
}

bool TakeFile(Taker& taker, ExtractRequest::File& file) {
    file.size = taker.Number<uint64_t>();
    file.kind = TakeKind(taker);
    file.mime = taker.Text(kMaxMimeLength);
    if (file.size > INT64_MAX || file.mime.find('\0') != std::string::npos) taker.Refuse();
    return taker.Good();
}

bool TakeFile(Taker& taker, ExtractAnswer::File& file) {
    const auto flags = taker.Number<uint8_t>();
    file.read = (flags & FLAG_READ) != 0;
    file.metadata.hasPosition = (flags & FLAG_POSITION) != 0;
    if ((flags & ~ALL_FILE_FLAGS) != 0 || (!file.read && file.metadata.hasPosition))
        return taker.Refuse();
    if (file.read) TakeMetadata(taker, file.metadata);
    return taker.Good();
}

// A count and that many files.
template <typename File>
void TakeFiles(Taker& taker, std::vector<File>& files) {
    const size_t count = taker.Number<uint16_t>();
    if (count > kMaxBatch) taker.Refuse();
    for (size_t i = 0; i < count && taker.Good(); ++i) TakeFile(taker, files.emplace_back());
}

}  // namespace

std::string EncodeRequest(const ExtractRequest& request) {
    std::string out;
    PutNumber(out, kRequestMark);
    PutNumber(out, request.number);
    PutNumber(out, request.deadlineMs);
    PutNumber(out, static_cast<uint16_t>(request.files.size()));
    for (const ExtractRequest::File& file : request.files) {
        PutNumber(out, file.size);
        PutNumber(out, static_cast<uint8_t>(file.kind));
        PutText(out, std::string_view(file.mime).substr(0, kMaxMimeLength));
    }
    return out;
}

bool DecodeRequest(std::string_view bytes, ExtractRequest& request) {
    request = {};
    Taker taker(bytes);
    if (taker.Number<uint32_t>() != kRequestMark) return false;
    request.number = taker.Number<uint32_t>();
    request.deadlineMs = taker.Number<uint32_t>();
    TakeFiles(taker, request.files);
    return taker.AtEnd() && !request.files.empty();
}

void AnswerEncoder::Add(bool read, const Metadata& metadata) {
    ++m_count;
    PutNumber(m_files, static_cast<uint8_t>((read ? FLAG_READ : 0) |
                                            (metadata.hasPosition ? FLAG_POSITION : 0)));
    if (!read) return;
    PutNumber(m_files, static_cast<uint8_t>(metadata.kind));
    for (const auto number : kNumbers) PutNumber(m_files, static_cast<uint32_t>(metadata.*number));
    PutDouble(m_files, metadata.latitude);
    PutDouble(m_files, metadata.longitude);
    PutDouble(m_files, metadata.altitude);
    for (const auto text : kTexts) PutText(m_files, metadata.*text);
}

std::string AnswerEncoder::Take(bool retiring) {
    std::string out;
    PutNumber(out, kAnswerMark);
    PutNumber(out, m_number);
    PutNumber(out, static_cast<uint8_t>(retiring));
    PutNumber(out, std::exchange(m_count, static_cast<uint16_t>(0)));
    out += std::exchange(m_files, std::string());
    return out;
}

bool DecodeAnswer(std::string_view bytes, ExtractAnswer& answer) {
    answer = {};
    Taker taker(bytes);
    if (taker.Number<uint32_t>() != kAnswerMark) return false;
    answer.number = taker.Number<uint32_t>();
    const auto retiring = taker.Number<uint8_t>();
    answer.retiring = retiring == 1;
    TakeFiles(taker, answer.files);
    return taker.AtEnd() && retiring <= 1;
}

}  // namespace platform
