// What a process inside the fence can not do. What it still can, each file that is read shows.
#include "MediaContent/Extract/Sandbox.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <new>

namespace {

// Runs `attempt` in a process inside the fence. Returns its exit status, or minus the signal that
// ended it.
int Inside(const std::function<int()>& attempt) {
    const pid_t pid = fork();
    if (pid == 0) _exit(platform::EnterSandbox() ? attempt() : 200);
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

// 0 when it worked, else why not.
int Why(bool worked) {
    return worked ? 0 : errno;
}

TEST(SandboxTest, FilesProcessesAndSocketsAreOutOfReach) {
    const std::function<int()> attempts[] = {
        [] { return Why(open("/etc/passwd", O_RDONLY) >= 0); },
        [] { return Why(open("/tmp/extract-escape", O_WRONLY | O_CREAT, 0600) >= 0); },
        [] { return Why(write(STDOUT_FILENO, "x", 1) == 1); },
        [] { return Why(unlink("/tmp/no-such-file") == 0 || errno == ENOENT); },
        [] { return Why(kill(getppid(), 0) == 0); },
        [] { return Why(fork() >= 0); },
        [] {
            return Why(mmap(nullptr, 4096, PROT_READ | PROT_EXEC, MAP_PRIVATE | MAP_ANONYMOUS, -1,
                            0) != MAP_FAILED);
        },
        [] { return Why(dup(STDIN_FILENO) >= 0); },
    };
    for (const auto& attempt : attempts) EXPECT_EQ(Inside(attempt), EPERM) << &attempt - attempts;
}

TEST(SandboxTest, AnAttackEndsTheProcess) {
    const std::function<int()> attempts[] = {
        [] { return execl("/bin/true", "true", nullptr); },
        [] { return socket(AF_INET, SOCK_STREAM, 0); },
        [] { return socket(AF_UNIX, SOCK_STREAM, 0); },
    };
    for (const auto& attempt : attempts) EXPECT_EQ(Inside(attempt), -SIGSYS) << &attempt - attempts;
}

TEST(SandboxTest, MemoryIsBounded) {
    EXPECT_EQ(Inside([] {
                  const size_t tooMuch = platform::kHelperAddressSpace;
                  return ::operator new(tooMuch, std::nothrow) == nullptr ? 0 : 1;
              }),
              0);
}

}  // namespace
