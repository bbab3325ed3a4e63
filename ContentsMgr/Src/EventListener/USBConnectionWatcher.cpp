#include "USBConnectionWatcher.h"

#include "GMutexLock.h"
#include "Log.h"

namespace dorn {
namespace {

GMutex g_classMutex;

}  // namespace

USBConnectionWatcher::Callback USBConnectionWatcher::s_pfunc = nullptr;
void* USBConnectionWatcher::s_pUser_data = nullptr;
gint32 USBConnectionWatcher::s_registerCount = 0;

void USBConnectionWatcher::SetUsbConnectedCallback(Callback callback, void* userData) {
    GMutexLock lock(g_classMutex);
    ++s_registerCount;
    CM_TRACE("CALLED COUNT: %d, CB ADDR: %p, USER DATA : %p \n", s_registerCount,
             reinterpret_cast<void*>(callback), userData);
    s_pfunc = callback;
    s_pUser_data = userData;
}

USBConnectionWatcher::USBConnectionWatcher() {
    {
        GMutexLock lock(g_classMutex);
        m_callback = s_pfunc;
        m_userData = s_pUser_data;
    }
    if (Create("USBConnectionWatcher")) m_registered.Wait();
}

USBConnectionWatcher::~USBConnectionWatcher() {
    if (HasThread()) m_loop.Stop();
    usb_unset_connected_cb(m_callback, m_userData);
    ThreadJoin();
    Destroy();
}

void USBConnectionWatcher::t_Main() {
    usb_set_connected_cb(m_callback, m_userData);
    m_registered.Post();
    m_loop.Run();
}

}  // namespace dorn
