// What a running process takes of the machine, read from /proc.
#ifndef TESTS_SERVICE_VITALS_H
#define TESTS_SERVICE_VITALS_H

#include <sys/types.h>

#include <map>
#include <set>
#include <string>

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
// How often each of its threads has gone to sleep by itself since it was made, by thread id.
std::map<pid_t, long> WakeUpsOf(pid_t process);
std::set<pid_t> ChildrenOf(pid_t process);
// What its descriptors stand for, one a line, sorted.
std::string DescriptorsOf(pid_t process);
std::string ThreadsOf(pid_t process);

}  // namespace test

#endif
