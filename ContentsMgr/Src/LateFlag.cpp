#include "LateFlag.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <type_traits>
#include <vector>

namespace dorn {

// The byte comes first: callbacks only know its address.
struct LateFlag::Byte {
    unsigned char value = 0;
    std::atomic<int> references{1};
};

namespace {

bool Load(const void* byte) {
    return __atomic_load_n(static_cast<const unsigned char*>(byte), __ATOMIC_ACQUIRE) != 0;
}

// Bytes whose single callback is still to come. Bytes that have been set are freed when the next
// one is parked, so the number kept is bounded by the outstanding callbacks.
class Parking {
public:
    void Park(void* byte) {
        std::lock_guard<std::mutex> lock(m_mutex);
        const auto done = std::remove_if(m_bytes.begin(), m_bytes.end(), [](void* parked) {
            if (!Load(parked)) return false;
            LateFlag::Unref(parked);
            return true;
        });
        m_bytes.erase(done, m_bytes.end());
        m_bytes.push_back(byte);
    }

private:
    std::mutex m_mutex;
    std::vector<void*> m_bytes;
};

Parking& TheParking() {
    static Parking* parking = new Parking;  // outlives every thread
    return *parking;
}

}  // namespace

LateFlag::LateFlag() : m_byte(new Byte) {
    static_assert(std::is_standard_layout<Byte>::value, "the byte must lie at the block's address");
}

LateFlag::~LateFlag() {
    if (m_single && !IsSet())
        TheParking().Park(m_byte);
    else
        Unref(m_byte);
}

bool LateFlag::IsSet() const {
    return Load(m_byte);
}

void* LateFlag::ForSingleCallback() {
    m_single = true;
    return m_byte;
}

void LateFlag::NoCallback() {
    m_single = false;
}

void* LateFlag::ForSource() {
    m_byte->references.fetch_add(1);
    return m_byte;
}

void LateFlag::Unref(void* byte) {
    auto* block = static_cast<Byte*>(byte);
    if (block->references.fetch_sub(1) == 1) delete block;
}

void LateFlag::Set(void* byte) {
    __atomic_store_n(static_cast<unsigned char*>(byte), static_cast<unsigned char>(1),
                     __ATOMIC_RELEASE);
}

}  // namespace dorn
