#include "UsbDevice/ServiceCore.h"

#include <algorithm>
#include <iterator>

#include "Log/Log.h"

namespace platform {

ServiceCore& ServiceCore::Instance() {
    static ServiceCore core;
    return core;
}

void ServiceCore::Configure(const UsbServiceOptions& options) {
    std::lock_guard<std::mutex> lock(m_lifecycle);
    m_options = options;
    while (m_options.root.size() > 1 && m_options.root.back() == '/') m_options.root.pop_back();
}

int ServiceCore::Init() {
    std::lock_guard<std::mutex> lock(m_lifecycle);
    if (m_users == 0) {
        auto monitor = std::make_shared<DeviceMonitor>(MakeDeviceSource(m_options), m_options.root,
                                                       m_dispatcher);
        if (!monitor->Start()) {
            PLATFORM_LOG("USB_DEVICE", LOG_ERROR, "the USB devices cannot be listed");
            return USB_DEVICE_ERROR_IO;
        }
        SetCurrent(std::move(monitor));
    }
    ++m_users;
    return USB_DEVICE_ERROR_NONE;
}

int ServiceCore::Fini() {
    std::lock_guard<std::mutex> lock(m_lifecycle);
    if (m_users == 0) return USB_DEVICE_ERROR_NOT_INITIALIZED;
    if (--m_users == 0) StopLocked();
    return USB_DEVICE_ERROR_NONE;
}

void ServiceCore::Shutdown() {
    std::lock_guard<std::mutex> lock(m_lifecycle);
    m_users = 0;
    StopLocked();
}

void ServiceCore::StopLocked() {
    const auto monitor = Current();
    SetCurrent(nullptr);
    if (monitor) monitor->Stop();
    m_dispatcher->Clear();
}

int ServiceCore::Devices(usb_class_e deviceClass, DeviceList& devices) {
    const auto monitor = Current();
    if (!monitor) return USB_DEVICE_ERROR_NOT_INITIALIZED;
    DeviceList all;
    if (!monitor->Devices(all)) return USB_DEVICE_ERROR_IO;
    std::copy_if(all.begin(), all.end(), std::back_inserter(devices), [&](const DevicePtr& device) {
        return deviceClass == USB_CLASS_ALL || device->deviceClass == deviceClass;
    });
    return USB_DEVICE_ERROR_NONE;
}

std::shared_ptr<DeviceMonitor> ServiceCore::Current() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_monitor;
}

void ServiceCore::SetCurrent(std::shared_ptr<DeviceMonitor> monitor) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_monitor = std::move(monitor);
}

void ConfigureUsbService(const UsbServiceOptions& options) {
    ServiceCore::Instance().Configure(options);
}

void ShutdownUsbService() {
    ServiceCore::Instance().Shutdown();
}

}  // namespace platform
