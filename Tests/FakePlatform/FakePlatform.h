// The whole platform as one script: a test describes what is there, says which call fails, fires
// the platform's callbacks, and reads back what was called, logged and sent.
#ifndef FAKE_PLATFORM_H
#define FAKE_PLATFORM_H

#include <chrono>
#include <condition_variable>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Descriptions.h"
#include "PlivHost.h"

namespace fake {

constexpr std::chrono::seconds kDeadline{30};  // of every wait; only a broken test gets there

// One line of the log, taken apart.
struct LogLine {
    int priority = 0;
    std::string tag;
    std::string format;
    std::string text;  // as it was formatted
    std::string file;  // the three fields of the prefix
    std::string function;
    int line = 0;
    std::string message;  // what follows the prefix
};

// One event sent to a client.
struct Event {
    const dorn::CPlivEngineBase* engine = nullptr;
    int kind = -1;
    std::string name;
    std::string payload;
};

// What a filter held when a count or listing used it.
struct Filter {
    Text storage, condition, orderKey;
    int collation = -1;  // -1: never set, here and below
    int order = -1;
    int orderCollation = -1;
    int offset = -1;
    int count = -1;
};
struct Use {
    std::string call;
    std::string folderId;
    Filter filter;
};

// When the service answers media_content_scan_folder's callback.
enum class FolderScan {
    AtOnce,         // inside the call
    OnOtherThread,  // at once, on a thread of its own
    Later,          // when CompleteFolderScans is called; at the latest with the next Reset
};

struct Handle;  // base of everything that a seam call hands out

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
    void Add(Storage storage);
    void Add(Folder folder);
    void Add(Device device);
    void Add(Item item);
    void RemoveDevices();
    void SetScanStatus(const std::string& storageId, int status);
    // The file is there for media_info_insert_to_db; any other path is NOT_FOUND.
    void AddFile(Item item);

    // A record of its own, given back with media_info_destroy or media_folder_destroy.
    media_info_s* MakeRecord(Item item);
    media_folder_s* MakeRecord(Folder folder);

    // ---- faults and hooks ----
    // The nth call of `function` from now on fails with `error`; every one with nth 0. A failing
    // call does nothing else, but one that gives something back has done so all the same (except
    // media_content_disconnect and usb_device_fini).
    void Fail(const std::string& function, int nth, int error);
    void FailNoMore();
    // Runs at the start of each call of `function`, on the calling thread; may block or throw.
    void OnCall(const std::string& function, std::function<void()> hook);

    // ---- what was called ----
    std::vector<std::string> Calls() const;  // every function's name, in order
    int CallCount(const std::string& function) const;
    void ForgetCalls();
    std::vector<Use> Uses(const std::string& function) const;  // of a count or listing
    int Connections() const;  // media_content_connect less media_content_disconnect
    int UsbUsers() const;     // usb_device_init less usb_device_fini
    int UsbReceivers() const;
    int DbReceivers() const;
    // Handles not given back, by kind: "filter", "media", "folder", "storage", "audio", "image",
    // "video", "device list", "device". Kinds without any are absent. A handle given back twice
    // or used afterwards ends the test program with a message.
    std::map<std::string, int> LiveHandles() const;

    // ---- the log ----
    std::vector<LogLine> Log() const;
    std::vector<std::string> Messages(int priority = 0) const;  // 0: of every priority
    bool HasLog(const std::string& message) const;
    bool HasLog(int priority, const std::string& message) const;
    int CountLog(const std::string& message) const;
    // Waits until the message was logged `times` times; false at the deadline.
    bool WaitForLog(const std::string& message, int times = 1);
    void ForgetLog();

    // ---- events ----
    std::vector<Event> Events() const;
    int CountEvents(const std::string& name) const;
    // Waits for an event of that name that was not handed out yet, sent by `engine` if one is
    // named. At the deadline: a test failure and an empty event.
    Event WaitForEvent(const std::string& name, const dorn::CPlivEngineBase* engine = nullptr,
                       std::chrono::milliseconds deadline = kDeadline);
    // Runs inside every SendEvent, on the sending thread, after the event was recorded.
    void OnEvent(std::function<void(const Event&)> observer);

    // ---- the platform's callbacks ----
    // On the calling thread, to every receiver of the moment; returns when all have run.
    void FireUsb(const Device& device, const char* action);
    void FireDbUpdate(const DbUpdate& update);
    // On whichever thread runs the default main context; returns at once.
    void PostUsb(const Device& device, const std::string& action);
    void PostDbUpdate(const DbUpdate& update);
    void SetFolderScan(FolderScan when, media_content_error_e result = MEDIA_CONTENT_ERROR_NONE);
    // Answers every folder scan that waits; how many there were.
    int CompleteFolderScans(media_content_error_e result = MEDIA_CONTENT_ERROR_NONE);

    // ---- the host ----
    // What PlivMain returns, and whether it first has the application make one engine.
    void SetPlivMain(int status, bool makesEngine);
    dorn::CPlivAppBase* LastApp() const;  // what PlivMain was given
    int MadeEngines() const;              // by PlivMain

private:
    friend struct Seam;  // the seam's functions
    struct State;
    FakePlatform();
    ~FakePlatform() = delete;
    std::unique_ptr<State> m_state;
};

// Something that a hook waits at until the test opens it; a test that fails before it does gives
// up at the deadline.
class Gate {
public:
    void Open();
    // Waits until open. From then on Arrived() is true.
    void Wait();
    // Waits until somebody is, or was, at the gate.
    bool WaitForArrival();

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_open = false;
    bool m_arrived = false;
};

}  // namespace fake

#endif
