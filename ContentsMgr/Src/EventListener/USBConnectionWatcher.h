#ifndef CONTENTS_MGR_USB_CONNECTION_WATCHER_H
#define CONTENTS_MGR_USB_CONNECTION_WATCHER_H

#include "PlatformWatcher.h"
#include "UsbDevice.h"

namespace dorn {

// Receives USB notifications for one engine while it lives.
class USBConnectionWatcher : public PlatformWatcher<void (*)(usb_device_s*, char*, void*)> {
public:
    // What the watchers made from now on register. May be called before there is one.
    static void SetUsbConnectedCallback(Callback callback, void* userData);

    // Registered with the platform when it returns.
    USBConnectionWatcher();
    // When it returns, its callback does not run and will not be called again.
    ~USBConnectionWatcher() override;

protected:
    void Register(Callback callback, void* userData) override;
};

}  // namespace dorn

#endif
