#include "PlivHost/Allowance.h"

#include <utility>

#include "Log/Log.h"
#include "PlivHost/Names.h"

namespace platform {
namespace {

// A client may have one such fraction of what is free.
size_t Parts(Use use) {
    return use == Use::Message ? 2 : 4;
}

}  // namespace

Allowance::Allowance(std::shared_ptr<Pool> pool) : m_pool(std::move(pool)) {}

Allowance::~Allowance() {
    m_pool->held -= m_held;
}

// Room for two pages of a thousand photos, or for a dozen typical commands.
bool Allowance::IsLittle(Use use) const {
    const size_t held = m_heldFor[static_cast<size_t>(use)];
    return (use == Use::Message && held <= size_t{1} << 20) ||
           (use == Use::Call && held <= size_t{16} << 10);
}

// Counts first, so that two threads cannot both be granted the same remaining bytes.
bool Allowance::Take(size_t bytes, Use use) {
    m_heldFor[static_cast<size_t>(use)] += bytes;
    const size_t own = m_held += bytes;
    const size_t all = m_pool->held += bytes;
    if ((all <= m_pool->size && own <= (m_pool->size - all) / Parts(use)) || IsLittle(use)) {
        if (use != Use::Message) m_refusing = false;
        return true;
    }
    GiveBack(bytes, use);
    if (use != Use::Message) NoteRefusal(bytes);
    return false;
}

void Allowance::GiveBack(size_t bytes, Use use) {
    m_heldFor[static_cast<size_t>(use)] -= bytes;
    m_held -= bytes;
    m_pool->held -= bytes;
}

void Allowance::NoteRefusal(size_t bytes) {
    if (m_refusing.exchange(true)) return;
    PLATFORM_LOG(
        kLogTag, LOG_WARNING,
        "a client's commands are refused: %zu bytes more were wanted, it makes the service "
        "hold %zu, all clients together %zu",
        bytes, m_held.load(), m_pool->held.load());
}

Charge::Charge(std::shared_ptr<Allowance> allowance, size_t bytes) : m_bytes(bytes) {
    if (allowance->Take(bytes, Use::Call)) m_allowance = std::move(allowance);
}

Charge::~Charge() {
    if (m_allowance) m_allowance->GiveBack(m_bytes, Use::Call);
}

Charge::Charge(Charge&& other) noexcept
    : m_allowance(std::exchange(other.m_allowance, nullptr)), m_bytes(other.m_bytes) {}

Charge& Charge::operator=(Charge&& other) noexcept {
    std::swap(m_allowance, other.m_allowance);
    std::swap(m_bytes, other.m_bytes);
    return *this;
}

}  // namespace platform
