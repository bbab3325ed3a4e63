// Real files of every format: what is read out of them, and what independent readers say.
#include <gtest/gtest.h>
#include <json/json.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <future>
#include <map>

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
    SampleTest() : m_pool(Options()) {}

    static ExtractorOptions Options() {
        ExtractorOptions options;
        options.helperPath = EXTRACT_HELPER;
        options.workers = 2;
        options.deadlineMs = 30'000;
        return options;
    }
    Json::Value Read(const std::string& name) {
        return ToJson(ExtractPath(m_pool, *s_folder / name));
    }

    NothingLeft m_nothingLeft;
    ExtractorPool m_pool;
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

TEST_F(SampleTest, NamesDoNotMatter) {
    size_t count = 0;
    for (const std::string& name : FilesBelow(s_folder->Path())) {
        if (name.rfind("Odd names/", 0) != 0) continue;
        ++count;
        EXPECT_EQ(Read(name), s_expected["Photos/beach.jpg"]) << name;
    }
    EXPECT_GE(count, 12u);
}

// What ffprobe says of a file, in our words. A text that it does not have is left out.
Json::Value Probe(const std::string& path) {
    const Json::Value said =
        ParseJson(Output({"ffprobe", "-v", "error", "-of", "json", "-show_entries",
                          "stream=width,height:stream_tags:format=duration:"
                          "format_tags",
                          path}));
    Json::Value json(Json::objectValue);
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
        static const std::map<std::string, std::string> names = {
            {"title", "title"},        {"album", "album"},       {"artist", "artist"},
            {"genre", "genre"},        {"composer", "composer"}, {"copyright", "copyright"},
            {"comment", "description"}};
        if (names.count(lower)) json[names.at(lower)] = tags[name];
    }
    return json;
}

void ExpectAgreement(const std::string& name, const Json::Value& ours, const Json::Value& theirs) {
    for (const std::string& key : ours.getMemberNames()) {
        if (!theirs.isMember(key)) continue;
        if (key == "durationMs") {
            // Encoder delay and the last frame's length are counted differently.
            EXPECT_NEAR(ours[key].asDouble(), theirs[key].asDouble(), 60.0) << name;
        } else {
            EXPECT_EQ(ours[key].asString(), CleanText(theirs[key].asString())) << name << key;
        }
    }
}

TEST_F(SampleTest, SongsAndFilmsAgreeWithFfprobe) {
    std::vector<std::string> names;
    for (const std::string& name : s_expected.getMemberNames()) {
        if (name.rfind("Music/", 0) == 0 || name.rfind("Videos/", 0) == 0) names.push_back(name);
    }
    ASSERT_GE(names.size(), 20u);
    const auto compare = [&](size_t first) {
        for (size_t i = first; i < names.size(); i += 2) {
            const Json::Value theirs = Probe(*s_folder / names[i]);
            EXPECT_EQ(s_expected[names[i]].isMember("width"), theirs.isMember("width"));
            ExpectAgreement(names[i], s_expected[names[i]], theirs);
        }
    };
    std::future<void> other = std::async(std::launch::async, compare, 1);
    compare(0);
    other.get();
}

std::string ExivValue(const std::string& path, const char* key) {
    std::string line = Output({"sh", "-c", "exiv2 -q -K \"$1\" -Pv \"$0\" || true", path, key});
    while (!line.empty() && (line.back() == '\n' || line.back() == ' ')) line.pop_back();
    return line;
}

TEST_F(SampleTest, PicturesAgreeWithFfprobeAndExiv2) {
    size_t compared = 0;
    for (const std::string& name : s_expected.getMemberNames()) {
        if (name.rfind("Photos/", 0) != 0) continue;
        const std::string path = *s_folder / name;
        const Json::Value& ours = s_expected[name];
        // This ffprobe knows no HEIC; the other reader of sizes is the library that wrote it.
        if (name.find(".heic") == std::string::npos) {
            const Json::Value theirs = Probe(path);
            EXPECT_EQ(ours["width"], theirs["width"]) << name;
            EXPECT_EQ(ours["height"], theirs["height"]) << name;
        } else {
            const std::string size = ours["width"].asString() + "x" + ours["height"].asString();
            EXPECT_NE(Output({"heif-info", path}).find(size), std::string::npos) << name;
        }
        const std::string orientation = ExivValue(path, "Exif.Image.Orientation");
        EXPECT_EQ(ours["orientation"].asInt(), std::atoi(orientation.c_str())) << name;
        const std::string description = ExivValue(path, "Exif.Image.ImageDescription");
        if (!description.empty() && name.find("latin1") == std::string::npos) {
            EXPECT_EQ(ours["description"].asString(), description) << name;
        }
        EXPECT_EQ(ours.isMember("latitude"), !ExivValue(path, "Exif.GPSInfo.GPSLatitude").empty())
            << name;
        ++compared;
    }
    EXPECT_GE(compared, 18u);
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

    ExtractorOptions options = Options();
    options.deadlineMs = 1000;
    ExtractorPool pool(options);
    constexpr size_t AT_ONCE = 200;  // all would be too many open files
    for (size_t i = 0; i < bad.size(); i += AT_ONCE) {
        const auto from = bad.begin() + static_cast<ptrdiff_t>(i);
        const auto to = bad.end() - from > ptrdiff_t{AT_ONCE} ? from + AT_ONCE : bad.end();
        for (const ExtractResult& result : ExtractPaths(pool, {from, to})) {
            if (result.status == ExtractStatus::OK) continue;
            EXPECT_EQ(result.status, ExtractStatus::FAILED);
            EXPECT_EQ(ToJson(result).size(), 1u) << "nothing but its status";
        }
    }
    for (const ExtractResult& result : ExtractPaths(m_pool, good))
        EXPECT_EQ(result.status, ExtractStatus::OK);
}

}  // namespace
