// Objects that C callbacks look up by number.
#ifndef PLATFORM_PLIV_HOST_BY_NUMBER_H
#define PLATFORM_PLIV_HOST_BY_NUMBER_H

#include <glib.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_map>

namespace platform {

// A GDBus filter may still be running on GDBus's thread after it has been removed. Its user data is
// therefore not a pointer but a number that is never reused. Thread-safe.
template <typename Thing>
class ByNumber {
public:
    uintptr_t Add(const std::shared_ptr<Thing>& thing) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_things.emplace(++m_last, thing);
        return m_last;
    }
    void Remove(uintptr_t number) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_things.erase(number);
    }
    // Null when the object is gone.
    std::shared_ptr<Thing> Find(gpointer number) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const auto found = m_things.find(reinterpret_cast<uintptr_t>(number));
        return found == m_things.end() ? nullptr : found->second.lock();
    }

private:
    std::mutex m_mutex;
    uintptr_t m_last = 0;  // guarded by m_mutex, as is m_things
    std::unordered_map<uintptr_t, std::weak_ptr<Thing>> m_things;
};

}  // namespace platform

#endif
