// Real files of every format: what is read out of them, and what independent readers say.
#include <gtest/gtest.h>
#include <json/json.h>

#include <cstdlib>
#include <fstream>
#include <future>
#include <sstream>

#include "ExtractSupport.h"
#include "MediaContent/Extract/CleanText.h"
#include "MetadataJson.h"

namespace {

using namespace platform;

Json::Value ParseJson(const std::string& text) {
    Json::Value value;
    EXPECT_TRUE(Json::Reader().parse(text, value)) << text;
    return value;
}

class SampleTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        s_folder = new TempFolder;
        Output({SAMPLE_MAKER, "--small", s_folder->Path()});
        std::ifstream file(EXPECTED_METADATA);
        s_expected = ParseJson(std::string(std::istreambuf_iterator<char>(file), {}));
    }
    static void TearDownTestSuite() {
        delete s_folder;
        s_folder = nullptr;
    }
    static ExtractorOptions Options() {
        ExtractorOptions options = RealHelper();
        options.idleHelpers = 2;
        return options;
    }
    NothingLeft m_nothingLeft;
    ExtractorPool m_pool{Options()};
    static TempFolder* s_folder;
    static Json::Value s_expected;
};

TempFolder* SampleTest::s_folder = nullptr;
Json::Value SampleTest::s_expected;

TEST_F(SampleTest, EveryFormatIsReadAsExpected) {
    std::vector<std::string> paths;
    for (const std::string& name : s_expected.getMemberNames()) {
        paths.push_back(*s_folder / name);
        ASSERT_TRUE(OpenFile(paths.back())) << name << " was not made";
    }
    const std::vector<ExtractResult> read = ExtractPaths(m_pool, paths);
    for (size_t i = 0; i < paths.size(); ++i) {
        Json::Value got = ToJson(read[i]);
        Json::Value expected = s_expected[s_expected.getMemberNames()[i]];
        // An encoder of another version packs a little better or worse.
        const double rate = expected["bitRate"].asDouble();
        EXPECT_NEAR(got["bitRate"].asDouble(), rate, 0.1 * rate) << paths[i];
        got.removeMember("bitRate");
        expected.removeMember("bitRate");
        EXPECT_EQ(got.toStyledString(), expected.toStyledString()) << paths[i];
    }
    EXPECT_GE(paths.size(), 50u);
}

// What ffprobe and exiv2 say of a file, in our words. A text that it does not have is left out.
Json::Value Theirs(const std::string& path) {
    Json::Value json(Json::objectValue);
    const Json::Value said =
        ParseJson(Output({"ffprobe", "-v", "error", "-of", "json", "-show_entries",
                          "stream=width,height:stream_tags:format=duration:format_tags", path}));
    for (const Json::Value& stream : said["streams"]) {
        if (stream["width"].asInt() == 0) continue;
        json["width"] = stream["width"];
        json["height"] = stream["height"];
    }
    json["durationMs"] = 1000.0 * std::atof(said["format"]["duration"].asString().c_str());
    Json::Value tags = said["format"]["tags"];
    if (tags.isNull()) tags = said["streams"][0]["tags"];
    for (const std::string& name : tags.isNull() ? Json::Value::Members() : tags.getMemberNames()) {
        std::string lower = name;
        for (char& c : lower) c = static_cast<char>(std::tolower(c));
        json[lower == "comment" ? "description" : lower] = tags[name];
    }
    std::istringstream exif(Output({"sh", "-c", "exiv2 -q -Pkv \"$0\" || true", path}));
    for (std::string key, value; exif >> key && std::getline(exif, value);) {
        if (key == "Exif.Image.Orientation") json["orientation"] = value;
        if (key == "Exif.Image.ImageDescription") json["description"] = value;
        if (key == "Exif.GPSInfo.GPSLatitude") json["hasPosition"] = true;
    }
    return json;
}

void ExpectAgreement(const std::string& name, const Json::Value& ours, const Json::Value& theirs) {
    EXPECT_EQ(ours.isMember("width"), theirs.isMember("width")) << name;
    for (const char* key : {"width", "height", "orientation", "title", "description", "album",
                            "artist", "genre", "composer", "copyright"})
        if (ours.isMember(key) && theirs.isMember(key)) {
            EXPECT_EQ(ours[key].asString(), CleanText(theirs[key].asString())) << name << key;
        }
    // Encoder delay and the last frame's length are counted differently.
    if (ours.isMember("durationMs")) {
        EXPECT_NEAR(ours["durationMs"].asDouble(), theirs["durationMs"].asDouble(), 60.0) << name;
    }
    if (name.rfind("Photos/", 0) != 0) return;
    EXPECT_EQ(ours.isMember("orientation"), theirs.isMember("orientation")) << name;
    EXPECT_EQ(ours.isMember("latitude"), theirs.isMember("hasPosition")) << name;
}

TEST_F(SampleTest, OtherReadersSayWhatIsExpected) {
    std::vector<std::string> names;
    for (const std::string& name : s_expected.getMemberNames()) {
        const bool isWhole = name.rfind("Broken/", 0) != 0 && name.rfind("Odd names/", 0) != 0;
        // This ffprobe knows no HEIC.
        if (isWhole && name.find(".heic") == std::string::npos) names.push_back(name);
    }
    ASSERT_GE(names.size(), 38u);
    const auto compare = [&](size_t first) {
        for (size_t i = first; i < names.size(); i += 2)
            ExpectAgreement(names[i], s_expected[names[i]], Theirs(*s_folder / names[i]));
    };
    std::future<void> other = std::async(std::launch::async, compare, 1);
    compare(0);
    other.get();
}

// Cut at every length of their headers, random bytes under every extension, 10 GB of nothing.
TEST_F(SampleTest, HostileFilesEndAndGoodOnesAreRead) {
    const TempFolder hostile;
    Output({SAMPLE_MAKER, "--hostile", hostile.Path()});
    std::vector<std::string> good;
    std::vector<std::string> bad;
    for (const std::string& name : FilesBelow(hostile.Path()))
        (name.find("good-") == std::string::npos ? bad : good).push_back(hostile / name);
    EXPECT_EQ(good.size(), 4u);
    EXPECT_GT(bad.size(), 1400u);

    const LogLines log;
    constexpr size_t AT_ONCE = 200;  // all would be too many open files
    for (size_t i = 0; i < bad.size(); i += AT_ONCE) {
        const auto from = bad.begin() + static_cast<ptrdiff_t>(i);
        const auto to = bad.end() - from > ptrdiff_t{AT_ONCE} ? from + AT_ONCE : bad.end();
        for (const ExtractResult& result : ExtractPaths(m_pool, {from, to})) {
            if (result.status == ExtractStatus::Ok) continue;
            EXPECT_EQ(result.status, ExtractStatus::Failed);
            EXPECT_EQ(ToJson(result).size(), 1u) << "nothing but its status";
        }
    }
    for (const ExtractResult& result : ExtractPaths(m_pool, good))
        EXPECT_EQ(result.status, ExtractStatus::Ok);
    EXPECT_EQ(log.With("the metadata helper"), "") << "a file has ended its helper";
}

}  // namespace
