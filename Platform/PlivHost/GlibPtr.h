// Smart pointers for GLib's reference-counted types.
#ifndef PLATFORM_PLIV_HOST_GLIB_PTR_H
#define PLATFORM_PLIV_HOST_GLIB_PTR_H

#include <gio/gio.h>

#include <memory>
#include <string>

namespace platform {

template <auto Release>
struct ReleaseWith {
    template <typename T>
    void operator()(T* thing) const {
        Release(thing);
    }
};

template <typename T>
using ObjectPtr = std::unique_ptr<T, ReleaseWith<g_object_unref>>;
using VariantPtr = std::unique_ptr<GVariant, ReleaseWith<g_variant_unref>>;
using NodeInfoPtr = std::unique_ptr<GDBusNodeInfo, ReleaseWith<g_dbus_node_info_unref>>;
using ContextPtr = std::unique_ptr<GMainContext, ReleaseWith<g_main_context_unref>>;
using LoopPtr = std::unique_ptr<GMainLoop, ReleaseWith<g_main_loop_unref>>;
using TextPtr = std::unique_ptr<char, ReleaseWith<g_free>>;

// Adds a reference to `thing` and owns it.
template <typename T>
ObjectPtr<T> Share(T* thing) {
    return ObjectPtr<T>(thing ? static_cast<T*>(g_object_ref(thing)) : nullptr);
}

// A source attached to some context; detached and released on destruction.
struct DetachSource {
    void operator()(GSource* source) const {
        g_source_destroy(source);
        g_source_unref(source);
    }
};
using SourcePtr = std::unique_ptr<GSource, DetachSource>;

// Receives the GError of one call: SomeCall(..., error.Out()). Out clears it, so it can be reused.
class ErrorSlot {
public:
    ErrorSlot() = default;
    ~ErrorSlot() { g_clear_error(&m_error); }
    ErrorSlot(const ErrorSlot&) = delete;
    ErrorSlot& operator=(const ErrorSlot&) = delete;

    GError** Out() {
        g_clear_error(&m_error);
        return &m_error;
    }
    explicit operator bool() const { return m_error != nullptr; }
    std::string Text() const { return m_error ? m_error->message : "no error given"; }
    bool Is(GQuark domain, int code) const { return g_error_matches(m_error, domain, code); }

private:
    GError* m_error = nullptr;
};

}  // namespace platform

#endif
