// Connection, storages, listings and identity, as seen through the C interface.
#include "Library.h"

namespace media_test {
namespace {

TEST_F(MediaTest, ListsWhatTheStickHolds) {
    WriteFile(Stick("a") + "/one.jpg");
    WriteFile(Stick("a") + "/DCIM/100/two.JPG");
    WriteFile(Stick("a") + "/Music/song.mp3");
    WriteFile(Stick("a") + "/readme.txt");
    WriteFile(Stick("a") + "/.hidden/three.jpg");
    WriteFile(Stick("a") + "/covers/.nomedia");
    WriteFile(Stick("a") + "/covers/four.jpg");
    Connect();
    const std::string id = Mount("a", "1234-ABCD");
    EXPECT_EQ(ScanStatus(id), MEDIA_STORAGE_SCAN_COMPLETE);
    EXPECT_EQ(Count({id}), 3);
    EXPECT_EQ(Count({id, "MEDIA_TYPE=0"}), 2);
    EXPECT_EQ(Count({id, "MEDIA_TYPE = 0 AND MEDIA_TITLE LIKE 'T%'"}), 1);
    const auto items = List({id, "MEDIA_TYPE=0"});
    ASSERT_EQ(items.size(), 2u);
    const auto folders = Folders({id, "FOLDER_STORAGE_TYPE = 1"});
    ASSERT_EQ(folders.size(), 4u);
    EXPECT_EQ(CountFolder(folders.at(Stick("a") + "/DCIM/100")), 1);
    EXPECT_EQ(CountFolder(folders.at(Stick("a") + "/DCIM")), 0);
    EXPECT_EQ(ListFolder(folders.at(Stick("a")), {"", "(MEDIA_TYPE = 0 OR MEDIA_TYPE = 1)"}).size(),
              1u);
}

}  // namespace
}  // namespace media_test
