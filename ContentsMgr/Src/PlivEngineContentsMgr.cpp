#include "PlivEngineContentsMgr.h"

#include <algorithm>
#include <climits>
#include <cstdlib>

#include "CJsonHelper.h"
#include "JobSize.h"
#include "JsonText.h"
#include "Log.h"
#include "PlivTaskContentsMgr.h"

namespace dorn {
namespace {

using Storages = std::vector<boost::shared_ptr<CMediaStorage>>;

// A number out of int's range becomes the nearest int, which is neither an id nor a position on any
// page: it is refused, not taken for another number.
int ToInteger(const std::string& text) {
    const long number = strtol(text.c_str(), nullptr, 10);
    return static_cast<int>(std::clamp<long>(number, INT_MIN, INT_MAX));
}

// The texts of an array, each converted by `take`; empty when the member is missing. Throws at the
// first element that is not a text, after taking those before it.
template <typename Take>
std::vector<std::string> ReadTexts(const Json::Value& array, Take take) {
    std::vector<std::string> texts;
    if (array.isNull()) return texts;
    for (Json::ArrayIndex i = 0; i < array.size(); ++i) texts.push_back(take(array[i].asString()));
    return texts;
}

std::string AsItIs(std::string text) {
    return text;
}

std::string ToDevicePath(const std::string& path) {
    CM_PROGRESS("fullPath = %s\n", path.c_str());
    return CJsonHelper::ConvertUsbBasePath(path, CM_CONVERT_TO_DEVICE_PATH);
}

// Bytes counted to an engine's client for the object's lifetime; false when they are refused.
class Held {
public:
    Held(CPlivEngineBase& engine, size_t bytes)
        : m_engine(engine), m_bytes(bytes), m_granted(engine.Hold(bytes)) {
        if (!m_granted)
            CM_PROGRESS("refused: %zu bytes more than the service may hold for this client", bytes);
    }
    ~Held() {
        if (m_granted) m_engine.LetGo(m_bytes);
    }
    Held(const Held&) = delete;
    Held& operator=(const Held&) = delete;
    explicit operator bool() const { return m_granted; }

private:
    CPlivEngineBase& m_engine;
    const size_t m_bytes;
    const bool m_granted;
};

}  // namespace

CPlivEngineContentsMgr::CPlivEngineContentsMgr() : m_task(new CPlivTaskContentsMgr) {
    CM_TRACE("CPlivTaskContentsMgr is allocated on : %p]\n", static_cast<void*>(m_task));
    m_task->SetEngineHandle(this);
}

CPlivEngineContentsMgr::~CPlivEngineContentsMgr() {
    if (m_task) delete m_task;
}

bool CPlivEngineContentsMgr::Init() {
    return true;
}

bool CPlivEngineContentsMgr::Deinit() {
    return true;
}

bool CPlivEngineContentsMgr::Execute(std::string& returnValue, const std::string& command,
                                     const std::string& arg1, const std::string& arg2,
                                     const std::string& arg3, const std::string& arg4) {
    try {
        Call call{returnValue, arg1, arg2, arg3, arg4, 0};
        return RunCommand(command, call);
    } catch (const std::string& text) {
        CM_PROGRESS("Exception Handled by : [%s] ", text.c_str());
        return false;
    }
}

bool CPlivEngineContentsMgr::RunCommand(const std::string& command, Call& call) {
    CM_PROGRESS("[%s] CMD Started", command.c_str());
    const Handler handler = FindHandler(command);
    if (!handler) {
        CM_PROGRESS("Not Supported Command");
        return false;
    }
    if (!(this->*handler)(call)) return false;
    CM_PROGRESS("[%s] CMD Executed(%d)", command.c_str(), call.status);
    return true;
}

CPlivEngineContentsMgr::Handler CPlivEngineContentsMgr::FindHandler(const std::string& command) {
    using Engine = CPlivEngineContentsMgr;
    static const struct {
        const char* name;
        Handler handler;
    } kCommands[] = {
        {"Connect", &Engine::m_ExecuteConnect},
        {"Disconnect", &Engine::m_ExecuteDisconnect},
        {"Query", &Engine::m_ExecuteQuery},
        {"Fetch", &Engine::m_ExecuteFetch},
        {"GetCount", &Engine::m_ExecuteGetCount},
        {"GetStorages", &Engine::m_ExecuteGetStorages},
        {"SubscribeEvent", &Engine::m_ExecuteSubscription},
        {"UnsubscribeEvent", &Engine::m_ExecuteSubscription},
        {"StartSync", &Engine::m_ExecutePlaceholder},
        {"StopSync", &Engine::m_ExecutePlaceholder},
        {"GetSyncState", &Engine::m_ExecutePlaceholder},
        {"RegisterContents", &Engine::m_ExecuteRegisterContents},
        {"UnregisterContents", &Engine::m_ExecuteUnregisterContents},
    };
    for (const auto& entry : kCommands)
        if (command == entry.name) return entry.handler;
    return nullptr;
}

bool CPlivEngineContentsMgr::ExecuteWithParamList(std::string&, const std::string& command,
                                                  const ParamList&) {
    CM_PROGRESS("[%s] CMD Started", command.c_str());
    return !command.empty();
}

void CPlivEngineContentsMgr::m_Return(Call& call, int value) {
    call.status = value;
    SetReturnValueInteger(call.returnValue, value);
}

// The client tells an id or a count from a failure by the value alone.
void CPlivEngineContentsMgr::m_ReturnResult(Call& call, bool result, int out) {
    call.status = result;
    SetReturnValueInteger(call.returnValue, result ? out : 0);
}

bool CPlivEngineContentsMgr::m_ExecuteConnect(Call& call) {
    m_Return(call, m_task->Connect());
    return true;
}

bool CPlivEngineContentsMgr::m_ExecuteDisconnect(Call& call) {
    m_Return(call, m_task->Disconnect());
    return true;
}

bool CPlivEngineContentsMgr::m_ExecuteQuery(Call& call) {
    auto type = MEDIA_TYPE_NONE;
    if (!CJsonHelper::ConvertFromString(call.arg2, type)) return false;
    std::string folderPath;
    if (type == MEDIA_TYPE_FOLDER)
        folderPath = CJsonHelper::ConvertUsbBasePath(call.arg3, CM_CONVERT_TO_DEVICE_PATH);
    m_Return(call, m_task->Query(call.arg1, type, folderPath, call.arg4));
    return true;
}

bool CPlivEngineContentsMgr::m_ExecuteFetch(Call& call) {
    int requestId = 0;
    const bool result = m_task->Fetch(ToInteger(call.arg1), ToInteger(call.arg2), requestId);
    m_ReturnResult(call, result, requestId);
    return true;
}

bool CPlivEngineContentsMgr::m_ExecuteGetCount(Call& call) {
    int count = 0;
    const bool result = m_task->GetCount(ToInteger(call.arg1), count);
    m_ReturnResult(call, result, count);
    return true;
}

bool CPlivEngineContentsMgr::m_ExecuteGetStorages(Call& call) {
    Storages storages;
    if (!m_task->GetStorages(storages)) {
        m_Return(call, 0);
        return true;
    }
    Json::Value array(Json::arrayValue);
    for (auto& storage : storages) {
        Json::Value item;
        CJsonHelper::GenerateStorageInfoJson(item, storage);
        array.append(std::move(item));
    }
    Json::Value root;
    root["storages"] = std::move(array);
    std::string text = WriteJson(root);
    call.status = 1;
    SetReturnValueASCII(call.returnValue, text);
    return true;
}

// The ids are parsed, so that invalid ones are refused, and dropped: every client gets every event.
bool CPlivEngineContentsMgr::m_ExecuteSubscription(Call& call) {
    const Held held(*this, ParsingBytes(call.arg1));
    Json::Value root;
    if (!held || !ParseJson(call.arg1, root)) return false;
    const Json::Value& ids = root["ids"];
    if (ids.size() == 0) return false;
    static_cast<void>(ReadTexts(ids, AsItIs));
    m_Return(call, 0);
    return true;
}

// The database synchronises by itself; there is nothing to start, stop or query.
bool CPlivEngineContentsMgr::m_ExecutePlaceholder(Call& call) {
    m_Return(call, 0);
    return true;
}

bool CPlivEngineContentsMgr::m_ExecuteRegisterContents(Call& call) {
    const Held held(*this, ParsingBytes(call.arg2));
    if (!held) {
        m_Return(call, 0);
        return true;
    }
    Json::Value root;
    std::vector<std::string> paths;
    if (ParseJson(call.arg2, root))
        paths = ReadTexts(root["fullpaths"], ToDevicePath);
    else
        CM_PROGRESS("Failed to parse...\n");
    int requestId = 0;
    const bool result = m_task->RegisterContents(call.arg1, std::move(paths), requestId);
    m_ReturnResult(call, result, requestId);
    return true;
}

bool CPlivEngineContentsMgr::m_ExecuteUnregisterContents(Call& call) {
    const Held held(*this, ParsingBytes(call.arg2));
    if (!held) {
        m_Return(call, 0);
        return true;
    }
    Json::Value root;
    std::vector<std::string> mediaIds;
    if (ParseJson(call.arg2, root))
        mediaIds = ReadTexts(root["ids"], AsItIs);
    else
        CM_PROGRESS("Failed to parse...\n");
    int requestId = 0;
    const bool result = m_task->UnregisterContents(call.arg1, std::move(mediaIds), requestId);
    m_ReturnResult(call, result, requestId);
    return true;
}

}  // namespace dorn
