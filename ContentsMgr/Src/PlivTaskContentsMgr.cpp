#include "PlivTaskContentsMgr.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "LiveTasks.h"
#include "Log.h"
#include "PlivEngineContentsMgr.h"
#include "SyncCompletionWatcher.h"
#include "USBConnectionWatcher.h"

namespace dorn {

CPlivTaskContentsMgr::CPlivTaskContentsMgr() {
    LiveTasks::Add(this);
    Create("PlivTaskContentsMgr");
}

CPlivTaskContentsMgr::~CPlivTaskContentsMgr() {
    m_running = false;
    m_stop.Raise();
    m_endPairing.Raise();
    if (m_connected) Disconnect();
    m_endPairing.Raise();
    m_jobSemaphore.Post();
    ThreadJoin();
    Destroy();
    LiveTasks::Remove(this);
}

bool CPlivTaskContentsMgr::SetEngineHandle(CPlivEngineContentsMgr* engine) {
    m_engine = engine;
    return true;
}

void CPlivTaskContentsMgr::t_Main() {
    while (m_running) {
        CM_TRACE("Thread operating \n");
        m_jobSemaphore.Wait();
        try {
            m_Process();
        } catch (const std::runtime_error& error) {
            CM_PROGRESS("Fatal Exception!!!: < %s >\n", error.what());
        }
    }
}

namespace {

using JobQueue = CSafeQ<CCMTaskJob>;

// Removes a job from the queue when it has run, even if it threw: it would otherwise block all
// later jobs.
template <typename Then>
class FinishedJob {
public:
    FinishedJob(JobQueue& queue, JobQueue::Cursor& cursor, Then then)
        : m_queue(queue), m_cursor(cursor), m_then(then) {}
    ~FinishedJob() {
        m_cursor = m_queue.Remove(m_cursor);
        m_then();
    }
    FinishedJob(const FinishedJob&) = delete;
    FinishedJob& operator=(const FinishedJob&) = delete;

private:
    JobQueue& m_queue;
    JobQueue::Cursor& m_cursor;
    const Then m_then;
};

}  // namespace

// One drain may handle several posts; the later wake-ups then find nothing to do.
void CPlivTaskContentsMgr::m_Process() {
    auto cursor = m_jobs.First();
    while (m_running) {
        const CCMTaskJob* job = m_jobs.Peek(cursor);
        if (!job) return;
        if (job->GetCommandType() < COMMAND_TYPE_QUERY ||
            job->GetCommandType() > COMMAND_TYPE_UNREGISTER) {
            CM_TRACE("COMMAND_TYPE_DEFAULT");
            cursor = m_jobs.Skip(cursor);
            continue;
        }
        const FinishedJob finished(m_jobs, cursor,
                                   [this, bytes = job->GetHeldBytes()] { m_LetJobGo(bytes); });
        m_RunJob(*job);
    }
}

void CPlivTaskContentsMgr::m_RunJob(const CCMTaskJob& job) {
    switch (job.GetCommandType()) {
        case COMMAND_TYPE_QUERY:
            CM_TRACE("COMMAND_TYPE_QUERY");
            m_Query(job.GetQueryInfo());
            break;
        case COMMAND_TYPE_FETCH:
            CM_TRACE("COMMAND_TYPE_FETCH");
            m_Fetch(job.GetFetchInfo());
            break;
        case COMMAND_TYPE_REGISTER:
            CM_TRACE("COMMAND_TYPE_REGISTER");
            m_RegisterContents(job.GetInserDeletetInfo());
            break;
        case COMMAND_TYPE_UNREGISTER:
            CM_TRACE("COMMAND_TYPE_UNREGISTER");
            m_UnregisterContents(job.GetInserDeletetInfo());
            break;
    }
}

// Only one job runs at a time, so for running only the largest need is counted, until no job is
// left.
bool CPlivTaskContentsMgr::m_HoldJob(CCMTaskJob& job, const JobBytes& bytes, size_t more) {
    auto* engine = m_engine.load();
    if (!engine) return true;
    const size_t running = std::max(bytes.running, m_runningBytes);
    const size_t wanted = bytes.waiting + more + running - m_runningBytes;
    if (!engine->Hold(wanted)) {
        CM_PROGRESS("refused: %zu bytes more than the service may hold for this client", wanted);
        return false;
    }
    job.SetHeldBytes(bytes.waiting);
    m_runningBytes = running;
    ++m_countedJobs;
    return true;
}

void CPlivTaskContentsMgr::m_LetJobGo(size_t bytes) {
    if (bytes == 0) return;
    GMutexLock lock(m_processMutex);
    if (--m_countedJobs == 0) bytes += std::exchange(m_runningBytes, 0);
    m_engine.load()->LetGo(bytes);
}

int CPlivTaskContentsMgr::m_MakeRequestId(int mediaType) {
    CM_TRACE(" mediaType : %d", mediaType);
    const bool odd = m_requestId % 2 != 0;
    switch (mediaType) {
        case MEDIA_TYPE_NONE:
            m_requestId += 1;
            break;
        case MEDIA_TYPE_FOLDER:
            m_requestId += odd ? 2 : 1;
            break;
        default:
            m_requestId += odd ? 1 : 2;
            break;
    }
    return m_requestId;
}

bool CPlivTaskContentsMgr::StopSync(std::string) {
    return true;
}

bool CPlivTaskContentsMgr::GetSyncState(std::string, SyncState&) {
    return true;
}

}  // namespace dorn
