// Clients at work on threads of their own while a test does something else.
#ifndef TESTS_SERVICE_CREW_H
#define TESTS_SERVICE_CREW_H

#include <gtest/gtest.h>
#include <stdlib.h>

#include <atomic>
#include <thread>
#include <vector>

namespace test {

// The variable as a number: how long a long test takes is the runner's business.
inline int FromEnvironment(const char* name, int otherwise) {
    const char* text = getenv(name);
    return text ? atoi(text) : otherwise;
}

// Told to stop and joined at its end. What a member throws fails the test.
class Crew {
public:
    // `body` takes the flag that tells it to stop.
    template <typename Body>
    void Add(Body body) {
        m_threads.emplace_back([this, body] {
            try {
                body(m_stop);
            } catch (const std::exception& error) {
                ADD_FAILURE() << error.what();
            }
        });
    }
    ~Crew() {
        m_stop = true;
        for (auto& thread : m_threads) thread.join();
    }

private:
    std::atomic<bool> m_stop{false};
    std::vector<std::thread> m_threads;
};

}  // namespace test

#endif
