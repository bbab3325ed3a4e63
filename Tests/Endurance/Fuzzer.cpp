#include "Endurance/Fuzzer.h"

#include <json/json.h>

#include <memory>

#include "Endurance/RandomText.h"
#include "Service/DBusClient.h"
#include "Service/RawClient.h"

namespace test {
namespace {

constexpr int kUnderWay = 200;           // commands of one client without an answer yet
constexpr int kPerHandle = 4000;         // then another one: what is registered stays with a handle
constexpr int kPerRawClient = 5000;      // commands between two clients that break the protocol
constexpr int kAnswerLimit = 90 * 1000;  // milliseconds

const std::vector<std::string> kCommands = {"Connect",
                                            "Disconnect",
                                            "Query",
                                            "Fetch",
                                            "GetCount",
                                            "GetStorages",
                                            "StartSync",
                                            "StopSync",
                                            "GetSyncState",
                                            "SubscribeEvent",
                                            "UnsubscribeEvent",
                                            "RegisterContents",
                                            "UnregisterContents"};

struct Call {
    int handle = 0;
    std::vector<std::string> words;  // the command and its arguments
    bool asList = false;
};

// Makes up the calls.
class Inventor {
public:
    Inventor(const FuzzWorld& world, unsigned long seed) : m_world(world), m_text(seed) {}

    Call Next(int handle) {
        Call call;
        call.handle = m_text.OneIn(50) ? m_text.Number(400) - 10 : handle;
        const std::string name = m_text.OneIn(40)   ? m_text.Mutated(m_text.OneOf(kCommands))
                                 : m_text.OneIn(40) ? m_text.Any()
                                                    : m_text.OneOf(kCommands);
        call.words = {name};
        // Rare, or else nothing but connecting would go on.
        if (name == "Connect" || name == "Disconnect" || name == "GetStorages")
            call.words[0] = m_text.OneIn(10) ? name : "Query";
        for (int i = 1; i <= 4; ++i) call.words.push_back(Argument(call.words[0], i));
        call.asList = m_text.OneIn(12);
        return call;
    }

private:
    std::string Argument(const std::string& name, int place) {
        if (m_text.OneIn(3000)) return m_text.Huge();
        const std::string fitting = Fitting(name, place);
        if (m_text.OneIn(6)) return m_text.Any();
        if (m_text.OneIn(6)) return m_text.Integer();
        return m_text.OneIn(4) ? m_text.Mutated(fitting) : fitting;
    }

    std::string Fitting(const std::string& name, int place) {
        static const std::vector<std::string> kKinds = {"photo", "music", "video", "folder"};
        if (name == "Query") {
            if (place == 1) return m_text.OneOf(m_world.storages);
            if (place == 2) return m_text.OneOf(kKinds);
            return place == 3 ? m_text.OneOf(m_world.paths) : m_text.OneIn(50) ? "true" : "false";
        }
        if (name == "Fetch" || name == "GetCount") return m_text.Integer();
        if (name == "RegisterContents" && place == 2)
            return m_text.OneIn(3) ? List("fullpaths", m_world.paths) : m_text.Json("fullpaths");
        if (name == "UnregisterContents" && place == 2)
            return m_text.OneIn(10) ? List("ids", m_world.mediaIds) : m_text.Json("ids");
        return name.find("Subscribe") != std::string::npos ? m_text.Json("ids") : m_text.Any();
    }

    std::string List(const char* key, const std::vector<std::string>& texts) {
        Json::Value root;
        for (int i = m_text.Number(4); i >= 0; --i) root[key].append(m_text.OneOf(texts));
        return Json::FastWriter().write(root);
    }

    const FuzzWorld& m_world;
    RandomText m_text;
};

// One connection, used on the thread that made it.
class Fuzzer {
public:
    Fuzzer(FuzzWorld& world, unsigned long seed, long commands)
        : m_world(world), m_inventor(world, seed), m_text(seed + 1), m_left(commands) {}

    void Run() {
        GMainContext* context = g_main_context_new();
        g_main_context_push_thread_default(context);
        m_client = std::make_unique<DBusClient>(m_world.socket);
        while (m_left > 0 && !m_world.stop) RunOneHandle(context);
        m_client.reset();
        g_main_context_pop_thread_default(context);
        g_main_context_unref(context);
    }

private:
    struct Answered {
        Fuzzer* self;
        Call call;
    };

    void RunOneHandle(GMainContext* context) {
        if (m_text.OneIn(kPerRawClient / kPerHandle + 1)) BreakTheProtocol();
        const int handle = m_client->Open("fuzz");
        if (handle < 0) return Fail("no handle");
        m_client->Execute(handle, "Connect");
        for (int i = 0; i < kPerHandle && m_left > 0 && !m_world.stop; ++i, --m_left) {
            Send(m_inventor.Next(handle));
            while (m_underWay >= kUnderWay && !m_world.stop) Iterate(context);
        }
        while (m_underWay > 0 && !m_world.stop) Iterate(context);
        m_client->TakeAll();
        if (!m_client->Close(handle).empty()) Fail("Close failed");
    }

    // Every call has a time limit, so this ends.
    static void Iterate(GMainContext* context) { g_main_context_iteration(context, TRUE); }

    void Send(Call call) {
        GVariant* parameters = nullptr;
        if (call.asList) {
            GVariantBuilder list;
            g_variant_builder_init(&list, G_VARIANT_TYPE("as"));
            for (const auto& word : call.words) g_variant_builder_add(&list, "s", word.c_str());
            parameters = g_variant_new("(isas)", call.handle, call.words[0].c_str(), &list);
        } else {
            parameters =
                g_variant_new("(isssss)", call.handle, call.words[0].c_str(), call.words[1].c_str(),
                              call.words[2].c_str(), call.words[3].c_str(), call.words[4].c_str());
        }
        ++m_underWay;
        const char* method = call.asList ? "ExecuteWithParamList" : "Execute";
        m_world.ledger.Done(std::string(method));
        g_dbus_connection_call(m_client->Connection(), nullptr, "/dorn/PlivHost", "dorn.PlivHost1",
                               method, parameters, nullptr, G_DBUS_CALL_FLAGS_NONE, kAnswerLimit,
                               nullptr, s_Answered, new Answered{this, std::move(call)});
    }

    static void s_Answered(GObject* connection, GAsyncResult* result, gpointer data) {
        const std::unique_ptr<Answered> answered(static_cast<Answered*>(data));
        GError* error = nullptr;
        GVariant* value =
            g_dbus_connection_call_finish(G_DBUS_CONNECTION(connection), result, &error);
        answered->self->Take(answered->call, value, error);
        if (value) g_variant_unref(value);
        g_clear_error(&error);
    }

    void Take(const Call& call, GVariant* value, GError* error) {
        --m_underWay;
        if (value) {
            gboolean handled = FALSE;
            g_variant_get(value, "(bs)", &handled, nullptr);
            m_world.ledger.Refused(handled ? "handled" : "not handled");
            return;
        }
        gchar* name = g_dbus_error_get_remote_error(error);
        if (name) {
            m_world.ledger.Refused(name);
            g_free(name);
            return;
        }
        Fail("no answer to " + call.words[0] + ": " + error->message + ", arguments " +
             ShortText(call));
    }

    static std::string ShortText(const Call& call) {
        std::string all;
        for (const auto& word : call.words) all += "[" + word.substr(0, 200) + "] ";
        return all;
    }

    void Fail(const std::string& what) {
        m_world.ledger.Wrong(what);
        m_world.stop = true;
    }

    // Connections of their own, which the service may close, and nothing else.
    void BreakTheProtocol() {
        m_world.ledger.Done("protocol broken");
        RawClient raw(m_world.socket);
        if (m_text.OneIn(4)) return raw.Write(m_text.Bytes(m_text.Number(3000)));
        if (!raw.Authenticate()) return Fail("authentication refused");
        if (m_text.OneIn(3)) return raw.Write(m_text.Bytes(16 + m_text.Number(3000)));
        raw.Write(DamagedMessage());
        raw.Call("Open", g_variant_new("(s)", "raw"));
    }

    // A call as it would be, with some bytes changed: lengths that lie, text that is not UTF-8.
    std::string DamagedMessage() {
        GDBusMessage* message =
            g_dbus_message_new_method_call(nullptr, "/dorn/PlivHost", "dorn.PlivHost1", "Execute");
        g_dbus_message_set_body(
            message, g_variant_new("(isssss)", 1, "Query", "\u00e9\u00e9", "a", "b", "c"));
        g_dbus_message_set_serial(message, 1);
        gsize size = 0;
        guchar* blob =
            g_dbus_message_to_blob(message, &size, G_DBUS_CAPABILITY_FLAGS_NONE, nullptr);
        std::string bytes(reinterpret_cast<char*>(blob), size);
        g_free(blob);
        g_object_unref(message);
        for (int i = m_text.Number(4); i >= 0; --i)
            bytes[static_cast<size_t>(m_text.Number(static_cast<int>(size)))] =
                static_cast<char>(m_text.Number(256));
        return bytes;
    }

    FuzzWorld& m_world;
    Inventor m_inventor;
    RandomText m_text;
    long m_left;
    int m_underWay = 0;
    std::unique_ptr<DBusClient> m_client;
};

}  // namespace

void SendRandomCommands(FuzzWorld& world, unsigned long seed, long count) {
    Fuzzer(world, seed, count).Run();
}

}  // namespace test
