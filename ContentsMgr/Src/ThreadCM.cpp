#include "ThreadCM.h"

namespace {

GThread* NoThread() {
    return static_cast<GThread*>(GINT_TO_POINTER(-1));
}

}  // namespace

ThreadCM::ThreadCM() : m_thread(NoThread()) {}

ThreadCM::~ThreadCM() = default;

bool ThreadCM::Create(const char* name) {
    if (!name) return false;
    GThread* thread = g_thread_try_new(name, Process, this, nullptr);
    if (!thread) return false;
    m_thread = thread;
    m_started.Wait();
    return true;
}

gpointer ThreadCM::Process(gpointer object) {
    if (!object) return nullptr;
    auto* self = static_cast<ThreadCM*>(object);
    self->m_started.Post();
    self->t_Main();
    self->m_finished.Post();
    return nullptr;
}

void ThreadCM::t_Main() {}

bool ThreadCM::HasThread() const {
    return m_thread != NoThread();
}

void ThreadCM::Destroy() {
    if (!HasThread()) return;
    m_finished.Wait();
    g_thread_unref(m_thread);
}

guint32 ThreadCM::ThreadID() {
    return static_cast<guint32>(reinterpret_cast<guintptr>(m_thread));
}

gpointer ThreadCM::ThreadJoin() {
    if (!HasThread()) return nullptr;
    g_thread_ref(m_thread);  // joining consumes one reference, Destroy releases the other
    return g_thread_join(m_thread);
}
