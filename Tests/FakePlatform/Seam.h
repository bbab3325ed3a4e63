// Inside the scripted platform: its handles and what every seam function does.
#ifndef FAKE_PLATFORM_SEAM_H
#define FAKE_PLATFORM_SEAM_H

#include <algorithm>
#include <cstring>
#include <type_traits>

#include "FakePlatform.h"

namespace fake {

// What a getter of that type gives.
template <typename T>
using ValueOf = std::conditional_t<std::is_pointer_v<T>, std::string, T>;

// A handle of one record, which it holds as a copy.
template <typename T>
struct Of : Handle {
    explicit Of(T r) : record(std::move(r)) {}
    T record;
};

}  // namespace fake

struct media_info_s : fake::Of<fake::Item> {
    using Of::Of;
};
struct audio_meta_s : fake::Of<fake::Item> {
    using Of::Of;
};
struct image_meta_s : fake::Of<fake::Item> {
    using Of::Of;
};
struct video_meta_s : fake::Of<fake::Item> {
    using Of::Of;
};
struct media_folder_s : fake::Of<fake::Folder> {
    using Of::Of;
};
struct media_storage_s : fake::Of<fake::Storage> {
    using Of::Of;
};
struct usb_device_s : fake::Of<fake::Device> {
    using Of::Of;
};
struct media_filter_s : fake::Handle {
    fake::Filter filter;
};
struct usb_device_list_s : fake::Handle {
    std::vector<usb_device_s*> devices;
    size_t next = 0;
};

namespace fake {

// What a call needs to have been called before.
enum class Needs { Nothing, Media, Usb };

[[noreturn]] void Die(const char* call, const std::string& what);

struct Seam {
    static FakePlatform::Locked Lock() { return FakePlatform::Get().Lock(); }
    static void Announce() { FakePlatform::Get().m_changed.notify_all(); }
    static std::list<FakePlatform::Running>& Running() { return FakePlatform::Get().m_running; }

    // Records the call, runs its hook, and answers the error that it is to fail with, or 0.
    static int Enter(const char* call, Needs needs = Needs::Nothing);

    // A call that only reads or changes the script: `body` does, when the call is not to fail.
    template <typename Body>
    static int Run(const char* call, Needs needs, Body body) {
        if (const int error = Enter(call, needs)) return error;
        const auto script = Lock();
        return body(*script);
    }

    // Files a new handle.
    template <typename T>
    static T* Keep(T* handle, bool borrowed = false) {
        handle->borrowed = borrowed;
        Lock()->live.emplace(handle, std::unique_ptr<Handle>(handle));
        return handle;
    }
    // The live handle behind a pointer; null for null. Anything else ends the program.
    template <typename T>
    static T* Use(const char* call, const void* pointer) {
        const auto script = Lock();
        T* handle = dynamic_cast<T*>(FindLive(*script, call, pointer));
        if (pointer && !handle) Die(call, "was given a handle of another kind");
        return handle;
    }
    // Ends a handle: by its owner, or by the platform when it was borrowed.
    static void End(const char* call, const void* pointer, bool byPlatform = false);

    // A destroy function: counts as done even when it is scripted to fail.
    template <typename T>
    static int Destroy(const char* call, const void* pointer) {
        const int error = Enter(call);
        if (!Use<T>(call, pointer)) return error ? error : MEDIA_CONTENT_ERROR_INVALID_PARAMETER;
        End(call, pointer);
        return error;
    }

    // A call on one handle: `body` does what it does.
    template <typename T, typename Body>
    static int With(const char* call, const void* pointer, Body body) {
        const int error = Enter(call);
        T* handle = Use<T>(call, pointer);
        if (error) return error;
        return handle ? body(*handle) : MEDIA_CONTENT_ERROR_INVALID_PARAMETER;
    }

    // A new handle of what another one holds.
    template <typename T, typename Made = T, typename Out>
    static int Clone(const char* call, Out* out, const void* source) {
        return With<T>(call, source, [=](T& handle) {
            *out = Keep(new Made(handle.record));
            return 0;
        });
    }

    // A getter of one field. `read` maps the handle to something assignable to *out.
    template <typename T, typename Out, typename Read>
    static int Get(const char* call, const void* pointer, Out* out, Read read) {
        return With<T>(call, pointer, [=](T& handle) {
            if (!out) return static_cast<int>(MEDIA_CONTENT_ERROR_INVALID_PARAMETER);
            Give(out, read(handle));
            return 0;
        });
    }
    static void Give(char** out, const std::string& text) {
        *out = text.empty() ? nullptr : strdup(text.c_str());
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

    // Registers a receiver, once however often it is set.
    template <typename Receiver>
    static int SetReceiver(const char* call, std::vector<Receiver> Script::*receivers,
                           Receiver receiver) {
        return Run(call, Needs::Nothing, [=](Script& script) {
            auto& all = script.*receivers;
            if (std::find(all.begin(), all.end(), receiver) == all.end()) all.push_back(receiver);
            Announce();
            return 0;
        });
    }

    static void Post(std::function<void()> what);

private:
    static Handle* FindLive(Script& script, const char* call, const void* pointer);
};

}  // namespace fake

// Defines the seam's getter of one value of the record behind a handle, which the seam may know by
// another type.
// NOLINTBEGIN(bugprone-macro-parentheses): names of types
#define FAKE_GETTER_OF(known, handle, function, type, value)                                    \
    int function(known* from, type* out) {                                                      \
        return fake::Seam::Get<handle>(__func__, from, out,                                     \
                                       []([[maybe_unused]] const handle& h) { return value; }); \
    }
// NOLINTEND(bugprone-macro-parentheses)
#define FAKE_GETTER(handle, function, type, field) \
    FAKE_GETTER_OF(handle, handle, function, type, h.record.field)
// ... of one that no test scripts: an empty text, or 0.
#define FAKE_NOTHING(handle, function, type) \
    FAKE_GETTER_OF(handle, handle, function, type, fake::ValueOf<type>())

#endif
