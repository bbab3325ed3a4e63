// Inside the scripted platform: its state, its handles and what every seam function does.
#ifndef FAKE_PLATFORM_SEAM_H
#define FAKE_PLATFORM_SEAM_H

#include <cstdlib>
#include <cstring>
#include <unordered_map>

#include "FakePlatform.h"

namespace fake {

struct Handle {
    explicit Handle(const char* kindName) : kind(kindName) {}
    virtual ~Handle() = default;
    const char* kind;
    bool borrowed = false;  // ends with a callback or its list; nobody may give it back
};

struct StorageHandle : Handle {
    explicit StorageHandle(Storage s) : Handle("storage"), storage(std::move(s)) {}
    Storage storage;
};

}  // namespace fake

struct media_info_s : fake::Handle {
    explicit media_info_s(fake::Item i) : Handle("media"), item(std::move(i)) {}
    fake::Item item;
};
struct media_folder_s : fake::Handle {
    explicit media_folder_s(fake::Folder f) : Handle("folder"), folder(std::move(f)) {}
    fake::Folder folder;
};
struct media_filter_s : fake::Handle {
    media_filter_s() : Handle("filter") {}
    fake::Filter filter;
};
struct audio_meta_s : fake::Handle {
    explicit audio_meta_s(fake::Item i) : Handle("audio"), item(std::move(i)) {}
    fake::Item item;
};
struct image_meta_s : fake::Handle {
    explicit image_meta_s(fake::Item i) : Handle("image"), item(std::move(i)) {}
    fake::Item item;
};
struct video_meta_s : fake::Handle {
    explicit video_meta_s(fake::Item i) : Handle("video"), item(std::move(i)) {}
    fake::Item item;
};
struct usb_device_s : fake::Handle {
    explicit usb_device_s(fake::Device d) : Handle("device"), device(std::move(d)) {}
    fake::Device device;
};
struct usb_device_list_s : fake::Handle {
    usb_device_list_s() : Handle("device list") {}
    std::vector<usb_device_s*> devices;
    size_t next = 0;
};

namespace fake {

struct FakePlatform::State {
    mutable std::mutex mutex;  // guards everything below
    std::condition_variable changed;

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
    std::vector<std::string> calls;
    std::vector<Use> uses;

    // Handles given back stay allocated until Reset, so that no address comes twice in a test.
    std::unordered_map<const void*, std::unique_ptr<Handle>> live;
    std::unordered_map<const void*, std::unique_ptr<Handle>> dead;

    std::vector<LogLine> log;
    std::vector<Event> events;
    std::vector<bool> taken;  // beside `events`
    std::function<void(const Event&)> observer;

    using UsbReceiver = std::pair<usb_connected_cb, void*>;
    struct Running {
        UsbReceiver receiver;
        std::thread::id thread;
    };
    std::vector<UsbReceiver> usbReceivers;
    std::list<Running> running;
    std::vector<std::pair<media_content_db_updated_cb, void*>> dbReceivers;
    std::vector<std::function<void()>> posted;  // for the default main context, oldest first

    FolderScan folderScan = FolderScan::AtOnce;
    media_content_error_e folderScanResult = MEDIA_CONTENT_ERROR_NONE;
    std::vector<std::pair<media_scan_completed_cb, void*>> folderScans;
    std::vector<std::thread> scanThreads;

    int plivMainStatus = 0;
    bool plivMainMakesEngine = false;
    int madeEngines = 0;
    dorn::CPlivAppBase* app = nullptr;
};

[[noreturn]] void Die(const char* call, const std::string& what);

struct Seam {
    using State = FakePlatform::State;
    static State& Script() { return *FakePlatform::Get().m_state; }

    // Records the call, runs its hook, and answers the error that it is to fail with, or 0.
    static int Enter(const char* call);
    // The same for calls that need a media connection.
    static int EnterConnected(const char* call);

    // Files a new handle.
    template <typename T>
    static T* Keep(T* handle, bool borrowed = false) {
        std::lock_guard<std::mutex> lock(Script().mutex);
        handle->borrowed = borrowed;
        Script().live.emplace(handle, std::unique_ptr<Handle>(handle));
        return handle;
    }
    // The live handle behind a pointer; null for null. Anything else ends the program.
    template <typename T>
    static T* Use(const char* call, const void* pointer) {
        std::lock_guard<std::mutex> lock(Script().mutex);
        T* handle = dynamic_cast<T*>(FindLive(call, pointer));
        if (pointer && !handle) Die(call, "was given a handle of another kind");
        return handle;
    }
    // Ends a handle: by its owner, or by the platform when it was borrowed.
    static void End(const char* call, const void* pointer, bool byPlatform = false);

    // A destroy function: counts as done even when it is scripted to fail.
    template <typename T>
    static int Destroy(const char* call, const void* pointer, int whenNull) {
        const int error = Enter(call);
        if (!Use<T>(call, pointer)) return error ? error : whenNull;
        End(call, pointer);
        return error;
    }

    // A getter of one field. `read` maps the handle to something assignable to *out.
    template <typename T, typename Out, typename Read>
    static int Get(const char* call, const void* pointer, Out* out, Read read) {
        const int error = Enter(call);
        T* handle = Use<T>(call, pointer);
        if (error) return error;
        if (!handle || !out) return MEDIA_CONTENT_ERROR_INVALID_PARAMETER;
        Give(out, read(*handle));
        return 0;
    }

    static void Give(char** out, const Text& text) {
        *out = text ? strdup(text->c_str()) : nullptr;
    }
    template <typename Out, typename Value>
    static void Give(Out* out, const Value& value) {
        *out = static_cast<Out>(value);
    }

    // Calls `callback` with a borrowed handle for each record until it answers false.
    template <typename T, typename Record, typename Callback>
    static void ForEach(const char* call, const std::vector<Record>& records, Callback callback,
                        void* userData) {
        for (const Record& record : records) {
            T* handle = Keep(new T(record), true);
            const bool more = callback(handle, userData);
            End(call, handle, true);
            if (!more) break;
        }
    }

    static void Post(std::function<void()> what);

private:
    static Handle* FindLive(const char* call, const void* pointer);
};

}  // namespace fake

#endif
