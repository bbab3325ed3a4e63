#ifndef CONTENTS_MGR_USB_CONNECTION_WATCHER_H
#define CONTENTS_MGR_USB_CONNECTION_WATCHER_H

#include "PlatformWatcher.h"
#include "UsbDevice.h"

namespace dorn {

// Receives USB notifications for one engine while it lives.
class USBConnectionWatcher : public PlatformWatcher<void (*)(usb_device_s*, char*, void*)> {
public:
    // Sets what later watchers register. May be called before there is a watcher.
    static void SetUsbConnectedCallback(Callback callback, void* userData);

    // The callback is registered with the platform on return.
    USBConnectionWatcher();
    // Once it returns, its callback is not running and will not be called again.
    ~USBConnectionWatcher() override;

protected:
    void Register(Callback callback, void* userData) override;
};

}  // namespace dorn

#endif
