// MIDI tunes: how long they last, and their names. No library is needed for that: the tracks are
// lists of events with the ticks between them.
#include <algorithm>
#include <string>
#include <vector>

#include "MediaContent/Extract/CleanText.h"
#include "MediaContent/Extract/ReadMetadata.h"

namespace platform {
namespace {

constexpr uint32_t kDefaultTempo = 500000;           // microseconds per quarter note
constexpr uint64_t kLargestTune = 16 * 1024 * 1024;  // bytes
constexpr size_t kMaxTempos = 65536;
constexpr size_t kMaxText = 256;

struct Tempo {
    uint64_t tick;
    uint32_t usPerQuarter;
};

struct Tune {
    std::vector<Tempo> tempos;
    uint64_t endTick = 0;
    std::string name;
    std::string copyright;
};

// Takes numbers from a part of the file. At its end everything is 0.
class Bytes {
public:
    Bytes(FileSource& source, uint64_t begin, uint64_t end)
        : m_cursor(source), m_end(std::min(end, source.Size())) {
        m_cursor.Seek(static_cast<int64_t>(begin), SourceCursor::From::Start);
    }

    bool AtEnd() const { return m_cursor.Tell() >= m_end; }
    uint64_t Tell() const { return m_cursor.Tell(); }
    uint8_t Byte() {
        uint8_t byte = 0;
        return !AtEnd() && m_cursor.Read(&byte, 1) == 1 ? byte : 0;
    }
    uint32_t Number(int bytes) {
        uint32_t value = 0;
        for (int i = 0; i < bytes; ++i) value = value << 8 | Byte();
        return value;
    }
    // Seven bits a byte; the last one's eighth bit is clear.
    uint32_t Quantity() {
        uint32_t value = 0;
        for (int i = 0; i < 4; ++i) {
            const uint8_t byte = Byte();
            value = value << 7 | (byte & 0x7f);
            if (!(byte & 0x80)) break;
        }
        return value;
    }
    std::string Text(size_t length) {
        std::string text(std::min<uint64_t>(std::min(length, kMaxText), m_end - Tell()), '\0');
        text.resize(m_cursor.Read(text.data(), text.size()));
        return text;
    }
    void Skip(uint64_t count) {
        m_cursor.Seek(static_cast<int64_t>(std::min(count, m_end - Tell())),
                      SourceCursor::From::Here);
    }

private:
    SourceCursor m_cursor;
    const uint64_t m_end;
};

void ReadMetaEvent(Bytes& bytes, uint64_t tick, Tune& tune) {
    constexpr uint8_t kCopyright = 2, kName = 3, kTempo = 0x51;
    const uint8_t type = bytes.Byte();
    const uint32_t length = bytes.Quantity();
    Bytes content = bytes;
    bytes.Skip(length);
    if (type == kTempo && length == 3 && tune.tempos.size() < kMaxTempos)
        tune.tempos.push_back({tick, content.Number(3)});
    if (type == kName && tune.name.empty()) tune.name = CleanOldText(content.Text(length));
    if (type == kCopyright && tune.copyright.empty())
        tune.copyright = CleanOldText(content.Text(length));
}

// `status` is the last event's, which an event without one of its own repeats.
void ReadEvent(Bytes& bytes, uint64_t tick, uint8_t& status, Tune& tune) {
    constexpr uint8_t kMeta = 0xff, kSystem = 0xf0, kProgram = 0xc0, kPressure = 0xd0;
    Bytes ahead = bytes;
    const uint8_t first = ahead.Byte();
    if (first & 0x80) {
        status = first;
        bytes.Skip(1);
    }
    const uint8_t type = status & 0xf0;
    if (status == kMeta)
        ReadMetaEvent(bytes, tick, tune);
    else if (type == kSystem)
        bytes.Skip(bytes.Quantity());
    else
        bytes.Skip(type == kProgram || type == kPressure ? 1 : 2);
}

void ReadTrack(Bytes bytes, Tune& tune) {
    uint64_t tick = 0;
    uint8_t status = 0;
    while (!bytes.AtEnd()) {
        tick += bytes.Quantity();
        ReadEvent(bytes, tick, status, tune);
    }
    tune.endTick = std::max(tune.endTick, tick);
}

// A tempo holds until the next one, whichever track it is in.
double Seconds(Tune& tune, uint32_t ticksPerQuarter) {
    std::stable_sort(tune.tempos.begin(), tune.tempos.end(),
                     [](const Tempo& a, const Tempo& b) { return a.tick < b.tick; });
    tune.tempos.push_back({tune.endTick, 0});
    double microseconds = 0.0;
    Tempo now{0, kDefaultTempo};
    for (const Tempo& next : tune.tempos) {
        const uint64_t tick = std::min(next.tick, tune.endTick);
        microseconds += static_cast<double>(tick - now.tick) * now.usPerQuarter / ticksPerQuarter;
        now = {tick, next.usPerQuarter};
    }
    return microseconds / 1e6;
}

// A division with its highest bit set counts in frames per second, not in quarter notes.
double Seconds(Tune& tune, uint16_t division) {
    if (!(division & 0x8000)) return division == 0 ? 0.0 : Seconds(tune, uint32_t{division});
    const int framesPerSecond = 256 - (division >> 8);
    const int ticksPerFrame = division & 0xff;
    return ticksPerFrame == 0
               ? 0.0
               : static_cast<double>(tune.endTick) / (framesPerSecond * ticksPerFrame);
}

}  // namespace

bool ReadMidi(FileSource& source, Metadata& metadata) {
    constexpr uint32_t kHeader = 0x4d546864, kTrack = 0x4d54726b;  // "MThd", "MTrk"
    Bytes bytes(source, 0, source.Size());
    if (source.Size() > kLargestTune || bytes.Number(4) != kHeader) return false;
    const uint32_t headerSize = bytes.Number(4);
    bytes.Skip(4);  // format and number of tracks
    const auto division = static_cast<uint16_t>(bytes.Number(2));
    bytes.Skip(headerSize > 6 ? headerSize - 6 : 0);
    Tune tune;
    while (!bytes.AtEnd()) {
        const uint32_t chunk = bytes.Number(4);
        const uint32_t size = bytes.Number(4);
        if (chunk == kTrack) ReadTrack(Bytes(source, bytes.Tell(), bytes.Tell() + size), tune);
        bytes.Skip(size);
    }
    const double milliseconds = Seconds(tune, division) * 1000.0;
    if (!(milliseconds > 0 && milliseconds < INT32_MAX)) return false;
    metadata.durationMs = static_cast<int32_t>(milliseconds);
    metadata.title = tune.name;
    metadata.copyright = tune.copyright;
    return true;
}

}  // namespace platform
