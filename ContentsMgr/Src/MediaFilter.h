#ifndef CONTENTS_MGR_MEDIA_FILTER_H
#define CONTENTS_MGR_MEDIA_FILTER_H

#include "PlivTaskContentsMgr.h"

namespace dorn {

// One filter for the length of one operation. Given back through the task manager, which logs
// when that fails: so also for a filter that could not be made.
class MediaFilter {
public:
    explicit MediaFilter(CPlivTaskContentsMgr& task) : m_task(task) {}
    ~MediaFilter() {
        if (!m_forgotten) m_task.m_DestroyFilter(m_handle);
    }
    MediaFilter(const MediaFilter&) = delete;
    MediaFilter& operator=(const MediaFilter&) = delete;

    bool Create() { return media_filter_create(&m_handle) == 0; }
    void Destroy() {
        m_task.m_DestroyFilter(m_handle);
        Forget();
    }
    void Forget() { m_forgotten = true; }  // nothing was made and nobody is to hear of it
    operator media_filter_h() const { return m_handle; }

private:
    CPlivTaskContentsMgr& m_task;
    media_filter_h m_handle = nullptr;
    bool m_forgotten = false;
};

// Every kind of item that a folder shows.
constexpr char kFolderItemsCondition[] =
    " (MEDIA_TYPE = 0 OR MEDIA_TYPE = 1 OR MEDIA_TYPE = 2 OR MEDIA_TYPE = 3) ";

}  // namespace dorn

#endif
