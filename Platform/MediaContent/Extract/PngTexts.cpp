// The texts in a PNG's own chunks, which Exiv2 leaves alone but for the description.
#include <algorithm>
#include <string>
#include <string_view>

#include "MediaContent/Extract/CleanText.h"
#include "MediaContent/Extract/HeaderBytes.h"
#include "MediaContent/Extract/ReadMetadata.h"

namespace platform {
namespace {

constexpr int kMaxChunks = 200;
constexpr size_t kMaxChunkText = 8 * 1024;

// Text and international text that is not compressed; empty for any other.
std::string_view TextOf(std::string_view type, std::string_view afterKey) {
    if (type == "tEXt") return afterKey;
    if (type != "iTXt" || afterKey.size() < 2 || afterKey[0] != '\0') return {};
    size_t at = 2;  // the flag and method of compression, then a language and a translated key
    for (int skipped = 0; skipped < 2 && at != std::string_view::npos; ++skipped) {
        const size_t end = afterKey.find('\0', at);
        at = end == std::string_view::npos ? end : end + 1;
    }
    return at == std::string_view::npos ? std::string_view() : afterKey.substr(at);
}

void TakeText(std::string_view type, std::string_view content, Metadata& metadata) {
    static constexpr struct {
        const char* key;
        std::string Metadata::*text;
    } kKeys[] = {{"Title", &Metadata::title},
                 {"Author", &Metadata::artist},
                 {"Copyright", &Metadata::copyright},
                 {"Description", &Metadata::description}};
    const size_t end = content.find('\0');
    if (end == std::string_view::npos) return;
    for (const auto& known : kKeys) {
        std::string& text = metadata.*known.text;
        if (content.substr(0, end) == known.key && text.empty())
            text = CleanOldText(TextOf(type, content.substr(end + 1)));
    }
}

}  // namespace

void ReadPngTexts(FileSource& source, Metadata& metadata) {
    constexpr std::string_view kMark("\x89PNG\r\n\x1a\n", 8);
    if (!HeaderBytes<8>(source, 0).Start(kMark)) return;
    uint64_t at = kMark.size();
    for (int chunks = 0; chunks < kMaxChunks; ++chunks) {
        const HeaderBytes<8> head(source, at);
        if (!head.AreThere()) return;
        const uint32_t length = head.Big32(0);
        const std::string_view type = head.Text(4, 4);
        if (type == "IDAT") return;  // what follows the pixels would cost reading them
        if (type == "tEXt" || type == "iTXt") {
            std::string content(std::min<size_t>(length, kMaxChunkText), '\0');
            content.resize(source.ReadAt(at + 8, content.data(), content.size()));
            TakeText(type, content, metadata);
        }
        at += uint64_t{12} + length;
    }
}

}  // namespace platform
