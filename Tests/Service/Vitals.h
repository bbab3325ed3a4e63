// What a running process takes of the machine, read from /proc.
#ifndef TESTS_SERVICE_VITALS_H
#define TESTS_SERVICE_VITALS_H

#include <sys/types.h>

#include <set>

namespace test {

struct Vitals {
    long residentKiB = 0;  // all resident pages
    long peakKiB = 0;      // the most that they have been
    long privateKiB = 0;   // of these, memory of its own: heap and stacks
    long threads = 0;
    long descriptors = 0;
    long children = 0;  // zombies included
};

// All zero for a process that is gone. Any thread.
Vitals ReadVitals(pid_t process);
std::set<pid_t> ChildrenOf(pid_t process);

}  // namespace test

#endif
