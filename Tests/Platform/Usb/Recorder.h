// What the USB service tells, in the order in which it tells it: the media database through a
// stand-in, and a receiver behind the seam.
#ifndef TESTS_PLATFORM_USB_RECORDER_H
#define TESTS_PLATFORM_USB_RECORDER_H

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "MediaContent/MediaService.h"
#include "UsbDevice.h"
#include "UsbDevice/UsbService.h"

// One journal for the process. Its lines:
//   db+ PATH          the database was told of a mounted storage
//   db- PATH          ... of one that went
//   changed PATH      ... of a change at that path
//   anything on PATH  ... of changes on a storage that could be anywhere
//   held PATH         ... of changes, and does not return yet
//   ACTION NAME       a receiver was told; NAME is the last part of the mount path, else the
//   product
class Journal {
public:
    static Journal& Instance();

    void Add(const std::string& line);
    std::vector<std::string> Lines();
    void Clear();

    // Waits until the condition holds for the lines; false after ten seconds, with the lines as a
    // test failure.
    bool WaitUntil(const std::function<bool(const std::vector<std::string>&)>& condition);
    bool WaitFor(const std::string& line);

    // While set, StorageMounted and StorageContentChanged do not return.
    std::atomic<bool> holdStorageMounted{false};
    std::atomic<bool> holdContentChanged{false};

    std::map<std::string, platform::MountedStorage> Storages();
    void SetStorage(const platform::MountedStorage& storage);

private:
    std::mutex m_mutex;
    std::condition_variable m_added;
    std::vector<std::string> m_lines;
    std::map<std::string, platform::MountedStorage> m_storages;
};

// Runs the default main context, as the plugin's watchers do.
class MainLoop {
public:
    MainLoop();
    ~MainLoop();

private:
    std::atomic<bool> m_ending{false};
    std::thread m_thread;
};

// A device as it comes through the seam.
struct Seen {
    std::string name, vendor, product, serial, mountPath, label;
    int vendorId = -1, address = -1, bus = -1, deviceClass = -1, protocol = -1, number = -1;
    int diskType = -1, fileSystem = -1;
};
Seen Read(usb_device_s* device);
std::vector<Seen> ListDevices(int deviceClass);
std::string NameOf(const Seen& device);

// A receiver that writes what it hears into the journal.
void RecordChange(usb_device_s* device, char* action, void* userData);

// Threads of the service: each has a name of its own.
int CountServiceThreads();
int CountDescriptors();

// Looks until the condition holds; false after ten seconds.
bool Eventually(const std::function<bool()>& condition);

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
    static bool WaitFor(const std::string& line) { return Journal::Instance().WaitFor(line); }
    static std::vector<std::string> Lines() { return Journal::Instance().Lines(); }

    std::filesystem::path folder;  // holds the root, and whatever else a test needs
    std::filesystem::path root;
    std::string mountTable = "/proc/self/mountinfo";

private:
    std::unique_ptr<MainLoop> m_loop;
    int m_descriptors = 0;
};

#endif
