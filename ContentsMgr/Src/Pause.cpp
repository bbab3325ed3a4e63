#include "Pause.h"

#include <atomic>

namespace dorn {
namespace {

std::atomic<int> g_unitMilliseconds{1000};
constexpr int kScanTimeoutSeconds = 60;

}  // namespace

void SetPauseUnit(std::chrono::milliseconds unit) {
    g_unitMilliseconds = static_cast<int>(unit.count());
}

std::chrono::milliseconds PauseUnit() {
    return std::chrono::milliseconds(g_unitMilliseconds.load());
}

guint ScanTimeoutMilliseconds() {
    return static_cast<guint>(kScanTimeoutSeconds * g_unitMilliseconds.load());
}

void StopSignal::Raise() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_raised = true;
    m_changed.notify_all();
}

void StopSignal::Clear() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_raised = false;
}

bool StopSignal::Pause() {
    std::unique_lock<std::mutex> lock(m_mutex);
    return !m_changed.wait_for(lock, PauseUnit(), [this] { return m_raised; });
}

}  // namespace dorn
