// An object exported on one D-Bus connection for the lifetime of this C++ object.
#ifndef PLATFORM_PLIV_HOST_EXPORTED_OBJECT_H
#define PLATFORM_PLIV_HOST_EXPORTED_OBJECT_H

#include <memory>

#include "PlivHost/GlibPtr.h"

namespace platform {

// Created and destroyed on the host thread, where its calls also arrive: no call arrives after its
// destruction, so `data`, the user data of the calls, is destroyed with it. Left to GDBus, `data`
// would be freed later, on a loop that may have ended by then.
class ExportedObject {
public:
    ExportedObject(GDBusConnection* connection, const char* path, GDBusInterfaceInfo* interface,
                   const GDBusInterfaceVTable& vtable, std::shared_ptr<void> data);
    ~ExportedObject();
    ExportedObject(const ExportedObject&) = delete;
    ExportedObject& operator=(const ExportedObject&) = delete;

    // False when the connection refused the object; the log says why.
    bool IsThere() const { return m_registration != 0; }

private:
    const ObjectPtr<GDBusConnection> m_connection;
    const std::shared_ptr<void> m_data;
    guint m_registration = 0;
};

}  // namespace platform

#endif
