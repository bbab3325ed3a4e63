// What the plugin's tests share.
#ifndef PLUGIN_TEST_H
#define PLUGIN_TEST_H

#include <gtest/gtest.h>
#include <json/json.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <memory>

#include "FakePlatform.h"
#include "Pause.h"
#include "PlivEngineContentsMgr.h"
#include "PlivTaskContentsMgr.h"
#include "Support/Gate.h"

namespace test {

using namespace fake;
using dorn::CMediaStorage;
using dorn::CPlivEngineContentsMgr;
using dorn::CPlivTaskContentsMgr;
using dorn::MediaType;
using StoragePtr = boost::shared_ptr<CMediaStorage>;
using Strings = std::vector<std::string>;

constexpr const char* kRoot = "/opt/storage/usb";
constexpr const char* kStick = "/opt/storage/usb/sda1";
constexpr const char* kTimeOut = " TimeOut Occured \n";

inline std::string OnStick(const std::string& name) {
    return std::string(kStick) + "/" + name;
}

inline Json::Value Parse(const std::string& text) {
    Json::Value value;
    std::string errors;
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    EXPECT_TRUE(reader->parse(text.data(), text.data() + text.size(), &value, &errors)) << text;
    return value;
}

// A member of every object in an array, in order.
inline Strings Column(const Json::Value& array, const char* key) {
    Strings values;
    for (const Json::Value& element : array) values.push_back(element[key].asString());
    return values;
}

struct Reply {
    bool handled;
    std::string value;  // "untouched" when no return value was set
};

inline Reply Command(CPlivEngineContentsMgr& engine, const std::string& command,
                     const std::string& arg1 = "", const std::string& arg2 = "",
                     const std::string& arg3 = "", const std::string& arg4 = "") {
    Reply reply{false, "untouched"};
    reply.handled = engine.Execute(reply.value, command, arg1, arg2, arg3, arg4);
    return reply;
}

// A task manager within reach, reporting through an engine.
struct Rig {
    CPlivEngineContentsMgr engine;
    CPlivTaskContentsMgr task;
    Rig() { task.SetEngineHandle(&engine); }
};
struct ConnectedRig : Rig {
    ConnectedRig() { EXPECT_TRUE(task.Connect()); }
};

// Looks into a task manager: its storages as they stand without a new discovery.
CPlivTaskContentsMgr::StorageList& StoragesOf(CPlivTaskContentsMgr& task);
GMutex& StorageMutexOf(CPlivTaskContentsMgr& task);

inline void MakeFolder(const std::string& path) {
    std::filesystem::create_directory(path);
}
inline void MakeFile(const std::string& path) {
    std::ofstream(path) << "x";
}

// While it lives, each directory has an entry whose name readdir_r's buffer does not hold. The C
// library leaves such an entry out and returns ENAMETOOLONG at the directory's end.
struct TooLongName {
    TooLongName();
    ~TooLongName();
};

// Starts with an empty platform, on which a pause of the plugin lasts a few milliseconds. At the
// end of each test nothing may be left: no handle, no thread, no USB receiver. Everything that the
// test made must be gone by then, so engines belong into the test's body, not into a fixture's
// members.
class PluginTest : public ::testing::Test {
protected:
    PluginTest();
    void TearDown() override;

    // So many more threads than when the test began; waits for it, false at the deadline.
    bool HasThreads(int count) const;

    // A stick that the database knows.
    void AddStick(const std::string& path = kStick, const std::string& id = "S1") {
        platform.Add(Device{path});
        platform.Add(Storage{id, path});
    }
    void AddPhotos(int count, const std::string& folder = kStick) {
        for (int i = 0; i < count; ++i)
            platform.Add(Item{folder + "/" + std::to_string(i) + ".jpg", {}, i});
    }
    // The storage DISK on disk, whose root the database knows as F1: subfolders a, b and c (and
    // others that never show), so many photos, newest last, and a sound that is older.
    void FillFolder(const TempFolder& folder, int photos) {
        for (const char* name : {"a", ".a", "b", "c", "..x"}) MakeFolder(folder / name);
        MakeFile(folder / "plain");
        std::filesystem::create_symlink(folder / "a", folder / "link");
        platform.Add(Storage{"DISK", folder.Path()});
        platform.Add(Folder{"F1", folder.Path()});
        platform.Add(Folder{"F2", folder / "a"});
        AddPhotos(photos, folder.Path());
        platform.Add(Item{folder / "memo.amr", MEDIA_CONTENT_TYPE_SOUND, -1});
        platform.Add(Item{folder / "plain", MEDIA_CONTENT_TYPE_OTHERS});
        platform.Add(Item{folder / "a/deep.jpg"});
    }
    // Returns when a job is at work in the task manager's worker, which lasts until `jobGate`
    // opens.
    void HoldWorker(CPlivTaskContentsMgr& task) {
        platform.OnCall("media_info_delete_from_db", [this] { jobGate.Wait(); });
        int id = 0;
        EXPECT_TRUE(task.UnregisterContents("S1", {"none"}, id));
        EXPECT_TRUE(jobGate.WaitForGuest());
    }
    Gate jobGate;

    // The payload of the next event of that name.
    Json::Value Await(const std::string& name) {
        return Parse(platform.WaitForEvent(name).payload);
    }

    FakePlatform& platform = FakePlatform::Get();
    int keptRecords = 0;  // clones of media records that are kept on purpose

private:
    int m_threads;
};

}  // namespace test

#endif
