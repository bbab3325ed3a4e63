// Base of every test that runs against the scripted platform.
#ifndef FAKE_PLATFORM_TEST_H
#define FAKE_PLATFORM_TEST_H

#include <gtest/gtest.h>

#include "FakePlatform.h"

namespace fake {

// Starts with an empty platform. At the end of each test nothing may be left: no handle, no
// thread, no USB receiver. Everything that the test made must be gone by then, so engines belong
// into the test's body, not into a fixture's members.
class PlatformTest : public ::testing::Test {
protected:
    PlatformTest();
    void TearDown() override;

    // So many more threads than when the test began; waits for it, false at the deadline.
    bool HasThreads(int count) const;

    FakePlatform& platform = FakePlatform::Get();
    int keptRecords = 0;  // clones of media records that are kept on purpose

private:
    int m_threads;
};

// Waits until `condition` holds; false at the deadline. For what nobody announces.
bool WaitUntil(const std::function<bool()>& condition);

}  // namespace fake

#endif
