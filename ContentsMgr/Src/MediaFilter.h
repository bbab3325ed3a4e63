#ifndef CONTENTS_MGR_MEDIA_FILTER_H
#define CONTENTS_MGR_MEDIA_FILTER_H

#include "PlivTaskContentsMgr.h"

namespace dorn {

// One filter for the duration of one operation. Released through the task manager, which logs a
// failure to do so, also for a filter that could not be created.
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
    void Forget() { m_forgotten = true; }  // nothing was created and nothing is to be logged
    operator media_filter_h() const { return m_handle; }

private:
    CPlivTaskContentsMgr& m_task;
    media_filter_h m_handle = nullptr;
    bool m_forgotten = false;
};

// All kinds of items that a folder shows.
constexpr char kFolderItemsCondition[] =
    " (MEDIA_TYPE = 0 OR MEDIA_TYPE = 1 OR MEDIA_TYPE = 2 OR MEDIA_TYPE = 3) ";

}  // namespace dorn

#endif
