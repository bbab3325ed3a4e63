#include "Recorder.h"

#include <glib.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>

namespace fs = std::filesystem;

namespace {

constexpr std::chrono::seconds kDeadline{10};

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

std::vector<std::string> Journal::Lines() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_lines;
}

void Journal::Clear() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_lines.clear();
    m_storages.clear();
    holdStorageMounted = false;
    holdContentChanged = false;
}

bool Journal::WaitUntil(const std::function<bool(const std::vector<std::string>&)>& condition) {
    std::unique_lock<std::mutex> lock(m_mutex);
    if (m_added.wait_for(lock, kDeadline, [&] { return condition(m_lines); })) return true;
    std::string all;
    for (const std::string& line : m_lines) all += line + "\n";
    ADD_FAILURE() << "it never came; the journal holds:\n" << all;
    return false;
}

bool Journal::WaitFor(const std::string& line) {
    SCOPED_TRACE("waiting for: " + line);
    return WaitUntil([&](const std::vector<std::string>& lines) {
        return std::find(lines.begin(), lines.end(), line) != lines.end();
    });
}

std::map<std::string, platform::MountedStorage> Journal::Storages() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_storages;
}

void Journal::SetStorage(const platform::MountedStorage& storage) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_storages[storage.mountPath] = storage;
}

// The stand-in for the media database.
namespace platform {

void StorageMounted(const MountedStorage& storage) {
    while (Journal::Instance().holdStorageMounted) std::this_thread::yield();
    Journal::Instance().SetStorage(storage);
    Journal::Instance().Add("db+ " + storage.mountPath);
}

void StorageAnnounced(const std::string&) {}

void StorageUnmounted(const std::string& mountPath) {
    Journal::Instance().Add("db- " + mountPath);
}

void StorageContentChanged(const std::string& mountPath, const std::vector<std::string>& paths) {
    if (Journal::Instance().holdContentChanged) Journal::Instance().Add("held " + mountPath);
    while (Journal::Instance().holdContentChanged) std::this_thread::yield();
    if (paths.empty()) Journal::Instance().Add("anything on " + mountPath);
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

Seen Read(usb_device_s* device) {
    Seen seen;
    seen.name = Take(usb_device_get_devname, device);
    seen.vendor = Take(usb_device_get_manufacturer, device);
    seen.product = Take(usb_device_get_product, device);
    seen.serial = Take(usb_device_get_serial, device);
    seen.mountPath = Take(usb_device_get_mountpath, device);
    seen.label = Take(usb_device_get_partlabel, device);
    seen.vendorId = Take(usb_device_get_vendor_id, device);
    seen.address = Take(usb_device_get_address, device);
    seen.bus = Take(usb_device_get_bus, device);
    seen.deviceClass = Take(usb_device_get_class, device);
    seen.protocol = Take(usb_device_get_protocol, device);
    seen.number = Take(usb_device_get_number, device);
    seen.diskType = Take(usb_mass_storage_get_disk_type, device);
    seen.fileSystem = Take(usb_mass_storage_get_filesystem_type, device);
    return seen;
}

std::vector<Seen> ListDevices(int deviceClass) {
    std::vector<Seen> seen;
    usb_device_list_s* list = nullptr;
    if (usb_device_get_device_list(static_cast<usb_class_e>(deviceClass), &list) != 0) {
        ADD_FAILURE() << "no device list";
        return seen;
    }
    usb_device_s* device = nullptr;
    int result = usb_device_list_get_first(list, &device);
    for (; result == 0; result = usb_device_list_get_next(list, &device))
        seen.push_back(Read(device));
    EXPECT_EQ(USB_DEVICE_ERROR_NO_DEVICE, result);
    int count = -1;
    EXPECT_EQ(0, usb_device_list_get_count(list, &count));
    EXPECT_EQ(static_cast<int>(seen.size()), count);
    EXPECT_EQ(0, usb_device_free_device_list(list));
    return seen;
}

std::string NameOf(const Seen& device) {
    return device.mountPath == "n/a" ? device.product
                                     : fs::path(device.mountPath).filename().string();
}

void RecordChange(usb_device_s* device, char* action, void*) {
    Journal::Instance().Add(std::string(action) + " " + NameOf(Read(device)));
}

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

bool Eventually(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + kDeadline;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::yield();
    }
    return true;
}

void UsbTest::SetUp() {
    Journal::Instance().Clear();
    std::string pattern = (fs::temp_directory_path() / "usb-test-XXXXXX").string();
    folder = mkdtemp(&pattern[0]);
    root = folder / "usb";
    fs::create_directory(root);
    g_main_context_iteration(nullptr, FALSE);  // what GLib opens once is not counted below
    m_descriptors = CountDescriptors();
}

void UsbTest::TearDown() {
    usb_unset_connected_cb(RecordChange, nullptr);
    platform::ShutdownUsbService();
    m_loop.reset();
    // The kernel lists a thread that was joined for a moment longer.
    EXPECT_TRUE(Eventually([] { return CountServiceThreads() == 0; }));
    EXPECT_EQ(m_descriptors, CountDescriptors());
    fs::remove_all(folder);
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
