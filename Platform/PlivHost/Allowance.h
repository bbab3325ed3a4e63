// The memory that the service holds for clients, counted and limited.
#ifndef PLATFORM_PLIV_HOST_ALLOWANCE_H
#define PLATFORM_PLIV_HOST_ALLOWANCE_H

#include <array>
#include <atomic>
#include <cstddef>
#include <memory>

namespace platform {

// The limit for all clients together, in bytes. Thread-safe.
struct Pool {
    explicit Pool(size_t bytes) : size(bytes) {}
    const size_t size;
    std::atomic<size_t> held{0};
};

// What the bytes are held for.
enum class Use {
    Message,  // answers and events that the client has not read
    Call,     // commands that are queued or running
    Work,     // what its engines keep
};

// One client's share of the pool. It is limited to half of what is still free: a single client gets
// up to a third of the pool, eight clients a tenth each, and some is always left for the next one.
// Calls and work are limited to a quarter, so that the events that they cause still fit. A small
// amount is always granted: a client that reads is never cut off, and one that keeps too much can
// still release it. Thread-safe; never waits.
class Allowance {
public:
    explicit Allowance(std::shared_ptr<Pool> pool);
    ~Allowance();  // everything is returned
    Allowance(const Allowance&) = delete;
    Allowance& operator=(const Allowance&) = delete;

    // Returns false, and counts nothing, when the limit would be exceeded. The first refusal of a
    // call or of work after a successful one is logged.
    bool Take(size_t bytes, Use use);
    void GiveBack(size_t bytes, Use use);

    size_t Held() const { return m_held; }

private:
    bool IsLittle(Use use) const;
    void NoteRefusal(size_t bytes);

    const std::shared_ptr<Pool> m_pool;
    std::atomic<size_t> m_held{0};
    std::array<std::atomic<size_t>, 3> m_heldFor{};  // the parts of m_held, by use
    std::atomic<bool> m_refusing{false};
};

// A number of bytes taken for a call, returned on destruction.
class Charge {
public:
    Charge() = default;
    // When the bytes are refused, it takes nothing and converts to false.
    Charge(std::shared_ptr<Allowance> allowance, size_t bytes);
    ~Charge();
    Charge(Charge&& other) noexcept;
    Charge& operator=(Charge&& other) noexcept;
    explicit operator bool() const { return m_allowance != nullptr; }

private:
    std::shared_ptr<Allowance> m_allowance;  // null: nothing was taken
    size_t m_bytes = 0;
};

}  // namespace platform

#endif
