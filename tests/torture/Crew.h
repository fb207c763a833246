// The workers as processes: started, watched, killed.
#pragma once

#include <sys/types.h>

#include <array>
#include <string>

#include "Ledger.h"

namespace torture {

class Crew {
 public:
  // `program` is the worker's path; random numbers of the workers come from `seed`.
  Crew(Ledger& ledger, std::string program, unsigned workers, unsigned seed)
      : mrLedger(ledger), mProgram(std::move(program)), mWorkers(workers), mSeed(seed) {}
  ~Crew();
  Crew(const Crew&) = delete;
  Crew& operator=(const Crew&) = delete;

  unsigned GetSize() const { return mWorkers; }
  void Start(unsigned account);
  // Returns when it is gone.
  void Kill(unsigned account);
  // Lets all end by themselves.
  void Close();

  // To be called every TICK milliseconds. Throws a Fault for a worker that ended by itself or that sleeps in
  // one operation for too long.
  //
  // Sleep is counted in ticks, of which a worker must be found asleep, in the same operation, at every one.
  // A tick is at least 10 ms long and gets longer when this process does not get its turn, and a worker that
  // is ready to run or waits for the disk is not asleep, so that a loaded machine makes the measure wider
  // and not narrower. What is promised is a second (100 ticks); what ends the test is twenty times that.
  void Watch();
  static constexpr unsigned TICK = 10;
  static constexpr unsigned MOST_TICKS = 2000;
  // The longest sleep so far, in ticks.
  unsigned GetLongestSleep() const { return mLongestSleep; }
  const std::string& GetLongestSleepName() const { return mLongestSleepName; }

 private:
  struct Worker {
    pid_t process = 0;
    uint64_t operation = 0;
    unsigned sleeping = 0;  // ticks
  };

  void ReportEnd(unsigned account, int status);
  static bool IsAsleep(pid_t process);

  Ledger& mrLedger;
  const std::string mProgram;
  const unsigned mWorkers;
  const unsigned mSeed;
  std::array<Worker, MOST_WORKERS> mCrew{};
  unsigned mLongestSleep = 0;
  std::string mLongestSleepName;
};

}  // namespace torture
