#include "PlivHost/BusStub.h"

#include <string.h>

#include "PlivHost/Names.h"

namespace platform {
namespace {

constexpr char kBus[] = "org.freedesktop.DBus";
constexpr char kBusPath[] = "/org/freedesktop/DBus";
constexpr char kIntrospection[] = R"(<node>
  <interface name="org.freedesktop.DBus">
    <method name="Hello"><arg type="s" direction="out"/></method>
    <method name="AddMatch"><arg type="s" direction="in"/></method>
    <method name="RemoveMatch"><arg type="s" direction="in"/></method>
    <method name="GetNameOwner">
      <arg type="s" direction="in"/><arg type="s" direction="out"/>
    </method>
    <method name="NameHasOwner">
      <arg type="s" direction="in"/><arg type="b" direction="out"/>
    </method>
    <method name="StartServiceByName">
      <arg type="s" direction="in"/><arg type="u" direction="in"/><arg type="u" direction="out"/>
    </method>
    <method name="ListNames"><arg type="as" direction="out"/></method>
  </interface>
</node>)";
constexpr guint32 kAlreadyRunning = 2;  // a result of StartServiceByName

std::string OwnerOf(const char* name, const std::string& client) {
    if (strcmp(name, kBusName) == 0 || strcmp(name, kPrivateServiceName) == 0)
        return kPrivateServiceName;
    if (strcmp(name, kBus) == 0 || name == client) return name;
    return {};
}

GVariant* Names(const std::string& client) {
    const gchar* names[] = {kBus, kBusName, kPrivateServiceName, client.c_str(), nullptr};
    return g_variant_new("(^as)", names);
}

// The answer of one method; null for a name that has no owner.
GVariant* Answer(const std::string& method, GVariant* parameters, const std::string& client) {
    if (method == "Hello") return g_variant_new("(s)", client.c_str());
    if (method == "ListNames") return Names(client);
    if (method == "AddMatch" || method == "RemoveMatch") return g_variant_new("()");
    const gchar* name = nullptr;
    g_variant_get_child(parameters, 0, "&s", &name);
    const std::string owner = OwnerOf(name, client);
    if (method == "NameHasOwner") return g_variant_new("(b)", !owner.empty());
    if (owner.empty()) return nullptr;
    if (method == "GetNameOwner") return g_variant_new("(s)", owner.c_str());
    return g_variant_new("(u)", kAlreadyRunning);
}

void Call(GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar* method,
          GVariant* parameters, GDBusMethodInvocation* invocation, gpointer clientName) {
    if (GVariant* answer = Answer(method, parameters, *static_cast<std::string*>(clientName)))
        g_dbus_method_invocation_return_value(invocation, answer);
    else
        g_dbus_method_invocation_return_error(invocation, G_DBUS_ERROR,
                                              G_DBUS_ERROR_NAME_HAS_NO_OWNER,
                                              "only %s lives on this connection", kBusName);
}

}  // namespace

std::unique_ptr<ExportedObject> ExportBusStub(GDBusConnection* connection,
                                              const std::string& clientName) {
    static const GDBusInterfaceVTable vtable{Call, nullptr, nullptr, {}};
    const NodeInfoPtr info(g_dbus_node_info_new_for_xml(kIntrospection, nullptr));
    return std::make_unique<ExportedObject>(connection, kBusPath, info->interfaces[0], vtable,
                                            std::make_shared<std::string>(clientName));
}

}  // namespace platform
