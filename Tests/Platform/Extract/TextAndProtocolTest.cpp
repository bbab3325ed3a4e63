// The small parsers of the extraction: names, texts, positions and the protocol.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>

#include "MediaContent/Extract/CleanText.h"
#include "MediaContent/Extract/Iso6709.h"
#include "MediaContent/Extract/MediaTypes.h"
#include "MediaContent/Extract/Moment.h"
#include "MediaContent/Extract/Protocol.h"

namespace {

using namespace platform;
using namespace std::string_literals;

TEST(MediaTypes, AreFoundByTheLastExtensionInAnyCase) {
    const struct {
        const char* name;
        int kind;  // -1: no media file
        const char* mime;
    } cases[] = {
        {"a.jpg", 0, "image/jpeg"},
        {"/x.y/A.JpEg", 0, "image/jpeg"},
        {"a.tar.HEIC", 0, "image/heic"},
        {"b.mp3", 3, "audio/mpeg"},
        {"v.MP4", 1, "video/mp4"},
        {"memo.amr", 2, "audio/amr"},
        {"new\nline.png", 0, "image/png"},
        {"\xff\xfe.gif", 0, "image/gif"},
        {"a.jpg.txt", -1, nullptr},
        {"jpg", -1, nullptr},
        {"", -1, nullptr},
        {"a.jpg ", -1, nullptr},
        {"a.verylongextension", -1, nullptr},
        {"folder.jpg/file", -1, nullptr},
    };
    for (const auto& given : cases) {
        media_content_type_e kind = MEDIA_CONTENT_TYPE_OTHERS;
        const char* mime = nullptr;
        const bool found = LookUpMediaType(given.name, kind, mime);
        EXPECT_EQ(found ? static_cast<int>(kind) : -1, given.kind) << given.name;
        EXPECT_STREQ(mime, given.mime) << given.name;
    }
}

TEST(CleanTextTest, LetsOnlyValidShortTextsThrough) {
    const struct {
        std::string given;
        std::string clean;
    } cases[] = {
        {"", ""},
        {"plain", "plain"},
        {"  padded   ", "padded"},
        {"Ünïcödé 日本", "Ünïcödé 日本"},
        {"caf\xe9", "caf\xef\xbf\xbd"},
        {"\xed\xa0\x80", "\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd"},
        {"a\r\nb\tc\x7f", "a  b c"},
        {"a\xc2\x85"
         "b",
         "a b"},
        {"text\0and what was there before"s, "text"},
        {"\0hidden"s, ""},
        {std::string(5000, 'x'), std::string(4096, 'x')},
        {std::string(4095, 'x') + "ü", std::string(4095, 'x')},
        {std::string(4095, 'x') + " y", std::string(4095, 'x')},
    };
    for (const auto& text : cases) {
        EXPECT_EQ(CleanText(text.given), text.clean);
        EXPECT_TRUE(IsCleanText(text.clean));
        EXPECT_EQ(IsCleanText(text.given), text.given == text.clean);
    }
}

TEST(Iso6709Test, ReadsPositionsOnTheGlobeOnly) {
    const struct {
        const char* text;
        bool good;
        double latitude;
        double longitude;
        double altitude = 0.0;
    } cases[] = {
        {"+48.8566+002.3522/", true, 48.8566, 2.3522},
        {"-33.8568+151.2153-035.250/", true, -33.8568, 151.2153, -35.25},
        {"+4851.396+00221.132/", true, 48.8566, 2.3522},
        {"+485123.76-0022107.92CRSWGS_84/", true, 48.8566, -2.3522},
        {"+90-180/", true, 90.0, -180.0},
        {"+90.1+000/", false, 0, 0},
        {"+48+180.5/", false, 0, 0},
        {"48.8566+002.3522/", false, 0, 0},
        {"+48.8566", false, 0, 0},
        {"+4+002/", false, 0, 0},
        {"+48512345+002/", false, 0, 0},
        {"", false, 0, 0},
    };
    for (const auto& given : cases) {
        double latitude = 0.0;
        double longitude = 0.0;
        double altitude = 0.0;
        EXPECT_EQ(ParseIso6709(given.text, latitude, longitude, altitude), given.good)
            << given.text;
        EXPECT_NEAR(latitude, given.latitude, 1e-6) << given.text;
        EXPECT_NEAR(longitude, given.longitude, 1e-6) << given.text;
        EXPECT_NEAR(altitude, given.altitude, 1e-6) << given.text;
    }
}

TEST(MomentTest, IsAsExactAsItsText) {
    const char* const cases[][2] = {
        {"2004", "2004"},
        {"2004:05:02 10:11:12", "2004-05-02T10:11:12"},
        {"2004:05:02 10:11:12.1230+02:00", "2004-05-02T10:11:12.123+02:00"},
        {"2004-05-02T10:11:12.000000Z", "2004-05-02T10:11:12Z"},
        {"2004-05-02T10:11-0930", "2004-05-02T10:11-09:30"},
        {"2004-00-00", "2004"},
        {"2004-05-02T25:11:12", "2004-05-02"},
        {"2004-05-02T10", "2004-05-02"},
        {"2004-05-02 10:11:12+1", "2004-05-02T10:11:12"},
        {"2004 (remaster)", "2004"},
        {"0000:00:00 00:00:00", ""},
        {"20040502", ""},
        {"    :  :     :  :  ", ""},
        {"", ""},
    };
    for (const auto& [text, moment] : cases) EXPECT_EQ(ParseMoment(text), moment) << text;
}

Metadata FullMetadata() {
    Metadata data = {"Title",
                     "Description",
                     "Album",
                     "Ärtist",
                     "Genre",
                     "Composer",
                     "Copyright",
                     "3/12",
                     "1/2",
                     "Band",
                     "2004-05-02T10:11:12.123+02:00",
                     "Camera",
                     "35 mm"};
    data.width = std::numeric_limits<int32_t>::max();
    data.height = 2;
    data.orientation = 8;
    data.bitRate = 4;
    data.durationMs = 5;
    data.hasPosition = true;
    data.latitude = -90.0;
    data.longitude = 180.0;
    data.altitude = -420.5;
    data.kind = MEDIA_CONTENT_TYPE_VIDEO;
    data.rating = 5;
    data.hasPicture = 1;
    return data;
}

std::string AnswerWith(const Metadata& metadata) {
    AnswerEncoder encoder(0x80000001);
    encoder.Add(true, metadata);
    encoder.Add(false, {});
    return encoder.Take(true);
}

ExtractRequest SomeRequest() {
    return {7,
            5000,
            {{10ull << 30, MEDIA_CONTENT_TYPE_MUSIC, "audio/mpeg"},
             {0, MEDIA_CONTENT_TYPE_IMAGE, "image/jpeg"}}};
}

TEST(ProtocolTest, WhatIsSentArrives) {
    Metadata sent = FullMetadata();
    sent.description = std::string(kMaxMetadataText, 'd');
    ExtractAnswer got;
    ASSERT_TRUE(DecodeAnswer(AnswerWith(sent), got));
    EXPECT_EQ(got.number, 0x80000001);
    EXPECT_TRUE(got.retiring);
    ASSERT_EQ(got.files.size(), 2u);
    EXPECT_TRUE(got.files[0].read && !got.files[1].read);
    EXPECT_EQ(got.files[0].metadata.latitude, -90.0);
    EXPECT_EQ(got.files[0].metadata.trackNumber, "3/12");
    EXPECT_EQ(AnswerWith(got.files[0].metadata), AnswerWith(sent));

    ExtractRequest taken;
    ASSERT_TRUE(DecodeRequest(EncodeRequest(SomeRequest()), taken));
    EXPECT_EQ(taken.files.size(), 2u);
    EXPECT_EQ(EncodeRequest(taken), EncodeRequest(SomeRequest()));
}

TEST(ProtocolTest, TheLargestAnswerFitsItsMessage) {
    Metadata largest = FullMetadata();
    for (const auto text :
         {&Metadata::title, &Metadata::description, &Metadata::album, &Metadata::artist,
          &Metadata::genre, &Metadata::composer, &Metadata::copyright, &Metadata::trackNumber,
          &Metadata::discNumber, &Metadata::albumArtist, &Metadata::taken, &Metadata::camera,
          &Metadata::lens})
        largest.*text = std::string(kMaxMetadataText, 'x');
    AnswerEncoder encoder(1);
    while (!encoder.IsFull()) encoder.Add(true, FullMetadata());
    EXPECT_LT(encoder.Take(false).size(), kMaxAnswer);
    Metadata half = FullMetadata();
    half.title = std::string(kMaxMetadataText, 'x');
    for (int i = 0; i < 7; ++i) encoder.Add(true, half);
    ASSERT_FALSE(encoder.IsFull());
    encoder.Add(true, largest);
    EXPECT_LE(encoder.Take(false).size(), kMaxAnswer);
}

TEST(ProtocolTest, NothingButAWholeMessageIsTaken) {
    const std::string answer = AnswerWith(FullMetadata());
    const std::string request = EncodeRequest(SomeRequest());
    ExtractAnswer gotAnswer;
    ExtractRequest gotRequest;
    for (size_t length = 0; length < answer.size(); ++length)
        EXPECT_FALSE(DecodeAnswer(answer.substr(0, length), gotAnswer)) << length;
    for (size_t length = 0; length < request.size(); ++length)
        EXPECT_FALSE(DecodeRequest(request.substr(0, length), gotRequest)) << length;
    EXPECT_FALSE(DecodeAnswer(answer + '\0', gotAnswer));
    EXPECT_FALSE(DecodeRequest(request + '\0', gotRequest));
    EXPECT_FALSE(DecodeAnswer(request, gotAnswer));
    EXPECT_FALSE(DecodeRequest(answer, gotRequest));
    EXPECT_FALSE(DecodeRequest(EncodeRequest({1, 5000, {}}), gotRequest)) << "no file";
    ExtractRequest many = SomeRequest();
    many.files.resize(kMaxBatch + 1);
    EXPECT_FALSE(DecodeRequest(EncodeRequest(many), gotRequest));
}

TEST(ProtocolTest, WhatNoHonestHelperSaysIsRefused) {
    const std::function<void(Metadata&)> lies[] = {
        [](Metadata& data) { data.title = "\xff"; },
        [](Metadata& data) { data.genre = "new\nline"; },
        [](Metadata& data) { data.album = " padded"; },
        [](Metadata& data) { data.title = std::string(kMaxMetadataText + 1, 'x'); },
        [](Metadata& data) { data.width = -1; },
        [](Metadata& data) { data.orientation = 9; },
        [](Metadata& data) { data.latitude = 90.5; },
        [](Metadata& data) { data.longitude = std::nan(""); },
        [](Metadata& data) { data.hasPosition = false; },
        [](Metadata& data) { data.rating = 6; },
        [](Metadata& data) { data.kind = static_cast<media_content_type_e>(5); },
    };
    for (const auto& lie : lies) {
        Metadata data = FullMetadata();
        lie(data);
        ExtractAnswer got;
        EXPECT_FALSE(DecodeAnswer(AnswerWith(data), got)) << &lie - lies;
    }
}

}  // namespace
