// The whole platform as one script: a test describes what is there, says which call fails, fires
// the platform's callbacks, and reads back what was called, logged and sent.
#ifndef FAKE_PLATFORM_H
#define FAKE_PLATFORM_H

#include <condition_variable>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "MediaContent.h"
#include "PlivHost.h"
#include "Support/Basics.h"
#include "UsbDevice.h"

namespace fake {

// ---- what a test puts in: plain descriptions, copied. An empty text is a null pointer to whoever
// asks. -------------------------------------------------------------------------------------------

// One media item. Its storage is the one whose path it lies below, its folder the one that its
// path names.
struct Item {
    std::string path;
    media_content_type_e type = MEDIA_CONTENT_TYPE_IMAGE;
    time_t added = 0;
    std::string id{};  // empty: the platform makes one
    unsigned long long size = 0;
    time_t modified = 0;

    std::string Name() const { return path.substr(path.rfind('/') + 1); }
    std::string Folder() const { return path.substr(0, path.rfind('/')); }
};

struct Folder {
    std::string id;
    std::string path;
};

struct Storage {
    std::string id;
    std::string path;
    int scanStatus = MEDIA_STORAGE_SCAN_COMPLETE;
    int fromListing = 1;  // the listing of storages, counted from 1, in which it first shows up
};

// One USB device: of itself, a stick.
struct Device {
    std::string mountPath = "n/a";
    int deviceClass = USB_CLASS_MASS_STORAGE;
    int bus = 1;
    int address = 2;
    std::string product = "Model";
    std::string manufacturer = "Maker";
    std::string serial = "S-1";
    std::string partlabel = "LABEL";
    int fstype = FSTYPE_VFAT;
};

inline Device Camera(int bus, int address) {
    return {"n/a", USB_CLASS_STILL_IMAGE, bus, address, "Camera"};
}

// One change of the database, as the platform reports it: of itself, the end of a scan.
struct DbUpdate {
    std::string path;
    int error = MEDIA_CONTENT_ERROR_NONE;
    int item = MEDIA_CONTENT_ITEM_DIRECTORY;
    int update = MEDIA_CONTENT_UPDATE;
    int media = MEDIA_CONTENT_TYPE_OTHERS;
    std::string mime{};
};

// ---- what has happened
// ---------------------------------------------------------------------------

// One event sent to a client.
struct Event {
    const dorn::CPlivEngineBase* engine = nullptr;
    int kind = -1;
    std::string name;
    std::string payload;
    bool taken = false;  // handed out by WaitForEvent
};

struct Filter {
    std::string storage, condition, orderKey;
    int order = -1;  // -1: never set, here and below
    int offset = -1;
    int count = -1;
};

// Base of everything that a seam call hands out.
struct Handle {
    virtual ~Handle() = default;
    bool borrowed = false;  // ends with a callback or its list; nobody may give it back
};

// What one test has put in and what has happened since.
struct Script {
    std::vector<Storage> storages;
    std::vector<Folder> folders;
    std::vector<Item> items;
    std::vector<Item> files;
    std::vector<Device> devices;
    int nextId = 1;
    int storageListings = 0;
    int connections = 0;
    int usbUsers = 0;

    struct Fault {
        std::string function;
        int countdown;  // 0: every call
        int error;
    };
    std::vector<Fault> faults;
    std::map<std::string, std::function<void()>> hooks;
    std::map<std::string, int> calls;

    std::unordered_map<const void*, std::unique_ptr<Handle>> live;

    size_t held = 0;  // by the engines
    size_t mayHold = SIZE_MAX;

    std::vector<std::string> log;
    std::vector<Event> events;
    std::function<void(const Event&)> observer;

    std::vector<std::pair<usb_connected_cb, void*>> usbReceivers;
    std::vector<std::pair<media_content_db_updated_cb, void*>> dbReceivers;
    std::vector<std::function<void()>> posted;  // for the default main context, oldest first

    bool scansFoldersLater = false;
    std::vector<std::pair<media_scan_completed_cb, void*>> folderScans;
};

// All operations may be called from any thread. No callback, hook or event observer is called
// with the platform's own lock held, so each may call the platform again.
class FakePlatform {
public:
    // The one platform of the process.
    static FakePlatform& Get();

    // Back to an empty, faultless platform. Pending folder scans are answered as cancelled;
    // receivers are forgotten and what is still alive is freed.
    void Reset();

    // ---- what is there ----
    void Add(Storage storage) { Lock()->storages.push_back(std::move(storage)); }
    void Add(Folder folder) { Lock()->folders.push_back(std::move(folder)); }
    void Add(Device device) { Lock()->devices.push_back(std::move(device)); }
    void Add(Item item);
    void SetScanStatus(const std::string& storageId, int status);
    // The file is there for media_info_insert_to_db; any other path is NOT_FOUND.
    void AddFile(Item item) { Lock()->files.push_back(std::move(item)); }
    // A record of its own, given back with media_info_destroy.
    media_info_s* MakeRecord(Item item);

    // ---- faults and hooks ----
    // The nth call of `function` from now on fails with `error`; every one with nth 0. A failing
    // call does nothing else, but one that gives something back has done so all the same (except
    // media_content_disconnect and usb_device_fini).
    void Fail(const std::string& function, int nth, int error = MEDIA_CONTENT_ERROR_DB_BUSY) {
        Lock()->faults.push_back({function, nth, error});
    }
    void FailNoMore() { Lock()->faults.clear(); }
    // Runs at the start of each call of `function`, on the calling thread; may block or throw.
    void OnCall(const std::string& function, std::function<void()> hook) {
        Lock()->hooks[function] = std::move(hook);
    }

    // ---- what was called ----
    int CallCount(const std::string& function) const { return Lock()->calls[function]; }
    std::map<std::string, int> Calls() const { return Lock()->calls; }
    void ForgetCalls() { Lock()->calls.clear(); }
    // Connects less disconnects, inits less finis.
    int Connections() const { return Lock()->connections; }
    int UsbUsers() const { return Lock()->usbUsers; }
    int UsbReceivers() const { return static_cast<int>(Lock()->usbReceivers.size()); }
    int DbReceivers() const { return static_cast<int>(Lock()->dbReceivers.size()); }
    // Handles not given back. One that is given back twice or used afterwards ends the test program
    // with a message.
    int LiveHandles() const;

    // ---- what engines hold for their clients ----
    void LetHold(size_t bytes) { Lock()->mayHold = bytes; }  // all together
    size_t HeldBytes() const { return Lock()->held; }

    // ---- the log: messages without the place that they come from ----
    int CountLog(const std::string& message) const;
    // Waits until the message was logged `times` times; false at the deadline.
    bool WaitForLog(const std::string& message, int times = 1);
    void ForgetLog() { Lock()->log.clear(); }

    // ---- events ----
    std::vector<Event> Events() const { return Lock()->events; }
    int CountEvents(const std::string& name) const;
    // Waits for an event of that name that was not handed out yet, sent by `engine` if one is
    // named. At the deadline: a test failure and an empty event.
    Event WaitForEvent(const std::string& name, const dorn::CPlivEngineBase* engine = nullptr);
    // Runs inside every SendEvent, on the sending thread, after the event was recorded.
    void OnEvent(std::function<void(const Event&)> observer) {
        Lock()->observer = std::move(observer);
    }

    // ---- the platform's callbacks ----
    // On the calling thread, to every receiver of the moment; returns when all have run.
    void FireUsb(const Device& device, const char* action);
    void FireDbUpdate(const DbUpdate& update);
    // On whichever thread runs the default main context; returns at once.
    void PostUsb(const Device& device, const std::string& action);
    void PostDbUpdate(const DbUpdate& update);
    // Folder scans are answered inside the call, or wait from now on for the other function. How
    // they have ended is told as CANCELLED, which nobody is to mind.
    void ScanFoldersLater() { Lock()->scansFoldersLater = true; }
    int CompleteFolderScans();  // how many there were

private:
    friend struct Seam;  // the seam's functions

    // The script for as long as this lives, which nobody else has meanwhile.
    class Locked {
    public:
        explicit Locked(FakePlatform& platform) : lock(platform.m_mutex), m_platform(platform) {}
        Script* operator->() const { return &m_platform.m_script; }
        Script& operator*() const { return m_platform.m_script; }
        // Waits, letting others have it, until `reached`; false at the deadline.
        bool Wait(const std::function<bool()>& reached) {
            return m_platform.m_changed.wait_for(lock, test::kDeadline, reached);
        }
        std::unique_lock<std::mutex> lock;

    private:
        FakePlatform& m_platform;
    };
    Locked Lock() const { return Locked(Get()); }

    FakePlatform() = default;
    ~FakePlatform() = delete;

    struct Running {
        std::pair<usb_connected_cb, void*> receiver;
        std::thread::id thread;
    };
    std::mutex m_mutex;  // guards what follows
    std::condition_variable m_changed;
    Script m_script;
    std::list<Running> m_running;  // USB receivers inside a notification
};

}  // namespace fake

#endif
