#include "Log.h"
#include "PlivAppContentsMgr.h"

int main(int argc, char** argv) {
    CM_PROGRESS("Process Created!!!");
    // Never deleted: the process ends right afterwards.
    auto* app = new dorn::CPlivAppContentsMgr;
    const int status = dorn::PlivMain(argc, argv, app);
    CM_PROGRESS("Process Destroyed!!!");
    return status;
}
