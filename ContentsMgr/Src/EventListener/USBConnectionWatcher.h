#ifndef CONTENTS_MGR_USB_CONNECTION_WATCHER_H
#define CONTENTS_MGR_USB_CONNECTION_WATCHER_H

#include "DefaultContextLoop.h"
#include "ThreadCM.h"
#include "UsbDevice.h"

namespace dorn {

// Receives USB notifications for one engine while it lives: a thread that runs a main loop on the
// default main context.
class USBConnectionWatcher : public ThreadCM {
public:
    using Callback = void (*)(usb_device_s* device, char* action, void* userData);

    // What the watchers made from now on register. May be called before there is one.
    static void SetUsbConnectedCallback(Callback callback, void* userData);

    // Registered with the platform when it returns.
    USBConnectionWatcher();
    // When it returns, its callback does not run and will not be called again.
    ~USBConnectionWatcher() override;

    void t_Main() override;

private:
    // Shared by all watchers; guarded by a mutex of the class.
    static Callback s_pfunc;
    static void* s_pUser_data;
    static gint32 s_registerCount;

    // This watcher's copy of the two, so that another engine's registration does not change it.
    Callback m_callback;
    void* m_userData;
    DefaultContextLoop m_loop;
    SemphoreCM m_registered;
};

}  // namespace dorn

#endif
