#ifndef CONTENTS_MGR_LIVE_TASKS_H
#define CONTENTS_MGR_LIVE_TASKS_H

namespace dorn {

class CPlivTaskContentsMgr;

// The live task managers of this process. Platform callbacks carry a task manager as their user
// data and may arrive after it is gone: they check here first.
class LiveTasks {
public:
    static void Add(CPlivTaskContentsMgr* task);

    // Once this returns, no new callback can enter, and those inside have left. Not from inside a
    // callback.
    static void Remove(CPlivTaskContentsMgr* task);

    // Keeps a task manager alive for the duration of one callback, on any thread.
    class Pin {
    public:
        explicit Pin(void* userData);
        ~Pin();
        Pin(const Pin&) = delete;
        Pin& operator=(const Pin&) = delete;
        CPlivTaskContentsMgr* Get() const { return m_task; }  // null: not alive

    private:
        CPlivTaskContentsMgr* m_task;
    };
};

}  // namespace dorn

#endif
