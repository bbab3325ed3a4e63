#include "MockDevices.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "Support/Basics.h"

const char* const kBus = "/devices/pci0000:00/usb1/";

std::string UsbText(const std::string& port, int address, const std::string& interfaceClass,
                    const std::string& protocol) {
    const std::string number = std::to_string(address);
    const std::string path = kBus + port;
    return "P: " + path + "\nN: bus/usb/001/00" + number +
           "\nE: SUBSYSTEM=usb\nE: DEVTYPE=usb_device\nE: DEVNAME=/dev/bus/usb/001/00" + number +
           "\nA: idVendor=0781\\n\nA: idProduct=5581\\n\nA: busnum=1\\n\nA: devnum=" + number +
           "\\n\nA: manufacturer=ACME  \\n\nA: product=Thing " + port + "\\n\nA: serial=S" +
           number + "\\n\n\nP: " + path + "/" + port +
           ":1.0\nE: SUBSYSTEM=usb\nE: DEVTYPE=usb_interface\nA: bInterfaceClass=" +
           interfaceClass + "\\n\nA: bInterfaceProtocol=" + protocol + "\\n\n\n";
}

std::string DiskPath(const std::string& port, const std::string& disk) {
    return kBus + port + "/" + port + ":1.0/host0/target0:0:0/0:0:0:0/block/" + disk;
}

std::string BlockText(const std::string& path, const std::string& type, int major, int minor,
                      const std::string& more) {
    const std::string name = std::filesystem::path(path).filename();
    return "P: " + path + "\nN: " + name + "\nE: SUBSYSTEM=block\nE: DEVTYPE=" + type +
           "\nE: DEVNAME=/dev/" + name + "\nE: MAJOR=" + std::to_string(major) +
           "\nE: MINOR=" + std::to_string(minor) + "\n" + more + "\n";
}

void MockDevices::Add(const std::string& devices) {
    GError* error = nullptr;
    ASSERT_TRUE(umockdev_testbed_add_from_string(m_testbed, devices.c_str(), &error))
        << error->message;
}

void MockDevices::Send(const std::string& path, const char* action) {
    umockdev_testbed_uevent(m_testbed, ("/sys" + path).c_str(), action);
}

void MockDevices::Remove(const std::string& path) {
    umockdev_testbed_remove_device(m_testbed, ("/sys" + path).c_str());
}

bool EnterOwnMountNamespace() {
    return unshare(CLONE_NEWNS) == 0 &&
           mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

int Shell(const std::string& command) {
    const int status = system((command + " 2>&1").c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void Unmount(const std::string& path) {
    int error = 0;
    test::Until([&] {
        error = umount(path.c_str()) == 0 ? 0 : errno;
        return error != EBUSY;
    });
    EXPECT_EQ(0, error) << path << ": " << strerror(error);
}
