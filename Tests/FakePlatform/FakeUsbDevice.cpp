// The USB device service of the scripted platform.
#include "Seam.h"

using fake::Device;
using fake::Needs;
using fake::Script;
using fake::Seam;

namespace {

int Advance(usb_device_list_s& list, usb_device_s** device) {
    if (list.next >= list.devices.size()) return USB_DEVICE_ERROR_NO_DEVICE;
    *device = list.devices[list.next++];
    return 0;
}

}  // namespace

extern "C" {

int usb_device_init(void) {
    return Seam::Run(__func__, Needs::Nothing, [](Script& script) { return ++script.usbUsers, 0; });
}

int usb_device_fini(void) {
    return Seam::Run(__func__, Needs::Usb, [](Script& script) { return --script.usbUsers, 0; });
}

int usb_device_get_device_list(usb_class_e device_class, usb_device_list_s** list) {
    if (const int error = Seam::Enter(__func__, Needs::Usb)) return error;
    const std::vector<Device> devices = Seam::Lock()->devices;
    *list = Seam::Keep(new usb_device_list_s);
    for (const Device& device : devices)
        if (device_class == USB_CLASS_ALL || device.deviceClass == device_class)
            (*list)->devices.push_back(Seam::Keep(new usb_device_s(device), true));
    return 0;
}

int usb_device_free_device_list(usb_device_list_s* list) {
    if (auto* known = Seam::Use<usb_device_list_s>(__func__, list))
        for (usb_device_s* device : known->devices) Seam::End(__func__, device, true);
    return Seam::Destroy<usb_device_list_s>(__func__, list);
}

int usb_device_list_get_count(usb_device_list_s* list, int* count) {
    return Seam::Get<usb_device_list_s>(
        __func__, list, count, [](const usb_device_list_s& l) { return l.devices.size(); });
}

int usb_device_list_get_first(usb_device_list_s* list, usb_device_s** device) {
    return Seam::With<usb_device_list_s>(__func__, list, [=](usb_device_list_s& known) {
        known.next = 0;
        return Advance(known, device);
    });
}

int usb_device_list_get_next(usb_device_list_s* list, usb_device_s** device) {
    return Seam::With<usb_device_list_s>(
        __func__, list, [=](usb_device_list_s& known) { return Advance(known, device); });
}

FAKE_NOTHING(usb_device_s, usb_device_get_devname, char*)
FAKE_GETTER(usb_device_s, usb_device_get_manufacturer, char*, manufacturer)
FAKE_GETTER(usb_device_s, usb_device_get_product, char*, product)
FAKE_GETTER(usb_device_s, usb_device_get_serial, char*, serial)
FAKE_GETTER(usb_device_s, usb_device_get_mountpath, char*, mountPath)
FAKE_GETTER(usb_device_s, usb_device_get_partlabel, char*, partlabel)
FAKE_NOTHING(usb_device_s, usb_device_get_vendor_id, int)
FAKE_GETTER(usb_device_s, usb_device_get_address, int, address)
FAKE_GETTER(usb_device_s, usb_device_get_bus, int, bus)
FAKE_GETTER(usb_device_s, usb_device_get_class, usb_class_e, deviceClass)
FAKE_NOTHING(usb_device_s, usb_device_get_protocol, int)
FAKE_NOTHING(usb_device_s, usb_device_get_number, int)
FAKE_NOTHING(usb_device_s, usb_mass_storage_get_disk_type, disktype_e)
FAKE_GETTER(usb_device_s, usb_mass_storage_get_filesystem_type, fstype_e, fstype)

int usb_set_connected_cb(usb_connected_cb callback, void* user_data) {
    return Seam::SetReceiver(__func__, &Script::usbReceivers, std::make_pair(callback, user_data));
}

int usb_unset_connected_cb(usb_connected_cb callback, void* user_data) {
    const int error = Seam::Enter(__func__);
    auto script = Seam::Lock();
    const auto receiver = std::make_pair(callback, user_data);
    auto& all = script->usbReceivers;
    const auto found = std::find(all.begin(), all.end(), receiver);
    if (found == all.end()) return error ? error : USB_DEVICE_ERROR_NO_DEVICE;
    all.erase(found);
    const auto insideElsewhere = [&](const auto& running) {
        return running.receiver == receiver && running.thread != std::this_thread::get_id();
    };
    auto& running = Seam::Running();
    if (!script.Wait([&] { return std::none_of(running.begin(), running.end(), insideElsewhere); }))
        fake::Die(__func__, "waited in vain for a notification");
    return error;
}

}  // extern "C"

namespace fake {

void FakePlatform::FireUsb(const Device& device, const char* action) {
    auto script = Lock();
    const auto receivers = script->usbReceivers;
    for (const auto& receiver : receivers) {
        auto& all = script->usbReceivers;
        if (std::find(all.begin(), all.end(), receiver) == all.end()) continue;
        const auto running =
            m_running.insert(m_running.end(), {receiver, std::this_thread::get_id()});
        script.lock.unlock();
        auto* handle = Seam::Keep(new usb_device_s(device), true);
        std::string text = action ? action : "";
        receiver.first(handle, action ? &text[0] : nullptr, receiver.second);
        Seam::End("a USB notification", handle, true);
        script.lock.lock();
        m_running.erase(running);
        m_changed.notify_all();
    }
}

void FakePlatform::PostUsb(const Device& device, const std::string& action) {
    Seam::Post([this, device, action] { FireUsb(device, action.c_str()); });
}

}  // namespace fake
