#include "USBConnectionWatcher.h"

#include "Log.h"

namespace dorn {

void USBConnectionWatcher::SetUsbConnectedCallback(Callback callback, void* userData) {
    CM_TRACE("CALLED COUNT: %d, CB ADDR: %p, USER DATA : %p \n", CountRegistration(),
             reinterpret_cast<void*>(callback), userData);
    Store(callback, userData);
}

USBConnectionWatcher::USBConnectionWatcher() {
    Start("USBConnectionWatcher");
}

USBConnectionWatcher::~USBConnectionWatcher() {
    StopLoop();
    usb_unset_connected_cb(m_callback, m_userData);
    Join();
}

void USBConnectionWatcher::Register(Callback callback, void* userData) {
    usb_set_connected_cb(callback, userData);
}

}  // namespace dorn
