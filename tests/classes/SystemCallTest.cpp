// Creating an object asks the system for nothing.
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <ormutil/ClassManager.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "TestFolder.h"
#include "support/Sanitizers.h"

namespace {

using orm::GetClassMgr;
using orm::String;

// Does the work in a child of this process that may make no system call while it does it. Returns the number
// of the first that it made, which ended it; -1 when there was none.
template <class Prepare, class Work>
long FirstSystemCall(Prepare prepare, Work work) {
  void* const shared = mmap(nullptr, sizeof(long), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  static long* first;
  first = static_cast<long*>(shared);
  *first = -1;
  const pid_t child = fork();
  if (child == 0) {
    struct sigaction action {};
    action.sa_flags = SA_SIGINFO;
    action.sa_sigaction = [](int, siginfo_t* info, void*) {
      *first = info->si_syscall;
      _exit(1);
    };
    sigaction(SIGSYS, &action, nullptr);
    prepare();
    // The time is asked without a call where the system can tell it so; where it cannot, that is no fault.
    sock_filter steps[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_exit_group, 2, 0),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_clock_gettime, 1, 0),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_TRAP),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog filter{std::size(steps), steps};
    prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    if (prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0) work();
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  const long result = *first;
  munmap(shared, sizeof(long));
  EXPECT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
  return result;
}

TEST(SystemCalls, AMillionObjectsNeedNoSystemCall) {
  if (test::IS_SANITIZED || test::IsUnderMemcheck())
    GTEST_SKIP() << "the allocators of the sanitizers and of memcheck make calls of their own";
  const auto nothing = [] {};
  if (FirstSystemCall(nothing, [] { getppid(); }) != SYS_getppid)
    GTEST_SKIP() << "calls cannot be caught here";
  TestFolder folder;
  folder.Add("alpha");
  const DWORD cookie = GetClassMgr()->Register(folder.GetPath());
  const String classId = "CID_Alpha", faceId = "IID_BaseFace";
  const auto create = [&](int count) {
    while (count-- > 0) GetClassMgr()->CreateInstance(classId, faceId);
  };
  create(1);
  EXPECT_EQ(FirstSystemCall([&] { create(10); }, [&] { create(1'000'000); }), -1);
  GetClassMgr()->Unregister(cookie);
}

}  // namespace
