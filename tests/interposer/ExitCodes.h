// How a scenario tells its driver what came of a failing call.
#pragma once

enum ExitCode : int {
  DONE = 0,          // it succeeded all the same
  REFUSED = 10,      // the library threw an Error of the kind that fits
  NO_MEMORY = 11,    // std::bad_alloc
  WRONG_ERROR = 20,  // an error that tells something else
  NOT_USABLE = 21,   // it fails even after the failure has passed
  LEAKED = 22,       // something is left over
  NOT_STEADY = 23,   // the scenario itself is not fit to be measured
  WRONG_ARGUMENTS = 24,
};

// std::terminate, which is what the C++ runtime does when std::bad_alloc leaves a static object's
// constructor.
constexpr int NO_MEMORY_BELOW = 128 + 6;
// Nor does it return when the library could not start: what the layer ends a program with, beside its
// message.
constexpr int CANNOT_START = 1;
