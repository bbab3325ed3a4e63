#ifndef CONTENTS_MGR_PLIV_APP_CONTENTS_MGR_H
#define CONTENTS_MGR_PLIV_APP_CONTENTS_MGR_H

#include "PlivHost.h"

namespace dorn {

// The application object: creates an engine for each client that opens the plugin.
class CPlivAppContentsMgr : public CPlivAppBase {
public:
    CPlivAppContentsMgr();
    ~CPlivAppContentsMgr() override;

    // A new engine with its own task manager; the caller owns it.
    CPlivEngineBase* CreatePlivEngine() override;
};

}  // namespace dorn

#endif
