// What the USB service tells, in the order in which it tells it: the media database through a
// stand-in, and a receiver behind the seam.
#ifndef TESTS_PLATFORM_USB_RECORDER_H
#define TESTS_PLATFORM_USB_RECORDER_H

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "MediaContent/MediaService.h"
#include "Support/Basics.h"
#include "UsbDevice.h"
#include "UsbDevice/UsbService.h"

using Strings = std::vector<std::string>;

// One journal for the process. Its lines:
//   db+ PATH          the database was told of a mounted storage
//   db- PATH          ... of one that went
//   changed PATH      ... of a change at that path
//   anything on PATH  ... of changes on a storage that could be anywhere
//   held PATH         ... of a storage or of changes, and does not return yet
//   ACTION NAME       a receiver was told; NAME is the last part of the mount path, else the
//   product
class Journal {
public:
    static Journal& Instance();

    void Add(const std::string& line);
    Strings Lines();
    void Clear();

    // Waits until the journal holds any of the lines, or one of them so often; false at the
    // deadline, with what it holds as a test failure.
    bool WaitForAny(const Strings& lines, int times = 1);

    // While set, StorageMounted and StorageContentChanged do not return.
    std::atomic<bool> holdStorageMounted{false};
    std::atomic<bool> holdContentChanged{false};

    platform::MountedStorage StorageAt(const std::string& path);  // as the database was told
    void SetStorage(const platform::MountedStorage& storage);
    // Whether this is the scan that each storage has once it is told of: it has no line.
    bool TakeFirstScan(const std::string& path);

private:
    std::mutex m_mutex;
    std::condition_variable m_added;
    Strings m_lines;  // these are guarded by m_mutex
    std::map<std::string, platform::MountedStorage> m_storages;
    std::set<std::string> m_unscanned;
};

// All that the seam tells of the devices of a class, a line each:
//   NODE VENDOR/PRODUCT/SERIAL "LABEL" VENDOR-ID BUS:ADDRESS CLASS.PROTOCOL #PARTITION
//   disk TYPE fs TYPE at MOUNT-PATH
Strings ListDevices(int deviceClass = USB_CLASS_ALL);

// The last part of the mount path, or the product of a device without one.
std::string NameOf(usb_device_s* device);

// A receiver that writes what it hears into the journal.
void RecordChange(usb_device_s* device, char* action, void* userData);

// Runs the default main context, as the plugin's watchers do.
class MainLoop {
public:
    MainLoop();
    ~MainLoop();

private:
    std::atomic<bool> m_ending{false};
    std::thread m_thread;
};

// A folder of its own, the service over it while the test runs, and the proof at the end that
// nothing of it is left.
class UsbTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // Starts the service, with RecordChange as a receiver.
    void Start(platform::UsbBackEnd backEnd = platform::UsbBackEnd::Directory);
    std::string PathOf(const std::string& name) const { return (root / name).string(); }
    void WriteFile(const std::string& name, const std::string& content);
    void MakeFolders(const Strings& names);
    static bool WaitFor(const std::string& line, int times = 1) {
        return Journal::Instance().WaitForAny({line}, times);
    }
    bool SawChange(const std::string& name) { return WaitFor("changed " + PathOf(name)); }
    // A change of the file, or of the folder when its watch came after the file.
    bool SawChangeIn(const std::string& folder, const std::string& file);
    static Strings Lines() { return Journal::Instance().Lines(); }
    platform::MountedStorage StorageAt(const std::string& name) const {
        return Journal::Instance().StorageAt(PathOf(name));
    }

    test::TempFolder temporary;
    const std::filesystem::path folder =
        temporary.Path();  // holds the root and what else is needed
    std::filesystem::path root = folder / "usb";
    std::string mountTable = "/proc/self/mountinfo";

private:
    std::unique_ptr<MainLoop> m_loop;
    int m_descriptors = 0;
};

#endif
