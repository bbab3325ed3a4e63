// Videos, and the few audio formats that TagLib does not support, through libavformat.
extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/avstring.h>
#include <libavutil/mem.h>
}

#include <array>
#include <cmath>
#include <cstring>
#include <initializer_list>
#include <memory>

#include "MediaContent/Extract/CleanText.h"
#include "MediaContent/Extract/Iso6709.h"
#include "MediaContent/Extract/MakeAndModel.h"
#include "MediaContent/Extract/Moment.h"
#include "MediaContent/Extract/ReadMetadata.h"
#include "MediaContent/Extract/ReaderSetup.h"

namespace platform {
namespace {

constexpr int kIoBuffer = 32 * 1024;
// Enough to find the streams' parameters when a container's header lacks them.
constexpr const char* kProbeBytes = "1000000";
constexpr const char* kProbeMicroseconds = "1000000";
constexpr int64_t kStreamMicroseconds = 5000000;
// The largest allowed memory block, whatever length a header claims: enough for the tables of the
// longest films.
constexpr size_t kMaxBlock = 128 * 1024 * 1024;
// The formats that may be opened: no playlists, no image sequences, nothing that refers to other
// files.
constexpr const char* kFormats =
    "mov,mp4,matroska,webm,avi,mpegts,mpeg,mpegvideo,asf,ogg,flv,aac,amr,mp3,wav,aiff,flac,m4v,"
    "h264,mxf,dsf,iff,flic,libopenmpt,au,caf,ac3,rm,dv,tta,wv,ape,mpc,mpc8";

struct FreeIo {
    void operator()(AVIOContext* io) const {
        av_freep(&io->buffer);
        avio_context_free(&io);
    }
};
struct CloseInput {
    void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
};
struct FreeOptions {
    void operator()(AVDictionary* options) const { av_dict_free(&options); }
};
using Io = std::unique_ptr<AVIOContext, FreeIo>;
using Input = std::unique_ptr<AVFormatContext, CloseInput>;

struct Stream {
    FileSource& source;
    SourceCursor cursor;
};

int ReadPacket(void* opaque, uint8_t* buffer, int length) {
    const size_t got =
        static_cast<Stream*>(opaque)->cursor.Read(buffer, static_cast<size_t>(length));
    return got > 0 ? static_cast<int>(got) : AVERROR_EOF;
}

int64_t SeekTo(void* opaque, int64_t offset, int whence) {
    auto* stream = static_cast<Stream*>(opaque);
    if (whence & AVSEEK_SIZE) return static_cast<int64_t>(stream->source.Size());
    whence &= ~AVSEEK_FORCE;
    const SourceCursor::From from = whence == SEEK_SET   ? SourceCursor::From::Start
                                    : whence == SEEK_CUR ? SourceCursor::From::Here
                                                         : SourceCursor::From::End;
    if (!stream->cursor.Seek(offset, from)) return AVERROR(EINVAL);
    return static_cast<int64_t>(stream->cursor.Tell());
}

Io MakeIo(Stream& stream) {
    auto* buffer = static_cast<unsigned char*>(av_malloc(kIoBuffer));
    if (!buffer) return nullptr;
    Io io(avio_alloc_context(buffer, kIoBuffer, 0, &stream, ReadPacket, nullptr, SeekTo));
    if (!io) av_free(buffer);
    return io;
}

// A file must not open other files that it names.
int RefuseToOpen(AVFormatContext*, AVIOContext**, const char*, int, AVDictionary**) {
    return AVERROR(EACCES);
}

// The format of the most common files, by the signature at their start. Null: libavformat has to
// try all formats, which takes longer than reading one of these.
const AVInputFormat* FormatOf(FileSource& source) {
    std::array<char, 12> start{};
    if (source.ReadAt(0, start.data(), start.size()) < start.size()) return nullptr;
    const auto has = [&](size_t at, const char* mark) {
        return std::memcmp(start.data() + at, mark, std::strlen(mark)) == 0;
    };
    if (has(4, "ftyp")) return av_find_input_format("mov");
    if (has(0, "\x1a\x45\xdf\xa3")) return av_find_input_format("matroska");
    if (has(0, "RIFF") && has(8, "AVI ")) return av_find_input_format("avi");
    return nullptr;
}

Input Open(AVIOContext* io, const AVInputFormat* format) {
    AVFormatContext* context = avformat_alloc_context();
    if (!context) return nullptr;
    context->pb = io;
    context->flags |= AVFMT_FLAG_CUSTOM_IO;
    context->io_open = RefuseToOpen;
    AVDictionary* options = nullptr;
    av_dict_set(&options, "format_whitelist", kFormats, 0);
    av_dict_set(&options, "probesize", kProbeBytes, 0);
    av_dict_set(&options, "analyzeduration", kProbeMicroseconds, 0);
    // On failure this frees the context itself.
    const int result = avformat_open_input(&context, nullptr, format, &options);
    const std::unique_ptr<AVDictionary, FreeOptions> left(options);
    return Input(result < 0 ? nullptr : context);
}

bool IsMovingPicture(const AVStream& stream) {
    return stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO &&
           !(stream.disposition & AV_DISPOSITION_ATTACHED_PIC);
}

bool HeaderSaysAll(const AVFormatContext& context) {
    if (context.nb_streams == 0 || context.duration == AV_NOPTS_VALUE || context.duration <= 0)
        return false;
    for (unsigned i = 0; i < context.nb_streams; ++i) {
        const AVStream& stream = *context.streams[i];
        if (IsMovingPicture(stream) && stream.codecpar->width <= 0) return false;
    }
    return true;
}

int32_t FramesPer1000s(const AVStream& stream) {
    for (const AVRational rate : {stream.avg_frame_rate, stream.r_frame_rate}) {
        const double frames = rate.den > 0 ? rate.num * 1000.0 / rate.den : 0.0;
        if (frames > 0 && frames < INT32_MAX) return static_cast<int32_t>(std::lround(frames));
    }
    return 0;
}

// Reads the size of the first video stream that has one.
void ReadSize(const AVFormatContext& context, Metadata& metadata) {
    for (unsigned i = 0; i < context.nb_streams; ++i) {
        const AVStream& stream = *context.streams[i];
        const AVCodecParameters& codec = *stream.codecpar;
        if (!IsMovingPicture(stream) || codec.width <= 0 || codec.height <= 0) continue;
        metadata.width = codec.width;
        metadata.height = codec.height;
        metadata.framesPer1000s = FramesPer1000s(stream);
        return;
    }
}

void ReadLength(const AVFormatContext& context, uint64_t fileSize, Metadata& metadata) {
    const int64_t milliseconds =
        context.duration == AV_NOPTS_VALUE ? 0 : context.duration / (AV_TIME_BASE / 1000);
    if (milliseconds <= 0 || milliseconds > INT32_MAX) return;
    metadata.durationMs = static_cast<int32_t>(milliseconds);
    const double rate = static_cast<double>(fileSize) * 8000.0 / static_cast<double>(milliseconds);
    if (rate < INT32_MAX) metadata.bitRate = static_cast<int32_t>(rate);
}

// The container's own tag, or else the first one of a stream (Ogg keeps them there).
std::string Tag(const AVFormatContext& context, const char* key) {
    const AVDictionaryEntry* entry = av_dict_get(context.metadata, key, nullptr, 0);
    for (unsigned i = 0; !entry && i < context.nb_streams; ++i)
        entry = av_dict_get(context.streams[i]->metadata, key, nullptr, 0);
    return entry ? CleanText(entry->value) : std::string();
}

std::string ContainerTag(const AVFormatContext& context, const char* key) {
    const AVDictionaryEntry* entry = av_dict_get(context.metadata, key, nullptr, 0);
    return entry ? CleanText(entry->value) : std::string();
}

void ReadTexts(const AVFormatContext& context, Metadata& metadata) {
    // A stream's own title ("Commentary", "Stereo") is not the film's title.
    metadata.title = context.iformat && av_match_name("ogg", context.iformat->name)
                         ? Tag(context, "title")
                         : ContainerTag(context, "title");
    metadata.album = Tag(context, "album");
    metadata.artist = Tag(context, "artist");
    metadata.genre = Tag(context, "genre");
    metadata.composer = Tag(context, "composer");
    metadata.copyright = Tag(context, "copyright");
    metadata.trackNumber = Tag(context, "track");
    metadata.description = Tag(context, "description");
    if (metadata.description.empty()) metadata.description = ContainerTag(context, "comment");
}

// The first of these tags that the file has.
std::string FirstTag(const AVFormatContext& context, std::initializer_list<const char*> keys) {
    for (const char* key : keys)
        if (std::string text = Tag(context, key); !text.empty()) return text;
    return {};
}

// A film's creation time, preferably with the offset of the place; a song's date.
void ReadOrigin(const AVFormatContext& context, Metadata& metadata) {
    metadata.discNumber = Tag(context, "disc");
    metadata.albumArtist = FirstTag(context, {"album_artist", "albumartist"});
    const bool isFilm = metadata.kind == MEDIA_CONTENT_TYPE_VIDEO;
    metadata.taken = ParseMoment(
        isFilm ? FirstTag(context, {"com.apple.quicktime.creationdate", "creation_time", "date"})
               : FirstTag(context, {"date", "year", "creation_time"}));
    metadata.camera = MakeAndModel(
        FirstTag(context, {"com.apple.quicktime.make", "com.android.manufacturer", "make"}),
        FirstTag(context, {"com.apple.quicktime.model", "com.android.model", "model"}));
}

// A container may hold either: without a moving picture it is music, whatever its name says.
void ReadKind(const AVFormatContext& context, Metadata& metadata) {
    bool sounds = false;
    bool moves = false;
    for (unsigned i = 0; i < context.nb_streams; ++i) {
        const AVStream& stream = *context.streams[i];
        sounds = sounds || stream.codecpar->codec_type == AVMEDIA_TYPE_AUDIO;
        moves = moves || IsMovingPicture(stream);
        if (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) metadata.hasPicture = 1;
    }
    if (moves)
        metadata.kind = MEDIA_CONTENT_TYPE_VIDEO;
    else if (sounds)
        metadata.kind = MEDIA_CONTENT_TYPE_MUSIC;
}

void ReadPosition(const AVFormatContext& context, Metadata& metadata) {
    for (const char* key : {"location", "com.apple.quicktime.location.ISO6709"}) {
        double latitude = 0.0;
        double longitude = 0.0;
        double altitude = 0.0;
        if (!ParseIso6709(Tag(context, key), latitude, longitude, altitude)) continue;
        metadata.hasPosition = true;
        metadata.latitude = latitude;
        metadata.longitude = longitude;
        metadata.altitude = altitude;
        return;
    }
}

}  // namespace

void InitAvformat() {
    av_max_alloc(kMaxBlock);
    av_log_set_level(AV_LOG_QUIET);
}

bool ReadContainer(FileSource& source, const char*, Metadata& metadata) {
    Stream stream{source, SourceCursor(source)};
    const Io io = MakeIo(stream);
    if (!io) return false;
    const Input input = Open(io.get(), FormatOf(source));
    if (!input) return false;
    // The length of a stream of frames without a container follows from the rate of its first ones.
    if (av_match_name(input->iformat->name, "aac,ac3"))
        input->max_analyze_duration = kStreamMicroseconds;
    if (!HeaderSaysAll(*input)) avformat_find_stream_info(input.get(), nullptr);
    if (input->nb_streams == 0) return false;
    ReadKind(*input, metadata);
    ReadSize(*input, metadata);
    ReadOrigin(*input, metadata);
    ReadLength(*input, source.Size(), metadata);
    ReadTexts(*input, metadata);
    ReadPosition(*input, metadata);
    return true;
}

}  // namespace platform
