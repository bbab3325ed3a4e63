#include "MediaContent/Extract/Protocol.h"

#include <cmath>
#include <cstring>

#include "MediaContent/Extract/CleanText.h"

namespace platform {
namespace {

constexpr uint32_t REQUEST_MARK = 0x31515843;  // "CXQ1"
constexpr uint32_t ANSWER_MARK = 0x31415843;   // "CXA1"

enum : uint8_t { FLAG_READ = 1, FLAG_RETIRING = 2, FLAG_POSITION = 4, ALL_FLAGS = 7 };

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

// Takes values off the front. The first that is not there makes everything after it fail too.
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
        // Written so that "not a number" is refused too.
        if (!(std::fabs(value) <= limit)) Refuse();
        return m_good ? value : 0.0;
    }
    std::string Text(size_t limit) {
        const size_t length = Number<uint16_t>();
        if (length > limit) Refuse();
        return std::string(Bytes(length));
    }
    std::string CleanedText() {
        std::string text = Text(MAX_METADATA_TEXT);
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

// The texts in the order in which they are sent.
constexpr std::string Metadata::*TEXTS[] = {
    &Metadata::title, &Metadata::description, &Metadata::album,     &Metadata::artist,
    &Metadata::genre, &Metadata::composer,    &Metadata::copyright, &Metadata::trackNumber};
constexpr int32_t Metadata::*NUMBERS[] = {&Metadata::width, &Metadata::height,
                                          &Metadata::orientation, &Metadata::bitRate,
                                          &Metadata::durationMs};

void TakeMetadata(Taker& taker, Metadata& metadata) {
    for (const auto number : NUMBERS) metadata.*number = taker.Natural();
    metadata.latitude = taker.Double(90.0);
    metadata.longitude = taker.Double(180.0);
    for (const auto text : TEXTS) metadata.*text = taker.CleanedText();
    if (metadata.orientation > MEDIA_CONTENT_ORIENTATION_ROT_270) taker.Refuse();
    if (!metadata.hasPosition && (metadata.latitude != 0.0 || metadata.longitude != 0.0))
        taker.Refuse();
}

}  // namespace

std::string EncodeRequest(const ExtractRequest& request) {
    std::string out;
    PutNumber(out, REQUEST_MARK);
    PutNumber(out, request.number);
    PutNumber(out, request.fileSize);
    PutNumber(out, request.deadlineMs);
    PutNumber(out, static_cast<uint8_t>(request.kind));
    PutText(out, std::string_view(request.mime).substr(0, MAX_MIME_LENGTH));
    return out;
}

bool DecodeRequest(std::string_view bytes, ExtractRequest& request) {
    Taker taker(bytes);
    if (taker.Number<uint32_t>() != REQUEST_MARK) return false;
    request.number = taker.Number<uint32_t>();
    request.fileSize = taker.Number<uint64_t>();
    request.deadlineMs = taker.Number<uint32_t>();
    const auto kind = taker.Number<uint8_t>();
    if (kind > MEDIA_CONTENT_TYPE_OTHERS) return false;
    request.kind = static_cast<media_content_type_e>(kind);
    request.mime = taker.Text(MAX_MIME_LENGTH);
    return taker.AtEnd() && request.fileSize <= INT64_MAX &&
           request.mime.find('\0') == std::string::npos;
}

std::string EncodeAnswer(const ExtractAnswer& answer) {
    std::string out;
    PutNumber(out, ANSWER_MARK);
    PutNumber(out, answer.number);
    PutNumber(out, static_cast<uint8_t>((answer.read ? FLAG_READ : 0) |
                                        (answer.retiring ? FLAG_RETIRING : 0) |
                                        (answer.metadata.hasPosition ? FLAG_POSITION : 0)));
    if (!answer.read) return out;
    for (const auto number : NUMBERS)
        PutNumber(out, static_cast<uint32_t>(answer.metadata.*number));
    PutDouble(out, answer.metadata.latitude);
    PutDouble(out, answer.metadata.longitude);
    for (const auto text : TEXTS) PutText(out, answer.metadata.*text);
    return out;
}

bool DecodeAnswer(std::string_view bytes, ExtractAnswer& answer) {
    answer = {};
    Taker taker(bytes);
    if (taker.Number<uint32_t>() != ANSWER_MARK) return false;
    answer.number = taker.Number<uint32_t>();
    const auto flags = taker.Number<uint8_t>();
    if (!taker.Good() || (flags & ~ALL_FLAGS) != 0) return false;
    answer.read = (flags & FLAG_READ) != 0;
    answer.retiring = (flags & FLAG_RETIRING) != 0;
    answer.metadata.hasPosition = (flags & FLAG_POSITION) != 0;
    if (answer.read)
        TakeMetadata(taker, answer.metadata);
    else if (answer.metadata.hasPosition)
        return false;
    return taker.AtEnd();
}

}  // namespace platform
