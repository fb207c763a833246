// What must hold after every kill, looked at from outside of the workers.
#pragma once

#include <stdexcept>
#include <string>

#include "Ledger.h"

namespace torture {

// What an audit found to be wrong.
struct Fault : std::runtime_error {
  using std::runtime_error::runtime_error;
};

class Audit {
 public:
  explicit Audit(Ledger& ledger) : mrLedger(ledger) {}

  // The worker of this account has just been killed: what it acknowledged is there, and what it held is not.
  void Dead(unsigned account);
  // The machine as a whole: the cache block, the log, every now and then the whole registry.
  void Machine();
  void Registry();

 private:
  void Bag(unsigned account);
  void Names(unsigned account);
  void Log();
  void Line(const std::string& line);
  void Cache();

  Ledger& mrLedger;
  unsigned mRounds = 0;
};

}  // namespace torture
