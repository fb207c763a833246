// Processes that share everything that the library shares, under a killer:
//
//   torture [--seconds N] [--seed S]
//
// Runs phases of 2, 4 and 8 workers on the machine that ORM_MACHINE names. Within a phase workers are killed
// at random moments, one at a time or all but the first; a phase ends with all of them killed or all told to
// end, and then this program starts itself anew, so that for a moment nobody holds anything. After every kill
// it looks at what the dead left and at the machine (Audit). Ends with 1 and the seed when something is
// wrong.
#include <ormutil/Error.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <random>
#include <thread>

#include "Audit.h"
#include "Crew.h"
#include "Operations.h"
#include "classes/ErrorText.h"
#include "support/TraceConfig.h"

namespace torture {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// Carried from one start of the program to the next as its arguments.
struct Plan {
  unsigned seconds = 30;
  unsigned seed = std::random_device()();
  unsigned phase = 0;
  unsigned kills = 0;
  long long end = 0;  // milliseconds of the steady clock

  unsigned GetWorkers() const { return 2u << phase % 3; }
  milliseconds GetPhaseLength() const { return milliseconds(std::max(seconds * 1000 / 12, 2000u)); }
};

long long Now() {
  return std::chrono::duration_cast<milliseconds>(Clock::now().time_since_epoch()).count();
}

Plan ReadPlan(int count, char** arguments) {
  Plan plan;
  for (int i = 1; i + 1 < count; i += 2) {
    const std::string name = arguments[i];
    const auto number = std::strtoull(arguments[i + 1], nullptr, 10);
    if (name == "--seconds") plan.seconds = static_cast<unsigned>(number);
    if (name == "--seed") plan.seed = static_cast<unsigned>(number);
    if (name == "--phase") plan.phase = static_cast<unsigned>(number);
    if (name == "--kills") plan.kills = static_cast<unsigned>(number);
    if (name == "--end") plan.end = static_cast<long long>(number);
  }
  if (plan.end == 0) plan.end = Now() + 1000LL * plan.seconds;
  return plan;
}

[[noreturn]] void StartAnew(const Plan& plan) {
  const std::string words[] = {
      "--seconds", std::to_string(plan.seconds), "--seed",  std::to_string(plan.seed),
      "--phase",   std::to_string(plan.phase),   "--kills", std::to_string(plan.kills),
      "--end",     std::to_string(plan.end)};
  const char* arguments[std::size(words) + 2] = {"torture"};
  for (size_t i = 0; i < std::size(words); ++i) arguments[i + 1] = words[i].c_str();
  execv("/proc/self/exe", const_cast<char**>(arguments));
  throw Fault("the program cannot start itself anew");
}

void Prepare() {
  fs::create_directories(CommonFolder());
  fs::create_directories(fs::path(OwnLibrary(0)).parent_path());
  const fs::path fixtures = ORM_FIXTURES;
  fs::copy_file(fixtures / "alpha.dll", CommonFolder() + "/changing.dll");
  for (int i = 1; i <= 8; ++i) {
    const std::string name = "plain" + std::to_string(i) + ".dll";
    fs::copy_file(fixtures / name, CommonFolder() + "/" + name);
  }
  const std::string& key = test::TRACE_KEY;
  test::SetRegistryText(key, " option_target", "C:\\Windows\\Temp\\torture.log");
  test::SetRegistryText(key, " option_format", "%1|");
  test::SetRegistryText(key, " option_autoassert", "a");
  test::SetRegistryText(key + "\\torture_worker", "torture", "w");
  test::SetRegistryText(key + "\\ormutil", "ClsMgr_LibraryIntl", "t");
}

// One phase: a crew, and the kills.
class Phase {
 public:
  Phase(const Plan& plan, Ledger& ledger)
      : mPlan(plan),
        mAudit(ledger),
        mRandom(plan.seed + plan.phase),
        mCrew(ledger, fs::read_symlink("/proc/self/exe").parent_path() / "torture_worker", plan.GetWorkers(),
              plan.seed + plan.phase * 7919) {}

  // Returns the number of kills.
  unsigned Run() {
    const auto end = Clock::now() + mPlan.GetPhaseLength();
    // Nobody is alive: what the last phase left is there as a whole.
    for (unsigned i = 0; mPlan.phase > 0 && i < MOST_WORKERS; ++i) mAudit.Dead(i);
    mAudit.Machine();
    for (unsigned i = 0; i < mCrew.GetSize(); ++i) mCrew.Start(i);
    auto next = Clock::now();
    while (Clock::now() < end) {
      std::this_thread::sleep_for(milliseconds(Crew::TICK));
      mCrew.Watch();
      if (Clock::now() < next) continue;
      Strike();
      next = Clock::now() + milliseconds(mRandom() % 60);
    }
    if (mRandom() % 2 == 0) {
      for (unsigned i = 0; i < mCrew.GetSize(); ++i) Kill(i);
    } else {
      mCrew.Close();
    }
    mAudit.Machine();
    mAudit.Registry();
    return mKills;
  }
  const Crew& GetCrew() const { return mCrew; }

 private:
  void Kill(unsigned account) {
    mCrew.Kill(account);
    ++mKills;
    mAudit.Dead(account);
  }

  // The first one survives: it is the one that must not grow.
  void Strike() {
    // Not always at the beat of the ticks.
    for (auto spin = mRandom() % 100'000; spin > 0; --spin) asm volatile("");
    const unsigned victim = 1 + static_cast<unsigned>(mRandom()) % (mCrew.GetSize() - 1);
    const bool all = mRandom() % 16 == 0;
    for (unsigned i = 1; i < mCrew.GetSize(); ++i) {
      if (all || i == victim) Kill(i);
    }
    mAudit.Machine();
    for (unsigned i = 1; i < mCrew.GetSize(); ++i) {
      if (all || i == victim) mCrew.Start(i);
    }
  }

  const Plan& mPlan;
  Audit mAudit;
  std::mt19937 mRandom;
  Crew mCrew;
  unsigned mKills = 0;
};

// Ends the program when its main thread hangs, which no promise of the library allows for.
void GuardMainThread() {
  std::thread([] {
    std::this_thread::sleep_for(std::chrono::minutes(5));  // a phase is much shorter
    std::fputs("torture: the auditor itself hangs\n", stderr);
    std::_Exit(1);
  }).detach();
}

int Run(Plan plan) {
  if (plan.phase == 0) {
    Prepare();
    std::printf("torture: %u seconds, seed %u\n", plan.seconds, plan.seed);
    std::fflush(stdout);
  }
  GuardMainThread();
  try {
    Phase phase(plan, Ledger::Open());
    plan.kills += phase.Run();
    uint64_t operations = 0;
    for (const Account& account : Ledger::Open().accounts) operations += account.operations;
    std::printf("phase %u: %u workers, %u kills and %llu operations so far, longest sleep %u ms while %s\n",
                plan.phase, plan.GetWorkers(), plan.kills, static_cast<unsigned long long>(operations),
                phase.GetCrew().GetLongestSleep() * Crew::TICK,
                phase.GetCrew().GetLongestSleepName().c_str());
    std::fflush(stdout);
  } catch (const Fault& fault) {
    std::fprintf(stderr, "torture: %s\nto repeat: --seed %u, phase %u\n", fault.what(), plan.seed,
                 plan.phase);
    return 1;
  }
  ++plan.phase;
  // At least one phase of each size.
  if (Now() >= plan.end && plan.phase >= 3) return 0;
  StartAnew(plan);
}

}  // namespace
}  // namespace torture

int main(int count, char** arguments) try {
  return torture::Run(torture::ReadPlan(count, arguments));
} catch (const orm::Error& error) {
  std::fprintf(stderr, "torture: %s\n", Layers(error).c_str());
  return 1;
} catch (const std::exception& exception) {
  std::fprintf(stderr, "torture: %s\n", exception.what());
  return 1;
}
