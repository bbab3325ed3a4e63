// Music and sounds, through TagLib.
#include <taglib/fileref.h>
#include <taglib/flacfile.h>
#include <taglib/tdebuglistener.h>
#include <taglib/tiostream.h>
#include <taglib/tpropertymap.h>
#include <taglib/xiphcomment.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "MediaContent/Extract/CleanText.h"
#include "MediaContent/Extract/Moment.h"
#include "MediaContent/Extract/ReadMetadata.h"
#include "MediaContent/Extract/ReaderSetup.h"

namespace platform {
namespace {

class Silence : public TagLib::DebugListener {
public:
    void printMessage(const TagLib::String&) override {}
};

// TagLib goes by a name's extension first and by the content when that fails, so it gets a name
// with an extension of the right kind.
const char* StandInName(const char* mime) {
    static const struct {
        const char* mime;
        const char* name;
    } names[] = {
        {"audio/mpeg", "x.mp3"},     {"audio/flac", "x.flac"},   {"audio/ogg", "x.oga"},
        {"audio/opus", "x.opus"},    {"audio/mp4", "x.m4a"},     {"audio/3gpp", "x.m4a"},
        {"audio/x-wav", "x.wav"},    {"audio/x-aiff", "x.aiff"}, {"audio/x-ms-wma", "x.wma"},
        {"audio/x-wavpack", "x.wv"}, {"audio/x-ape", "x.ape"},   {"audio/x-musepack", "x.mpc"},
        {"audio/x-speex", "x.spx"},  {"audio/x-tta", "x.tta"},
    };
    for (const auto& known : names) {
        if (std::strcmp(mime, known.mime) == 0) return known.name;
    }
    return nullptr;
}

// TagLib searches for the first frame of an MP3 up to the end of the file, in blocks of this many
// bytes and at a second per 16 MB: in a large file without frames that got the helper killed.
// Beyond the limit the search is told that the file has ended.
constexpr unsigned long kSearchBlock = 1024;
constexpr uint64_t kMaxSearched = 1024 * 1024;

// Lets TagLib read a source; read-only.
class TagLibStream : public TagLib::IOStream {
public:
    TagLibStream(FileSource& source, const char* name)
        : m_source(source), m_cursor(source), m_name(name) {}

    TagLib::FileName name() const override { return m_name; }
    TagLib::ByteVector readBlock(unsigned long length) override {
        if (length <= kSearchBlock && m_searched >= kMaxSearched) return {};
        const uint64_t left = m_source.Size() - std::min(m_source.Size(), m_cursor.Tell());
        TagLib::ByteVector block(static_cast<unsigned>(std::min<uint64_t>(length, left)), '\0');
        const size_t got = m_cursor.Read(block.data(), block.size());
        if (length <= kSearchBlock) m_searched += got;
        block.resize(static_cast<unsigned>(got));
        return block;
    }
    void writeBlock(const TagLib::ByteVector&) override {}
    void insert(const TagLib::ByteVector&, unsigned long, unsigned long) override {}
    void removeBlock(unsigned long, unsigned long) override {}
    bool readOnly() const override { return true; }
    bool isOpen() const override { return true; }
    void seek(long offset, Position from) override {
        const SourceCursor::From base = from == Beginning ? SourceCursor::From::Start
                                        : from == Current ? SourceCursor::From::Here
                                                          : SourceCursor::From::End;
        m_cursor.Seek(offset, base);
    }
    long tell() const override { return static_cast<long>(m_cursor.Tell()); }
    long length() override { return static_cast<long>(m_source.Size()); }
    void truncate(long) override {}

private:
    FileSource& m_source;
    SourceCursor m_cursor;
    uint64_t m_searched = 0;  // bytes
    const char* const m_name;
};

// Equal values, as of two tags of one file, count once.
std::string Text(const TagLib::PropertyMap& properties, const char* key) {
    const auto found = properties.find(key);
    if (found == properties.end()) return {};
    TagLib::StringList values;
    for (const TagLib::String& value : found->second)
        if (!values.contains(value)) values.append(value);
    return CleanText(values.toString(", ").to8Bit(true));
}

// An MP3's newer tag may lack what its older one has. Only this looks into all tags.
void FillIn(const TagLib::Tag& tag, Metadata& metadata) {
    const auto fill = [](std::string& text, const TagLib::String& other) {
        if (text.empty()) text = CleanText(other.to8Bit(true));
    };
    fill(metadata.title, tag.title());
    fill(metadata.album, tag.album());
    fill(metadata.artist, tag.artist());
    fill(metadata.genre, tag.genre());
    if (metadata.trackNumber.empty() && tag.track() > 0)
        metadata.trackNumber = std::to_string(tag.track());
    if (metadata.taken.empty() && tag.year() > 0)
        metadata.taken = ParseMoment(std::to_string(tag.year()));
}

void ReadTexts(const TagLib::PropertyMap& properties, Metadata& metadata) {
    metadata.title = Text(properties, "TITLE");
    metadata.album = Text(properties, "ALBUM");
    metadata.artist = Text(properties, "ARTIST");
    if (metadata.artist.empty()) metadata.artist = Text(properties, "AUTHOR");
    metadata.genre = Text(properties, "GENRE");
    metadata.composer = Text(properties, "COMPOSER");
    metadata.copyright = Text(properties, "COPYRIGHT");
    metadata.trackNumber = Text(properties, "TRACKNUMBER");
    metadata.discNumber = Text(properties, "DISCNUMBER");
    if (metadata.discNumber.empty()) metadata.discNumber = Text(properties, "DISC");
    if (metadata.discNumber == "0") metadata.discNumber.clear();
    metadata.albumArtist = Text(properties, "ALBUMARTIST");
    if (metadata.albumArtist.empty()) metadata.albumArtist = Text(properties, "ALBUM_ARTIST");
    metadata.taken = ParseMoment(Text(properties, "DATE"));
    metadata.description = Text(properties, "COMMENT");
    if (metadata.description.empty()) metadata.description = Text(properties, "DESCRIPTION");
}

// The names under which formats list a picture among what is no text.
bool NamesPicture(const TagLib::String& name) {
    for (const char* known : {"APIC", "PIC", "covr", "WM/Picture", "COVER ART (FRONT)"})
        if (name == known) return true;
    return false;
}

bool HasPicture(TagLib::File& file, const TagLib::PropertyMap& properties) {
    const TagLib::StringList& others = properties.unsupportedData();
    if (std::any_of(others.begin(), others.end(), NamesPicture)) return true;
    if (auto* flac = dynamic_cast<TagLib::FLAC::File*>(&file))
        return !flac->pictureList().isEmpty();
    auto* comment = dynamic_cast<TagLib::Ogg::XiphComment*>(file.tag());
    return comment && !comment->pictureList().isEmpty();
}

int32_t Thousandfold(int value) {
    return value > 0 && value <= INT32_MAX / 1000 ? value * 1000 : 0;
}

}  // namespace

void InitTagLib() {
    static Silence silence;
    TagLib::setDebugListener(&silence);
}

bool ReadAudio(FileSource& source, const char* mime, Metadata& metadata) {
    const char* name = StandInName(mime);
    if (!name) return false;
    TagLibStream stream(source, name);
    const TagLib::FileRef file(&stream);
    if (file.isNull() || !file.file()->isValid()) return false;
    const TagLib::AudioProperties* sound = file.audioProperties();
    // TagLib accepts nearly anything as an MP3: with neither a frame nor a tag it is not one.
    const bool hasFrames = sound && sound->sampleRate() > 0;
    if (!hasFrames && (!file.tag() || file.tag()->isEmpty())) return false;
    if (hasFrames) metadata.bitRate = Thousandfold(sound->bitrate());
    if (hasFrames) metadata.durationMs = std::max(0, sound->lengthInMilliseconds());
    const TagLib::PropertyMap properties = file.file()->properties();
    ReadTexts(properties, metadata);
    if (file.tag()) FillIn(*file.tag(), metadata);
    metadata.hasPicture = HasPicture(*file.file(), properties);
    return true;
}

}  // namespace platform
