// Mocked USB hardware, written down as text.
#ifndef TESTS_PLATFORM_USB_MOCK_DEVICES_H
#define TESTS_PLATFORM_USB_MOCK_DEVICES_H

#include <umockdev.h>

#include <string>

extern const char* const kBus;  // where the ports are

// A USB device at a port with one interface of that class.
std::string UsbText(const std::string& port, int address, const std::string& interfaceClass,
                    const std::string& protocol);

// A disk of the device at that port, and a disk or partition by its path.
std::string DiskPath(const std::string& port, const std::string& disk);
std::string BlockText(const std::string& path, const std::string& type, int major, int minor,
                      const std::string& more);

// The machine's devices while this exists. Whoever watches them must read events in time: the mock
// has room for about ten that are not read.
class MockDevices {
public:
    MockDevices() : m_testbed(umockdev_testbed_new()) {}
    ~MockDevices() { g_object_unref(m_testbed); }
    MockDevices(const MockDevices&) = delete;
    MockDevices& operator=(const MockDevices&) = delete;

    void Add(const std::string& devices);  // sends "add" for each
    void Send(const std::string& path, const char* action);
    void Remove(const std::string& path);  // sends nothing; of a tree the innermost first

private:
    UMockdevTestbed* const m_testbed;
};

// Gives the process mounts of its own. To be called before it has threads, since its mount table
// is that of its first one. False where that is not allowed.
bool EnterOwnMountNamespace();

// Runs a shell command; its exit status.
int Shell(const std::string& command);

// A folder that is just being listed makes the kernel refuse for that moment: not for good.
void Unmount(const std::string& path);

#endif
