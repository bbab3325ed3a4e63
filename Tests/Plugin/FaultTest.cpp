// Each call of the platform fails once, wherever it is made: what was asked for ends all the same,
// nothing is left behind, and the next time it works.
#include "PluginTest.h"

namespace test {
namespace {

class FaultTest : public PluginTest {
protected:
    FaultTest() {
        AddStick();
        AddStick("/opt/storage/usb/sdb1", "S2");
        AddPhotos(4);
        platform.Add(Camera(1, 5));
    }

    // Goes the way once to learn which calls it makes, and once with each of them failing. `check`
    // follows each, with a platform that works again.
    void FailEachCall(const std::function<void()>& way, const std::function<void()>& check) {
        platform.ForgetCalls();
        way();
        const std::map<std::string, int> calls = platform.Calls();
        ASSERT_FALSE(calls.empty());
        for (const auto& [function, times] : calls)
            for (int nth = 0; nth <= times; ++nth) {  // 0: all of them
                SCOPED_TRACE(function + " " + std::to_string(nth));
                platform.Fail(function, nth, USB_DEVICE_ERROR_IO);
                way();
                platform.FailNoMore();
                // A record of no kind is kept like one that was shown.
                if (function == "media_info_get_media_type") keptRecords += nth == 0 ? times : 1;
                EXPECT_EQ(platform.LiveHandles(), keptRecords);
                check();
            }
    }

    // A query and its first page; how many items both have found.
    static std::pair<int, int> Ask(Rig& rig, const char* storage, MediaType type,
                                   const std::string& folder) {
        FakePlatform& platform = FakePlatform::Get();
        EXPECT_TRUE(rig.task.Query(storage, type, folder, "true"));
        const int counted =
            Parse(platform.WaitForEvent("QUERY_COMPLETED").payload)["count"].asInt();
        int id = 0;
        if (!rig.task.Fetch(0, 10, id)) return {counted, -1};
        const Json::Value page = Parse(platform.WaitForEvent("FETCH_COMPLETED").payload);
        EXPECT_EQ(page["id"].asInt(), id);
        return {counted, static_cast<int>(page["photos"].size() + page["folders"].size())};
    }
};

TEST_F(FaultTest, Connecting) {
    std::unique_ptr<Rig> rig;
    bool connects = false;
    const auto connect = [&] {
        rig = std::make_unique<Rig>();
        connects = rig->task.Connect();
        EXPECT_TRUE(HasThreads(connects ? 4 : 2)) << "two workers, and the watchers";
    };
    FailEachCall(connect, [&] {
        CPlivTaskContentsMgr::StorageList list;
        EXPECT_EQ(rig->task.GetStorages(list), connects);
        EXPECT_EQ(list.size(), connects ? 3u : 0u);
        EXPECT_TRUE(rig->task.Connect()) << "the failure has left something locked or half open";
        rig.reset();
    });
}

TEST_F(FaultTest, QueriesAndPages) {
    TempFolder folder;
    for (const char* name : {"a", "b", "c"}) MakeFolder(folder / name);
    platform.Add(Storage{"DISK", folder.Path()});
    platform.Add(Folder{"F1", folder.Path()});
    ConnectedRig rig;
    const struct {
        const char* storage;
        MediaType type;
        int items;
    } kinds[] = {{"S1", dorn::MEDIA_TYPE_PHOTO, 4}, {"DISK", dorn::MEDIA_TYPE_FOLDER, 3}};
    for (const auto& kind : kinds) {
        const auto ask = [&] { return Ask(rig, kind.storage, kind.type, folder.Path()); };
        FailEachCall(ask, [&] { EXPECT_EQ(ask(), std::make_pair(kind.items, kind.items)); });
    }
}

TEST_F(FaultTest, ASticksComingAndGoing) {
    ConnectedRig rig;
    const auto plugAndPull = [&] {
        platform.FireUsb({"/opt/storage/usb/sdc1"}, "mounted");
        Await("USB_CONNECTED");
        platform.FireUsb({"/opt/storage/usb/sdc1"}, "blocked");
        Await("USB_DISCONNECTED");
    };
    FailEachCall(plugAndPull, plugAndPull);
}

}  // namespace
}  // namespace test
