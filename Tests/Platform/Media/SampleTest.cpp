// The sample library, scanned by the service with the real helpers and read back through the C
// interface: every value that the files' expected metadata names arrives.
#include <json/json.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>

#include "Library.h"

namespace media_test {
namespace {

Json::Value Expected() {
    std::ifstream file(EXPECTED_METADATA);
    Json::Value value;
    EXPECT_TRUE(Json::parseFromStream(Json::CharReaderBuilder(), file, &value, nullptr));
    return value;
}

void MakeSamples(const std::string& folder) {
    const pid_t child = fork();
    if (child == 0) {
        execl(SAMPLE_MAKER, SAMPLE_MAKER, "--small", folder.c_str(), nullptr);
        _exit(127);
    }
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_EQ(status, 0);
}

using Texts = std::map<std::string, std::string>;
using Numbers = std::map<std::string, double>;

template <typename Handle>
std::string TextOf(Handle handle, int (*getter)(Handle, char**)) {
    return Text([&](char** out) { return getter(handle, out); });
}

template <typename Handle>
int NumberOf(Handle handle, int (*getter)(Handle, int*)) {
    int number = -1;
    EXPECT_EQ(getter(handle, &number), 0);
    return number;
}

void ReadAudio(media_info_h media, Texts& texts, Numbers& numbers) {
    audio_meta_h audio = nullptr;
    ASSERT_EQ(media_info_get_audio(media, &audio), 0);
    texts["album"] = TextOf(audio, audio_meta_get_album);
    texts["artist"] = TextOf(audio, audio_meta_get_artist);
    texts["genre"] = TextOf(audio, audio_meta_get_genre);
    texts["composer"] = TextOf(audio, audio_meta_get_composer);
    texts["copyright"] = TextOf(audio, audio_meta_get_copyright);
    texts["trackNumber"] = TextOf(audio, audio_meta_get_track_num);
    numbers["bitRate"] = NumberOf(audio, audio_meta_get_bit_rate);
    numbers["durationMs"] = NumberOf(audio, audio_meta_get_duration);
    audio_meta_destroy(audio);
}

void ReadImage(media_info_h media, Numbers& numbers) {
    image_meta_h image = nullptr;
    ASSERT_EQ(media_info_get_image(media, &image), 0);
    media_content_orientation_e orientation = MEDIA_CONTENT_ORIENTATION_NOT_AVAILABLE;
    numbers["width"] = NumberOf(image, image_meta_get_width);
    numbers["height"] = NumberOf(image, image_meta_get_height);
    EXPECT_EQ(image_meta_get_orientation(image, &orientation), 0);
    numbers["orientation"] = orientation;
    image_meta_destroy(image);
}

void ReadVideo(media_info_h media, Texts& texts, Numbers& numbers) {
    video_meta_h video = nullptr;
    ASSERT_EQ(media_info_get_video(media, &video), 0);
    texts["album"] = TextOf(video, video_meta_get_album);
    texts["genre"] = TextOf(video, video_meta_get_genre);
    numbers["durationMs"] = NumberOf(video, video_meta_get_duration);
    numbers["width"] = NumberOf(video, video_meta_get_width);
    numbers["height"] = NumberOf(video, video_meta_get_height);
    video_meta_destroy(video);
}

void ReadAll(media_info_h media, Texts& texts, Numbers& numbers) {
    texts["title"] = TextOf(media, media_info_get_title);
    texts["description"] = TextOf(media, media_info_get_description);
    EXPECT_EQ(media_info_get_latitude(media, &numbers["latitude"]), 0);
    EXPECT_EQ(media_info_get_longitude(media, &numbers["longitude"]), 0);
    switch (Describe(media).type) {
        case MEDIA_CONTENT_TYPE_MUSIC:
        case MEDIA_CONTENT_TYPE_SOUND:
            return ReadAudio(media, texts, numbers);
        case MEDIA_CONTENT_TYPE_IMAGE:
            return ReadImage(media, numbers);
        case MEDIA_CONTENT_TYPE_VIDEO:
            return ReadVideo(media, texts, numbers);
        case MEDIA_CONTENT_TYPE_OTHERS:
            FAIL();
    }
}

struct Comparison {
    std::string stick;
    Json::Value expected;
    int compared = 0;
};

bool Compare(media_info_h media, void* data) {
    Comparison& comparison = *static_cast<Comparison*>(data);
    const std::string name = Describe(media).path.substr(comparison.stick.size() + 1);
    if (!comparison.expected.isMember(name)) return true;  // names that JSON cannot hold
    SCOPED_TRACE(name);
    Texts texts;
    Numbers numbers;
    ReadAll(media, texts, numbers);
    const Json::Value& expected = comparison.expected[name];
    for (const std::string& key : expected.getMemberNames()) {
        if (texts.count(key)) {
            EXPECT_EQ(texts[key], expected[key].asString()) << key;
        }
        if (numbers.count(key)) {
            EXPECT_NEAR(numbers[key], expected[key].asDouble(), 1e-4) << key;
        }
    }
    ++comparison.compared;
    return true;
}

class MediaSampleTest : public MediaTest {};

TEST_F(MediaSampleTest, EveryValueArrives) {
    platform::ConfigureMediaService({DatabaseFile(), EXTRACT_HELPER});
    ASSERT_NO_FATAL_FAILURE(MakeSamples(Stick("a")));
    Connect();
    const std::string id = Mount("a", "U1");
    Comparison comparison{Stick("a"), Expected(), 0};
    ASSERT_EQ(media_info_foreach_media_from_db(nullptr, Compare, &comparison), 0);
    EXPECT_GT(comparison.compared, 30);

    // A second look opens nothing.
    const int before = Count({id});
    platform::StorageContentChanged(Stick("a"), {});
    uint64_t opened = 0;
    WaitFor([&] {
        const auto scans = platform::CurrentScans();
        for (const auto& scan : scans) opened = std::max(opened, scan.filesRead);
        return scans.empty();
    });
    EXPECT_EQ(opened, 0u);
    EXPECT_EQ(Count({id}), before);
}

}  // namespace
}  // namespace media_test
