#include "PlivHost/Interface.h"

#include <string.h>

#include <utility>

#include "PlivHost/Names.h"
#include "PlivHost/Utf8.h"

namespace platform {
namespace {

constexpr char kIntrospection[] = R"xml(<node>
  <interface name="dorn.PlivHost1">
    <method name="Open">
      <arg name="client" type="s" direction="in"/>
      <arg name="handle" type="i" direction="out"/>
    </method>
    <method name="OpenLasting">
      <arg name="client" type="s" direction="in"/>
      <arg name="handle" type="i" direction="out"/>
    </method>
    <method name="Execute">
      <arg name="handle" type="i" direction="in"/>
      <arg name="command" type="s" direction="in"/>
      <arg name="arg1" type="s" direction="in"/>
      <arg name="arg2" type="s" direction="in"/>
      <arg name="arg3" type="s" direction="in"/>
      <arg name="arg4" type="s" direction="in"/>
      <arg name="handled" type="b" direction="out"/>
      <arg name="returnValue" type="s" direction="out"/>
    </method>
    <method name="ExecuteWithParamList">
      <arg name="handle" type="i" direction="in"/>
      <arg name="command" type="s" direction="in"/>
      <arg name="params" type="as" direction="in"/>
      <arg name="handled" type="b" direction="out"/>
      <arg name="returnValue" type="s" direction="out"/>
    </method>
    <method name="Close">
      <arg name="handle" type="i" direction="in"/>
    </method>
    <method name="GetScanProgress">
      <arg name="scans" type="a(ssttb)" direction="out"/>
    </method>
    <signal name="Event">
      <arg name="handle" type="i"/>
      <arg name="kind" type="i"/>
      <arg name="name" type="s"/>
      <arg name="payload" type="s"/>
    </signal>
  </interface>
</node>)xml";

std::vector<std::string> TextsOf(GVariant* array) {
    std::vector<std::string> texts;
    GVariantIter iterator;
    g_variant_iter_init(&iterator, array);
    const gchar* text = nullptr;
    while (g_variant_iter_next(&iterator, "&s", &text)) texts.emplace_back(text);
    return texts;
}

// The first parameter of every method that takes a handle.
int HandleOf(GVariant* parameters) {
    gint32 handle = 0;
    g_variant_get_child(parameters, 0, "i", &handle);
    return handle;
}

Command NewCommand(MethodCall call, GVariant* parameters, bool isParamList) {
    gint32 handle = 0;
    const gchar* name = nullptr;
    if (isParamList) {
        GVariant* array = nullptr;
        g_variant_get(parameters, "(i&s@as)", &handle, &name, &array);
        const VariantPtr params(array);
        return {std::move(call), name, true, TextsOf(array), {}};
    }
    const gchar* arguments[4] = {};
    g_variant_get(parameters, "(i&s&s&s&s&s)", &handle, &name, &arguments[0], &arguments[1],
                  &arguments[2], &arguments[3]);
    return {std::move(call), name, false, {arguments, arguments + 4}, {}};
}

// In the form used in messages: the types of the arguments one after the other.
std::string SignatureOf(const GDBusMethodInfo& method) {
    std::string signature;
    for (GDBusArgInfo** argument = method.in_args; argument && *argument; ++argument)
        signature += (*argument)->signature;
    return signature;
}

}  // namespace

struct Interface::Registration {
    Interface* self;
    PeerFinder finder;
    ServedHandler served;
};

Interface::Interface(HandleTable& handles, ScanReporter scans)
    : m_handles(handles),
      m_scans(std::move(scans)),
      m_info(g_dbus_node_info_new_for_xml(kIntrospection, nullptr)) {}

std::unique_ptr<ExportedObject> Interface::Export(GDBusConnection* connection, PeerFinder finder,
                                                  ServedHandler served) {
    static const GDBusInterfaceVTable vtable{s_Call, nullptr, nullptr, {}};
    return std::make_unique<ExportedObject>(
        connection, kObjectPath, m_info->interfaces[0], vtable,
        std::make_shared<Registration>(Registration{this, std::move(finder), std::move(served)}));
}

bool Interface::IsCall(GDBusMessage* message) const {
    if (g_dbus_message_get_message_type(message) != G_DBUS_MESSAGE_TYPE_METHOD_CALL ||
        g_strcmp0(g_dbus_message_get_path(message), kObjectPath) != 0 ||
        g_strcmp0(g_dbus_message_get_interface(message), kInterface) != 0)
        return false;
    const char* member = g_dbus_message_get_member(message);
    const GDBusMethodInfo* method =
        member ? g_dbus_interface_info_lookup_method(m_info->interfaces[0], member) : nullptr;
    return method && SignatureOf(*method) == g_dbus_message_get_signature(message);
}

bool Interface::TryExecute(GDBusMessage* message, const Peer& caller) {
    const char* member = g_dbus_message_get_member(message);
    const bool isParamList = strcmp(member, "ExecuteWithParamList") == 0;
    if (!isParamList && strcmp(member, "Execute") != 0) return false;
    GVariant* parameters = g_dbus_message_get_body(message);
    return m_handles.TryExecute(caller, HandleOf(parameters), [&] {
        return NewCommand(MethodCall(message, caller.Messages()), parameters, isParamList);
    });
}

void Interface::s_Call(GDBusConnection*, const gchar* sender, const gchar*, const gchar*,
                       const gchar* method, GVariant* parameters, GDBusMethodInvocation* invocation,
                       gpointer registration) {
    static constexpr struct {
        const char* name;
        Method run;
    } kMethods[] = {
        {"Open", &Interface::Open},
        {"OpenLasting", &Interface::OpenLasting},
        {"Execute", &Interface::Execute},
        {"ExecuteWithParamList", &Interface::ExecuteWithParamList},
        {"Close", &Interface::Close},
        {"GetScanProgress", &Interface::GetScanProgress},
    };
    const ObjectPtr<GDBusMethodInvocation> owned(invocation);
    const auto& known = *static_cast<Registration*>(registration);
    const auto peer = known.finder(sender);
    if (!peer) return;  // there is nobody to answer
    GDBusMessage* message = g_dbus_method_invocation_get_message(invocation);
    Request request{MethodCall(message, peer->Messages()), peer, parameters};
    for (const auto& entry : kMethods)
        if (strcmp(method, entry.name) == 0) (known.self->*entry.run)(request);
    if (known.served) known.served();
}

void Interface::Open(Request& request) {
    const gchar* client = nullptr;
    g_variant_get(request.parameters, "(&s)", &client);
    m_handles.Open(std::move(request.call), request.peer, client);
}

void Interface::OpenLasting(Request& request) {
    const gchar* client = nullptr;
    g_variant_get(request.parameters, "(&s)", &client);
    m_handles.OpenLasting(std::move(request.call), client);
}

void Interface::Execute(Request& request) {
    m_handles.Execute(NewCommand(std::move(request.call), request.parameters, false), *request.peer,
                      HandleOf(request.parameters));
}

void Interface::ExecuteWithParamList(Request& request) {
    m_handles.Execute(NewCommand(std::move(request.call), request.parameters, true), *request.peer,
                      HandleOf(request.parameters));
}

void Interface::Close(Request& request) {
    m_handles.Close(std::move(request.call), *request.peer, HandleOf(request.parameters));
}

void Interface::GetScanProgress(Request& request) {
    GVariantBuilder scans;
    g_variant_builder_init(&scans, G_VARIANT_TYPE("a(ssttb)"));
    for (const ScanProgress& scan : m_scans())
        g_variant_builder_add(&scans, "(ssttb)", ToUtf8(scan.storageId).c_str(),
                              ToUtf8(scan.mountPath).c_str(), guint64{scan.filesSeen},
                              guint64{scan.filesRead}, gboolean{scan.walking});
    request.call.Return(g_variant_new("(a(ssttb))", &scans));
}

}  // namespace platform
