// What clients make the service hold, counted and bounded.
#ifndef PLATFORM_PLIV_HOST_ALLOWANCE_H
#define PLATFORM_PLIV_HOST_ALLOWANCE_H

#include <array>
#include <atomic>
#include <cstddef>
#include <memory>

namespace platform {

// What all clients together may make the service hold, in bytes. Any thread.
struct Pool {
    explicit Pool(size_t bytes) : size(bytes) {}
    const size_t size;
    std::atomic<size_t> held{0};
};

// What a client makes the service hold bytes for.
enum class Use {
    Message,  // answers and events that it has not read
    Call,     // commands that wait or run
    Work,     // what its engines keep
};

// One client's part of it. It grows as long as others leave room: to half of what is still free,
// so one client alone gets to a third of the pool, eight to a tenth each, and there is always some
// left for the next one. Calls and work stop at a quarter, so that the events of what was granted
// still find room. A little is granted whatever others hold: a client that reads is never cut off,
// and one that keeps too much may still say so. Any thread; nothing waits.
class Allowance {
public:
    explicit Allowance(std::shared_ptr<Pool> pool);
    ~Allowance();  // all is given back
    Allowance(const Allowance&) = delete;
    Allowance& operator=(const Allowance&) = delete;

    // False, and nothing is counted, when that would be too much. The first refusal of a call or of
    // work after one was granted is logged.
    bool Take(size_t bytes, Use use);
    void GiveBack(size_t bytes, Use use);

    size_t Held() const { return m_held; }

private:
    bool IsLittle(Use use) const;
    void NoteRefusal(size_t bytes);

    const std::shared_ptr<Pool> m_pool;
    std::atomic<size_t> m_held{0};
    std::array<std::atomic<size_t>, 3> m_heldFor{};  // of that, by use
    std::atomic<bool> m_refusing{false};
};

// A number of bytes taken for a call, given back with the object.
class Charge {
public:
    Charge() = default;
    // Takes nothing, and is false, when that is refused.
    Charge(std::shared_ptr<Allowance> allowance, size_t bytes);
    ~Charge();
    Charge(Charge&& other) noexcept;
    Charge& operator=(Charge&& other) noexcept;
    explicit operator bool() const { return m_allowance != nullptr; }

private:
    std::shared_ptr<Allowance> m_allowance;  // null: nothing taken
    size_t m_bytes = 0;
};

}  // namespace platform

#endif
