#ifndef CONTENTS_MGR_THREAD_CM_H
#define CONTENTS_MGR_THREAD_CM_H

#include <glib.h>

#include "SemphoreCM.h"

// One GLib thread that runs a virtual body. A subclass's constructor calls Create as its last step;
// its destructor ends the body and joins before its members are destroyed.
class ThreadCM {
public:
    ThreadCM();
    virtual ~ThreadCM();  // does not touch the thread
    ThreadCM(const ThreadCM&) = delete;
    ThreadCM& operator=(const ThreadCM&) = delete;

    // Waits until the body has returned, then releases the thread handle. Blocks for ever if
    // nothing ends the body. Call at most once; does nothing when there is no thread.
    virtual void Destroy();

    // The thread handle as a number; all ones before Create.
    virtual guint32 ThreadID();

    // Waits until the thread has ended and returns its result. The handle stays valid for Destroy.
    virtual gpointer ThreadJoin();

    // The thread body.
    virtual void t_Main();

    // Starts the thread and returns once it runs. False for a null name or when the system refuses
    // a thread.
    bool Create(const char* name);

    // The thread's entry point; `object` is the ThreadCM. Does nothing for null.
    static gpointer Process(gpointer object);

protected:
    bool HasThread() const;  // false before Create, and when the system refused a thread

private:
    GThread* m_thread;
    SemphoreCM m_started;
    SemphoreCM m_finished;
};

#endif
