// What clients make the service hold, counted and bounded.
#ifndef PLATFORM_PLIV_HOST_ALLOWANCE_H
#define PLATFORM_PLIV_HOST_ALLOWANCE_H

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

// One client's part of it. It grows as long as others leave room: to half of what is still free,
// so one client alone gets to a third of the pool, eight to a tenth each, and there is always some
// left for the next one. Commands stop at a quarter, so that the events of what was granted still
// find room. Any thread; nothing waits.
class Allowance {
public:
    enum class Use { Command, Message };

    explicit Allowance(std::shared_ptr<Pool> pool);
    ~Allowance();  // all is given back
    Allowance(const Allowance&) = delete;
    Allowance& operator=(const Allowance&) = delete;

    // False, and nothing is counted, when that would be too much. The first refusal of a command
    // after one was granted is logged.
    bool Take(size_t bytes, Use use);
    void GiveBack(size_t bytes);

    size_t Held() const { return m_held; }

private:
    void NoteRefusal(size_t bytes);

    const std::shared_ptr<Pool> m_pool;
    std::atomic<size_t> m_held{0};
    std::atomic<bool> m_refusing{false};
};

// A number of bytes taken for a command, given back with the object.
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
