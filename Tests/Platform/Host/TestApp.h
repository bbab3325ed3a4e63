// An application object whose engines do what a host test needs.
#ifndef TESTS_PLATFORM_HOST_TEST_APP_H
#define TESTS_PLATFORM_HOST_TEST_APP_H

#include <atomic>
#include <string>
#include <thread>

#include "PlivHost.h"
#include "Support/Gate.h"

namespace test {

class TestApp : public dorn::CPlivAppBase {
public:
    TestApp();
    dorn::CPlivEngineBase* CreatePlivEngine() override;

    Gate gate;
    std::atomic<int> live{0};      // engines that exist
    std::atomic<int> overlaps{0};  // commands that met another of the same engine: a fault
    std::atomic<int> executed{0};
    std::atomic<bool> refuse{false};  // make no engine
    std::atomic<bool> throws{false};  // throw instead

    void NoteDestruction(std::thread::id maker);
    std::atomic<int> foreignDestructions{0};  // engines destroyed by another thread than made them
};

}  // namespace test

#endif
