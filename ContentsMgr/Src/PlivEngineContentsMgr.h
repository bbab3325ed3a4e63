#ifndef CONTENTS_MGR_PLIV_ENGINE_CONTENTS_MGR_H
#define CONTENTS_MGR_PLIV_ENGINE_CONTENTS_MGR_H

#include <json/json.h>

#include <boost/shared_ptr.hpp>
#include <map>
#include <string>
#include <vector>

#include "CCMTaskJob.h"
#include "CMediaStorage.h"
#include "PlivHost.h"

namespace dorn {

class CPlivTaskContentsMgr;

// One client's engine: turns its commands into calls to the task manager, and the task manager's
// results into events.
class CPlivEngineContentsMgr : public CPlivEngineBase {
public:
    CPlivEngineContentsMgr();
    // Deletes the task manager, which stops and joins its worker. Takes about a second at most.
    ~CPlivEngineContentsMgr() override;

    // Runs one command on the calling thread. False when it is not a command or its arguments are
    // refused; the return string is then unchanged. Throws the JSON library's exceptions for wrong
    // types.
    bool Execute(std::string& returnValue, const std::string& command, const std::string& arg1,
                 const std::string& arg2, const std::string& arg3,
                 const std::string& arg4) override;

    // Runs nothing; returns whether the command name is not empty.
    bool ExecuteWithParamList(std::string& returnValue, const std::string& command,
                              const ParamList& params) override;

    bool Init();    // true
    bool Deinit();  // true

    // Notifications, each of which sends one event to the client. Called from the worker and from
    // the threads that dispatch platform notifications, without any lock. A result of 1 is success.
    void OnUsbConnectionChanged(bool connected, boost::shared_ptr<CMediaStorage>& storage);
    void OnContentsRegistered(int result, int requestId,
                              std::map<std::string, std::string>& succeeded,
                              std::vector<std::string>& failed);
    void OnContentsUnregistered(int result, int requestId, std::vector<std::string>& succeeded,
                                std::vector<std::string>& failed);
    void OnSyncFinished(int result, std::string storageId);
    void OnMediaUpdated(int type, std::string path);  // logged only
    void OnQueryFinished(int result, int count);
    // A page of media: `items` is unchanged afterwards.
    void OnFetchFinished(int result, int id, Json::Value& items, MediaType type, bool isFirstPage,
                         bool isLastPage);
    // A page of a folder: the event's members are written into the caller's `items`.
    void OnFetchFinished(int result, int id, Json::Value& items, bool isFirstPage, bool isLastPage);

private:
    // One row of the command table: a command's input, and where its result goes.
    struct Call {
        std::string& returnValue;
        const std::string& arg1;
        const std::string& arg2;
        const std::string& arg3;
        const std::string& arg4;
        int status;  // of the task manager's call, 0 where there is none
    };
    using Handler = bool (CPlivEngineContentsMgr::*)(Call&);
    static Handler FindHandler(const std::string& command);
    bool RunCommand(const std::string& command, Call& call);

    // Each returns false when the command's arguments are refused.
    bool m_ExecuteConnect(Call& call);
    bool m_ExecuteDisconnect(Call& call);
    bool m_ExecuteQuery(Call& call);
    bool m_ExecuteFetch(Call& call);
    bool m_ExecuteGetCount(Call& call);
    bool m_ExecuteGetStorages(Call& call);
    bool m_ExecuteSubscription(Call& call);
    bool m_ExecutePlaceholder(Call& call);
    bool m_ExecuteRegisterContents(Call& call);
    bool m_ExecuteUnregisterContents(Call& call);

    void m_Return(Call& call, int value);
    void m_ReturnResult(Call& call, bool result, int out);

    CPlivTaskContentsMgr* m_task;  // owned; constant after construction
};

}  // namespace dorn

#endif
