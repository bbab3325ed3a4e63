#include "MediaContent/Extract/Sandbox.h"

#include <seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

#include "MediaContent/Extract/Protocol.h"

namespace platform {
namespace {

#ifdef CM_SANITIZED
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

bool Limit(__rlimit_resource resource, uint64_t value) {
    const rlimit limit = {value, value};
    return setrlimit(resource, &limit) == 0;
}

bool SetLimits() {
    return (kSanitized || Limit(RLIMIT_AS, kHelperAddressSpace)) &&
           Limit(RLIMIT_CPU, kHelperCpuSeconds) && Limit(RLIMIT_CORE, 0) &&
           Limit(RLIMIT_FSIZE, 0) && Limit(RLIMIT_NOFILE, 16 + kMaxBatch) && Limit(RLIMIT_NPROC, 0);
}

using Filter = std::unique_ptr<void, decltype(&seccomp_release)>;

// A system call that this architecture lacks needs no rule.
bool Added(int result) {
    return result == 0 || result == -EDOM;
}

bool Rule(const Filter& filter, uint32_t action, int call) {
    return Added(seccomp_rule_add(filter.get(), action, call, 0));
}

bool Rule(const Filter& filter, uint32_t action, int call, scmp_arg_cmp argument) {
    return Added(seccomp_rule_add(filter.get(), action, call, 1, argument));
}

// libseccomp's macros leave out the fourth field if a comparison does not need it.
scmp_arg_cmp Argument(unsigned number, scmp_compare comparison, scmp_datum_t a,
                      scmp_datum_t b = 0) {
    return {number, comparison, a, b};
}

bool AllowMemory(const Filter& filter) {
    for (const int call : {SCMP_SYS(munmap), SCMP_SYS(mremap), SCMP_SYS(madvise), SCMP_SYS(brk)}) {
        if (!Rule(filter, SCMP_ACT_ALLOW, call)) return false;
    }
    // Never executable memory.
    const scmp_arg_cmp noExec = Argument(2, SCMP_CMP_MASKED_EQ, PROT_EXEC);
    return Rule(filter, SCMP_ACT_ALLOW, SCMP_SYS(mmap), noExec) &&
           Rule(filter, SCMP_ACT_ALLOW, SCMP_SYS(mmap2), noExec) &&
           Rule(filter, SCMP_ACT_ALLOW, SCMP_SYS(mprotect), noExec);
}

bool AllowProcess(const Filter& filter) {
    for (const int call :
         {SCMP_SYS(exit), SCMP_SYS(exit_group), SCMP_SYS(rt_sigreturn), SCMP_SYS(rt_sigprocmask),
          SCMP_SYS(restart_syscall), SCMP_SYS(futex), SCMP_SYS(getpid), SCMP_SYS(gettid),
          SCMP_SYS(setitimer), SCMP_SYS(getrusage), SCMP_SYS(clock_gettime),
          SCMP_SYS(clock_gettime64), SCMP_SYS(futex_time64), SCMP_SYS(gettimeofday), SCMP_SYS(time),
          SCMP_SYS(getrandom), SCMP_SYS(sched_yield), SCMP_SYS(sched_getaffinity)}) {
        if (!Rule(filter, SCMP_ACT_ALLOW, call)) return false;
    }
    // abort() signals the process itself.
    return Rule(filter, SCMP_ACT_ALLOW, SCMP_SYS(tgkill),
                Argument(0, SCMP_CMP_EQ, static_cast<scmp_datum_t>(getpid())));
}

bool AllowReading(const Filter& filter) {
    const scmp_arg_cmp socketOnly = Argument(0, SCMP_CMP_EQ, kHelperSocketFd);
    const scmp_arg_cmp errorsOnly = Argument(0, SCMP_CMP_EQ, STDERR_FILENO);
    return Rule(filter, SCMP_ACT_ALLOW, SCMP_SYS(pread64)) &&
           Rule(filter, SCMP_ACT_ALLOW, SCMP_SYS(fadvise64)) &&
           Rule(filter, SCMP_ACT_ALLOW, SCMP_SYS(close)) &&
           Rule(filter, SCMP_ACT_ALLOW, SCMP_SYS(recvmsg), socketOnly) &&
           Rule(filter, SCMP_ACT_ALLOW, SCMP_SYS(sendto), socketOnly) &&
           Rule(filter, SCMP_ACT_ALLOW, SCMP_SYS(write), errorsOnly);
}

// A file reader needs none of these calls: a process that makes one has been taken over.
bool KillOnAttack(const Filter& filter) {
    for (const int call :
         {SCMP_SYS(execve), SCMP_SYS(execveat), SCMP_SYS(ptrace), SCMP_SYS(process_vm_readv),
          SCMP_SYS(process_vm_writev), SCMP_SYS(socket), SCMP_SYS(connect), SCMP_SYS(bpf),
          SCMP_SYS(mount), SCMP_SYS(init_module), SCMP_SYS(finit_module), SCMP_SYS(kexec_load)}) {
        if (!Rule(filter, SCMP_ACT_KILL_PROCESS, call)) return false;
    }
    return true;
}

// A system call without a rule fails with "not permitted": a C library that tries a new one copes,
// and the file is still read.
bool LoadFilter() {
    const Filter filter(seccomp_init(SCMP_ACT_ERRNO(EPERM)), &seccomp_release);
    return filter && AllowMemory(filter) && AllowProcess(filter) && AllowReading(filter) &&
           KillOnAttack(filter) && seccomp_load(filter.get()) == 0;
}

}  // namespace

bool EnterSandbox() {
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 || !SetLimits()) return false;
    return kSanitized || LoadFilter();
}

}  // namespace platform
