// Real files of every format: what is read out of them. The expected values agree with what ffprobe
// and exiv2 say of these files.
#include <gtest/gtest.h>
#include <json/json.h>

#include <fstream>

#include "ExtractSupport.h"
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
    constexpr size_t kAtOnce = 200;  // all would be too many open files
    for (size_t i = 0; i < bad.size(); i += kAtOnce) {
        const auto from = bad.begin() + static_cast<ptrdiff_t>(i);
        const auto to = bad.end() - from > ptrdiff_t{kAtOnce} ? from + kAtOnce : bad.end();
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
