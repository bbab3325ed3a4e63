#ifndef CONTENTS_MGR_LIVE_TASKS_H
#define CONTENTS_MGR_LIVE_TASKS_H

namespace dorn {

class CPlivTaskContentsMgr;

// Which task managers of this process are alive. The platform's callbacks carry a task manager as
// their user data and may come when it is gone already: they ask here first.
class LiveTasks {
public:
    static void Add(CPlivTaskContentsMgr* task);

    // After this no new callback gets in, and those inside have left. Not from inside a callback.
    static void Remove(CPlivTaskContentsMgr* task);

    // Keeps a task manager alive for the length of one callback, on whatever thread.
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
