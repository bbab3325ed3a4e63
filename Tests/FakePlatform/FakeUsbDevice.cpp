// The USB device service of the scripted platform.
#include <algorithm>

#include "Seam.h"

using fake::Device;
using fake::Seam;
using fake::Text;

namespace {

int EnterStarted(const char* call) {
    const int error = Seam::Enter(call);
    if (error) return error;
    std::lock_guard<std::mutex> lock(Seam::Script().mutex);
    return Seam::Script().usbUsers > 0 ? 0 : USB_DEVICE_ERROR_NOT_INITIALIZED;
}

template <typename Out, typename Value>
int GetField(const char* call, usb_device_s* device, Out* out, Value Device::*field) {
    return Seam::Get<usb_device_s>(call, device, out,
                                   [field](const usb_device_s& d) { return d.device.*field; });
}

int GetText(const char* call, usb_device_s* device, char** out, std::string Device::*field) {
    return Seam::Get<usb_device_s>(
        call, device, out, [field](const usb_device_s& d) { return Text(d.device.*field); });
}

// Hands out the list's next device; its position moves on.
int Advance(usb_device_list_s* list, usb_device_s** device) {
    if (!list || !device) return USB_DEVICE_ERROR_INVALID_PARAMETER;
    if (list->next >= list->devices.size()) return USB_DEVICE_ERROR_NO_DEVICE;
    *device = list->devices[list->next++];
    return 0;
}

// Define one getter of a device's field.
#define TEXT_GETTER(function, field)                           \
    int function(usb_device_s* device, char** out) {           \
        return GetText(__func__, device, out, &Device::field); \
    }
#define GETTER(function, type, field)                           \
    int function(usb_device_s* device, type* out) {             \
        return GetField(__func__, device, out, &Device::field); \
    }

}  // namespace

extern "C" {

int usb_device_init(void) {
    const int error = Seam::Enter(__func__);
    if (error) return error;
    std::lock_guard<std::mutex> lock(Seam::Script().mutex);
    ++Seam::Script().usbUsers;
    return 0;
}

int usb_device_fini(void) {
    const int error = EnterStarted(__func__);
    if (error) return error;
    std::lock_guard<std::mutex> lock(Seam::Script().mutex);
    --Seam::Script().usbUsers;
    return 0;
}

int usb_device_get_device_list(usb_class_e device_class, usb_device_list_s** list) {
    const int error = EnterStarted(__func__);
    if (error) return error;
    if (!list) return USB_DEVICE_ERROR_INVALID_PARAMETER;
    std::vector<Device> matching;
    {
        std::lock_guard<std::mutex> lock(Seam::Script().mutex);
        for (const Device& device : Seam::Script().devices)
            if (device_class == USB_CLASS_ALL || device.deviceClass == device_class)
                matching.push_back(device);
    }
    auto* made = Seam::Keep(new usb_device_list_s);
    for (const Device& device : matching)
        made->devices.push_back(Seam::Keep(new usb_device_s(device), true));
    *list = made;
    return 0;
}

int usb_device_free_device_list(usb_device_list_s* list) {
    const int error = Seam::Enter(__func__);
    auto* known = Seam::Use<usb_device_list_s>(__func__, list);
    if (!known) return USB_DEVICE_ERROR_INVALID_PARAMETER;
    for (usb_device_s* device : known->devices) Seam::End(__func__, device, true);
    Seam::End(__func__, list);
    return error;
}

int usb_device_list_get_count(usb_device_list_s* list, int* count) {
    return Seam::Get<usb_device_list_s>(
        __func__, list, count, [](const usb_device_list_s& l) { return l.devices.size(); });
}

int usb_device_list_get_first(usb_device_list_s* list, usb_device_s** device) {
    const int error = Seam::Enter(__func__);
    auto* known = Seam::Use<usb_device_list_s>(__func__, list);
    if (known) known->next = 0;
    return error ? error : Advance(known, device);
}

int usb_device_list_get_next(usb_device_list_s* list, usb_device_s** device) {
    const int error = Seam::Enter(__func__);
    auto* known = Seam::Use<usb_device_list_s>(__func__, list);
    return error ? error : Advance(known, device);
}

TEXT_GETTER(usb_device_get_devname, devname)
TEXT_GETTER(usb_device_get_manufacturer, manufacturer)
TEXT_GETTER(usb_device_get_product, product)
TEXT_GETTER(usb_device_get_serial, serial)
TEXT_GETTER(usb_device_get_mountpath, mountPath)
TEXT_GETTER(usb_device_get_partlabel, partlabel)
GETTER(usb_device_get_vendor_id, int, vendorId)
GETTER(usb_device_get_address, int, address)
GETTER(usb_device_get_bus, int, bus)
GETTER(usb_device_get_class, usb_class_e, deviceClass)
GETTER(usb_device_get_protocol, int, protocol)
GETTER(usb_device_get_number, int, number)
GETTER(usb_mass_storage_get_disk_type, disktype_e, diskType)
GETTER(usb_mass_storage_get_filesystem_type, fstype_e, fstype)

int usb_set_connected_cb(usb_connected_cb callback, void* user_data) {
    const int error = Seam::Enter(__func__);
    if (error) return error;
    if (!callback) return USB_DEVICE_ERROR_INVALID_PARAMETER;
    auto& state = Seam::Script();
    std::lock_guard<std::mutex> lock(state.mutex);
    const auto receiver = std::make_pair(callback, user_data);
    auto& all = state.usbReceivers;
    if (std::find(all.begin(), all.end(), receiver) == all.end()) all.push_back(receiver);
    state.changed.notify_all();
    return 0;
}

int usb_unset_connected_cb(usb_connected_cb callback, void* user_data) {
    const int error = Seam::Enter(__func__);
    auto& state = Seam::Script();
    std::unique_lock<std::mutex> lock(state.mutex);
    const auto receiver = std::make_pair(callback, user_data);
    auto& all = state.usbReceivers;
    const auto found = std::find(all.begin(), all.end(), receiver);
    if (found == all.end()) return error ? error : USB_DEVICE_ERROR_NO_DEVICE;
    all.erase(found);
    state.changed.wait(lock, [&] {
        return std::none_of(state.running.begin(), state.running.end(), [&](const auto& running) {
            return running.receiver == receiver && running.thread != std::this_thread::get_id();
        });
    });
    return error;
}

}  // extern "C"

namespace fake {

void FakePlatform::FireUsb(const Device& device, const char* action) {
    std::unique_lock<std::mutex> lock(m_state->mutex);
    const auto receivers = m_state->usbReceivers;
    for (const auto& receiver : receivers) {
        auto& all = m_state->usbReceivers;
        if (std::find(all.begin(), all.end(), receiver) == all.end()) continue;
        const auto running =
            m_state->running.insert(m_state->running.end(), {receiver, std::this_thread::get_id()});
        lock.unlock();
        auto* handle = Seam::Keep(new usb_device_s(device), true);
        std::string text = action ? action : "";
        receiver.first(handle, action ? &text[0] : nullptr, receiver.second);
        Seam::End("a USB notification", handle, true);
        lock.lock();
        m_state->running.erase(running);
        m_state->changed.notify_all();
    }
}

void FakePlatform::PostUsb(const Device& device, const std::string& action) {
    Seam::Post([this, device, action] { FireUsb(device, action.c_str()); });
}

}  // namespace fake
