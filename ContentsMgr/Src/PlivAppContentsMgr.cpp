#include "PlivAppContentsMgr.h"

#include "Log.h"
#include "PlivEngineContentsMgr.h"

namespace dorn {

CPlivAppContentsMgr::CPlivAppContentsMgr() {
    m_pluginName = "ContentsMgr";
    m_pluginId = "0002";
    m_pluginVersion = "2.000";
    m_displayName = "ContentsManager";
}

CPlivAppContentsMgr::~CPlivAppContentsMgr() = default;

CPlivEngineBase* CPlivAppContentsMgr::CreatePlivEngine() {
    auto* engine = new CPlivEngineContentsMgr;
    CM_TRACE("CPlivEngineContentsMgr is allocated on : %p]\n", static_cast<void*>(engine));
    if (nullptr == engine) {
        CM_PROGRESS("NULL == pPlivEngineContentsManager");
        return nullptr;
    }
    if (!engine->Init()) {
        CM_PROGRESS("CPlivEngineContentsMgr->Init() failed");
        return nullptr;  // never happens: Init cannot fail
    }
    return engine;
}

}  // namespace dorn
