// Every format of the sample library as clients see it, against the expected items beside this
// file.
#include <filesystem>
#include <fstream>

#include "Service/ServiceTest.h"

namespace test {
namespace {

// Ids are the database's, sizes depend on the encoders' versions, paths on the temporary folder.
Json::Value WithoutVolatile(Json::Value item) {
    for (const char* key : {"id", "size", "fullPathName"}) item.removeMember(key);
    return item;
}

std::string BelowStick(const Json::Value& item, const std::string& stick) {
    const std::string path = item["fullPathName"].asString();
    const size_t at = path.find("$USB_DIR/" + stick + "/");
    EXPECT_NE(at, std::string::npos) << path;
    return path.substr(at + stick.size() + 10);
}

}  // namespace

TEST_F(ServiceTest, EachSampleIsTheItemThatItShouldBe) {
    std::ifstream file(EXPECTED_ITEMS);
    Json::Value expected;
    ASSERT_TRUE(Json::parseFromStream(Json::CharReaderBuilder(), file, &expected, nullptr));
    m_sticks.Make("samples", "--small");
    StartService();
    MediaClient media(Socket());
    const std::string id = media.Storage("samples")["id"].asString();
    const char* const kinds[][2] = {{"photo", "photos"}, {"video", "videos"}, {"music", "music"}};
    for (const auto& [word, key] : kinds) {
        const int count = media.Query(id, word);
        const Json::Value items = media.FetchAll(key, 7);
        EXPECT_EQ(items.size(), static_cast<unsigned>(count)) << word;
        for (const auto& item : items) {
            const std::string path = BelowStick(item, "samples");
            ASSERT_TRUE(expected.isMember(path))
                << path << " is listed, but should not be, or twice";
            EXPECT_EQ(WithoutVolatile(item), expected[path]) << path;
            EXPECT_TRUE(item["id"].isString() && !item["id"].asString().empty()) << path;
            std::error_code mended;  // a name that is no UTF-8 is told otherwise
            const auto size = std::filesystem::file_size(UsbRoot() + "/samples/" + path, mended);
            if (!mended) {
                EXPECT_EQ(item["size"], std::to_string(size)) << path;
            }
            expected.removeMember(path);
        }
    }
    EXPECT_EQ(expected.size(), 0u) << "not listed: " << expected;
}

}  // namespace test
