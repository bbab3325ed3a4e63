#include "Recorder.h"

#include <glib.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

namespace {

std::string Take(int (*get)(usb_device_s*, char**), usb_device_s* device) {
    char* text = nullptr;
    EXPECT_EQ(0, get(device, &text));
    const std::string copy = text;
    free(text);
    return copy;
}

template <typename Value>
int Take(int (*get)(usb_device_s*, Value*), usb_device_s* device) {
    Value value{};
    EXPECT_EQ(0, get(device, &value));
    return static_cast<int>(value);
}

std::string Describe(usb_device_s* device) {
    std::ostringstream line;
    line << Take(usb_device_get_devname, device) << ' ' << Take(usb_device_get_manufacturer, device)
         << '/' << Take(usb_device_get_product, device) << '/'
         << Take(usb_device_get_serial, device) << " \"" << Take(usb_device_get_partlabel, device)
         << "\" " << std::hex << Take(usb_device_get_vendor_id, device) << std::dec << ' '
         << Take(usb_device_get_bus, device) << ':' << Take(usb_device_get_address, device) << ' '
         << Take(usb_device_get_class, device) << '.' << Take(usb_device_get_protocol, device)
         << " #" << Take(usb_device_get_number, device) << " disk "
         << Take(usb_mass_storage_get_disk_type, device) << " fs "
         << Take(usb_mass_storage_get_filesystem_type, device) << " at "
         << Take(usb_device_get_mountpath, device);
    return line.str();
}

// Each thread of the service has a name of its own.
int CountServiceThreads() {
    int count = 0;
    for (const auto& task : fs::directory_iterator("/proc/self/task")) {
        std::string name;
        std::getline(std::ifstream(task.path() / "comm"), name);
        count += name.rfind("usb-", 0) == 0;
    }
    return count;
}

// Without event descriptors: GLib's own worker makes some whenever it starts.
int CountDescriptors() {
    int count = 0;
    for (const auto& descriptor : fs::directory_iterator("/proc/self/fd")) {
        std::error_code gone;  // the one that lists them
        const std::string target = fs::read_symlink(descriptor, gone).string();
        count += target.find("[eventfd]") == std::string::npos;
    }
    return count;
}

}  // namespace

Journal& Journal::Instance() {
    static Journal journal;
    return journal;
}

void Journal::Add(const std::string& line) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_lines.push_back(line);
    m_added.notify_all();
}

Strings Journal::Lines() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_lines;
}

void Journal::Clear() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_lines.clear();
    m_storages.clear();
    m_unscanned.clear();
    holdStorageMounted = false;
    holdContentChanged = false;
}

bool Journal::WaitForAny(const Strings& lines, int times) {
    std::unique_lock<std::mutex> lock(m_mutex);
    const auto came = [&] {
        return std::any_of(lines.begin(), lines.end(), [&](const std::string& line) {
            return std::count(m_lines.begin(), m_lines.end(), line) >= times;
        });
    };
    if (m_added.wait_for(lock, test::kDeadline, came)) return true;
    ADD_FAILURE() << ::testing::PrintToString(lines) << " never came " << times
                  << " times; the journal holds " << ::testing::PrintToString(m_lines);
    return false;
}

platform::MountedStorage Journal::StorageAt(const std::string& path) {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_storages.at(path);
}

void Journal::SetStorage(const platform::MountedStorage& storage) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_storages[storage.mountPath] = storage;
    m_unscanned.insert(storage.mountPath);
}

bool Journal::TakeFirstScan(const std::string& path) {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_unscanned.erase(path) > 0;
}

// The stand-in for the media database.
namespace platform {

void StorageMounted(const MountedStorage& storage) {
    if (Journal::Instance().holdStorageMounted)
        Journal::Instance().Add("held " + storage.mountPath);
    while (Journal::Instance().holdStorageMounted) std::this_thread::yield();
    Journal::Instance().SetStorage(storage);
    Journal::Instance().Add("db+ " + storage.mountPath);
}

void StorageUnmounted(const std::string& mountPath) {
    Journal::Instance().Add("db- " + mountPath);
}

void StorageContentChanged(const std::string& mountPath, const std::vector<std::string>& paths) {
    if (Journal::Instance().holdContentChanged) Journal::Instance().Add("held " + mountPath);
    while (Journal::Instance().holdContentChanged) std::this_thread::yield();
    if (paths.empty() && !Journal::Instance().TakeFirstScan(mountPath))
        Journal::Instance().Add("anything on " + mountPath);
    for (const std::string& path : paths) {
        EXPECT_EQ(0u, path.find(mountPath));
        Journal::Instance().Add("changed " + path);
    }
}

}  // namespace platform

MainLoop::MainLoop()
    : m_thread([this] {
          while (!m_ending) g_main_context_iteration(nullptr, TRUE);
      }) {}

MainLoop::~MainLoop() {
    m_ending = true;
    g_main_context_wakeup(nullptr);
    m_thread.join();
}

Strings ListDevices(int deviceClass) {
    Strings seen;
    usb_device_list_s* list = nullptr;
    if (usb_device_get_device_list(static_cast<usb_class_e>(deviceClass), &list) != 0) {
        ADD_FAILURE() << "no device list";
        return seen;
    }
    usb_device_s* device = nullptr;
    int result = usb_device_list_get_first(list, &device);
    for (; result == 0; result = usb_device_list_get_next(list, &device))
        seen.push_back(Describe(device));
    EXPECT_EQ(USB_DEVICE_ERROR_NO_DEVICE, result);
    int count = -1;
    EXPECT_EQ(0, usb_device_list_get_count(list, &count));
    EXPECT_EQ(static_cast<int>(seen.size()), count);
    EXPECT_EQ(0, usb_device_free_device_list(list));
    return seen;
}

std::string NameOf(usb_device_s* device) {
    const std::string path = Take(usb_device_get_mountpath, device);
    return path == "n/a" ? Take(usb_device_get_product, device)
                         : fs::path(path).filename().string();
}

void RecordChange(usb_device_s* device, char* action, void*) {
    Journal::Instance().Add(std::string(action) + " " + NameOf(device));
}

void UsbTest::SetUp() {
    Journal::Instance().Clear();
    fs::create_directory(root);
    g_main_context_iteration(nullptr, FALSE);  // what GLib opens once is not counted below
    m_descriptors = CountDescriptors();
}

void UsbTest::TearDown() {
    usb_unset_connected_cb(RecordChange, nullptr);
    platform::ShutdownUsbService();
    m_loop.reset();
    // The kernel lists a thread that was joined for a moment longer.
    EXPECT_TRUE(test::Until([] { return CountServiceThreads() == 0; }));
    EXPECT_EQ(m_descriptors, CountDescriptors());
}

void UsbTest::Start(platform::UsbBackEnd backEnd) {
    platform::UsbServiceOptions options;
    options.backEnd = backEnd;
    options.root = root.string();
    options.mountTable = mountTable;
    platform::ConfigureUsbService(options);
    if (!m_loop) m_loop = std::make_unique<MainLoop>();
    ASSERT_EQ(0, usb_set_connected_cb(RecordChange, nullptr));
    ASSERT_EQ(0, usb_device_init());
}

void UsbTest::WriteFile(const std::string& name, const std::string& content) {
    std::ofstream(root / name) << content;
}

void UsbTest::MakeFolders(const Strings& names) {
    for (const std::string& name : names) fs::create_directories(root / name);
}

bool UsbTest::SawChangeIn(const std::string& name, const std::string& file) {
    const std::string line = "changed " + PathOf(name);
    return Journal::Instance().WaitForAny({line, line + "/" + file});
}
