#include "PlivHost/ExportedObject.h"

#include <utility>

#include "Log/Log.h"
#include "PlivHost/Names.h"

namespace platform {

ExportedObject::ExportedObject(GDBusConnection* connection, const char* path,
                               GDBusInterfaceInfo* interface, const GDBusInterfaceVTable& vtable,
                               std::shared_ptr<void> data)
    : m_connection(Share(connection)), m_data(std::move(data)) {
    ErrorSlot error;
    m_registration = g_dbus_connection_register_object(connection, path, interface, &vtable,
                                                       m_data.get(), nullptr, error.Out());
    if (!IsThere())
        PLATFORM_LOG(kLogTag, LOG_ERROR, "could not export %s: %s", path, error.Text().c_str());
}

ExportedObject::~ExportedObject() {
    if (IsThere()) g_dbus_connection_unregister_object(m_connection.get(), m_registration);
}

}  // namespace platform
