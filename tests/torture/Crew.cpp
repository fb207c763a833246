#include "Crew.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <fstream>
#include <iterator>
#include <utility>

#include "Audit.h"
#include "Operations.h"

namespace torture {

Crew::~Crew() {
  for (unsigned i = 0; i < mWorkers; ++i) Kill(i);
}

void Crew::Start(unsigned account) {
  Account& state = mrLedger.accounts[account];
  const unsigned incarnation = ++state.incarnation;
  state.operation = 0;
  // A line that its predecessor did not finish is in the log by now or never will be.
  state.seenLine = state.line.intended.load();
  const std::string number = std::to_string(account);
  const std::string seed = std::to_string(mSeed + incarnation * MOST_WORKERS + account);
  const pid_t parent = getpid();
  const pid_t process = fork();
  if (process == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(1);
    execl(mProgram.c_str(), mProgram.c_str(), number.c_str(), seed.c_str(), static_cast<char*>(nullptr));
    _exit(127);
  }
  if (process < 0) throw Fault("no process can be started");
  mCrew[account] = {process, 0, 0};
}

void Crew::Kill(unsigned account) {
  const pid_t process = std::exchange(mCrew[account].process, 0);
  if (process <= 0) return;
  kill(process, SIGKILL);
  int status = 0;
  waitpid(process, &status, 0);
  // It may have failed just before.
  if (!WIFSIGNALED(status) || WTERMSIG(status) != SIGKILL) ReportEnd(account, status);
}

void Crew::Close() {
  mrLedger.isClosing = 1;
  for (unsigned i = 0; i < mWorkers; ++i) {
    Worker& worker = mCrew[i];
    int status = 0;
    for (unsigned tick = 0; worker.process > 0 && waitpid(worker.process, &status, WNOHANG) == 0; ++tick) {
      if (tick > MOST_TICKS) throw Fault("worker " + std::to_string(i) + " does not end");
      usleep(TICK * 1000);
    }
    if (std::exchange(worker.process, 0) > 0 && status != 0) ReportEnd(i, status);
  }
  mrLedger.isClosing = 0;
}

void Crew::Watch() {
  for (unsigned i = 0; i < mWorkers; ++i) {
    Worker& worker = mCrew[i];
    if (worker.process <= 0) continue;
    int status = 0;
    if (waitpid(worker.process, &status, WNOHANG) == worker.process) {
      worker.process = 0;
      ReportEnd(i, status);
    }
    const Account& account = mrLedger.accounts[i];
    const uint64_t operation = account.operations;
    const bool stays = operation == std::exchange(worker.operation, operation);
    worker.sleeping = stays && IsAsleep(worker.process) ? worker.sleeping + 1 : 0;
    if (worker.sleeping <= mLongestSleep) continue;
    mLongestSleep = worker.sleeping;
    mLongestSleepName = NameOf(account.operation);
    if (mLongestSleep < MOST_TICKS) continue;
    throw Fault("worker " + std::to_string(i) + " hangs while " + mLongestSleepName);
  }
}

void Crew::ReportEnd(unsigned account, int status) {
  const std::string how = WIFSIGNALED(status) ? "signal " + std::to_string(WTERMSIG(status))
                                              : "code " + std::to_string(WEXITSTATUS(status));
  throw Fault("worker " + std::to_string(account) + " ended with " + how + " while " +
              NameOf(mrLedger.accounts[account].operation));
}

// The state follows the program's name, which stands in brackets.
bool Crew::IsAsleep(pid_t process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/stat");
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  const size_t bracket = text.rfind(") ");
  return bracket != std::string::npos && text[bracket + 2] == 'S';
}

}  // namespace torture
