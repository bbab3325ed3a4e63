// What the plugin's tests share.
#ifndef PLUGIN_TEST_H
#define PLUGIN_TEST_H

#include <json/json.h>

#include <filesystem>
#include <fstream>
#include <memory>

#include "FakePlatformTest.h"
#include "Pause.h"
#include "PlivEngineContentsMgr.h"
#include "PlivTaskContentsMgr.h"

namespace test {

using namespace fake;
using dorn::CMediaStorage;
using dorn::CPlivEngineContentsMgr;
using dorn::CPlivTaskContentsMgr;
using dorn::MediaType;
using StoragePtr = boost::shared_ptr<CMediaStorage>;
using Strings = std::vector<std::string>;

constexpr int kTrace = 2;
constexpr int kProgress = 16;
constexpr const char* kRoot = "/opt/storage/usb";
constexpr const char* kStick = "/opt/storage/usb/sda1";
constexpr const char* kAnyMedia =
    " (MEDIA_TYPE = 0 OR MEDIA_TYPE = 1 OR MEDIA_TYPE = 2 OR MEDIA_TYPE = 3) ";

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

// Looks into a task manager: its jobs, and its storages as they stand without a new discovery.
dorn::CSafeQ<dorn::CCMTaskJob>& JobsOf(CPlivTaskContentsMgr& task);
SemphoreCM& JobSemaphoreOf(CPlivTaskContentsMgr& task);
CPlivTaskContentsMgr::StorageList& StoragesOf(CPlivTaskContentsMgr& task);
GMutex& StorageMutexOf(CPlivTaskContentsMgr& task);

// A folder of its own that goes with the test.
class TempFolder {
public:
    TempFolder();
    ~TempFolder() { std::filesystem::remove_all(m_path); }
    const std::string& Path() const { return m_path; }
    std::string operator/(const std::string& name) const { return m_path + "/" + name; }
    void MakeFolder(const std::string& name) { std::filesystem::create_directory(*this / name); }
    void MakeFile(const std::string& name) { std::ofstream(*this / name) << "x"; }

private:
    std::string m_path;
};

// While it lives, each directory has an entry whose name readdir_r's buffer does not hold. The C
// library leaves such an entry out and returns ENAMETOOLONG at the directory's end.
struct TooLongName {
    TooLongName();
    ~TooLongName();
};

// A pause of the plugin lasts a few milliseconds here.
class PluginTest : public PlatformTest {
protected:
    PluginTest() { dorn::SetPauseUnit(std::chrono::milliseconds(5)); }

    void TearDown() override {
        for (const Event& event : platform.Events())
            EXPECT_EQ(event.kind, event.name.find("USB_") == 0 ? 0 : 1) << event.name;
        PlatformTest::TearDown();
    }

    // A stick that the database knows.
    void AddStick(const std::string& path = kStick, const std::string& id = "S1") {
        platform.Add(Stick(path));
        platform.Add(Storage{id, path});
    }
    void AddPhotos(int count, const std::string& folder = kStick) {
        for (int i = 0; i < count; ++i)
            platform.Add(Photo(folder + "/" + std::to_string(i) + ".jpg", i));
    }
    // Returns when a job is at work in the task manager's worker, which lasts until `jobGate`
    // opens.
    void HoldWorker(CPlivTaskContentsMgr& task) {
        platform.OnCall("media_info_delete_from_db", [this] { jobGate.Wait(); });
        int id = 0;
        EXPECT_TRUE(task.UnregisterContents("S1", {"none"}, id));
        EXPECT_TRUE(jobGate.WaitForArrival());
    }
    Gate jobGate;

    // The payload of the next event of that name.
    Json::Value Await(const std::string& name) {
        return Parse(platform.WaitForEvent(name).payload);
    }
};

}  // namespace test

#endif
