// One object on one D-Bus connection, there for as long as this one lives.
#ifndef PLATFORM_PLIV_HOST_EXPORTED_OBJECT_H
#define PLATFORM_PLIV_HOST_EXPORTED_OBJECT_H

#include <memory>

#include "PlivHost/GlibPtr.h"

namespace platform {

// Made and destroyed on the host thread, where its calls arrive too: none comes after its end,
// so `data`, which the calls are handed as their user data, ends with it. GDBus would rather
// free it later, on a loop that may have ended by then.
class ExportedObject {
public:
    ExportedObject(GDBusConnection* connection, const char* path, GDBusInterfaceInfo* interface,
                   const GDBusInterfaceVTable& vtable, std::shared_ptr<void> data);
    ~ExportedObject();
    ExportedObject(const ExportedObject&) = delete;
    ExportedObject& operator=(const ExportedObject&) = delete;

    // False: the connection would not have it; the log says why.
    bool IsThere() const { return m_registration != 0; }

private:
    const ObjectPtr<GDBusConnection> m_connection;
    const std::shared_ptr<void> m_data;
    guint m_registration = 0;
};

}  // namespace platform

#endif
