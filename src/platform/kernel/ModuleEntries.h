// The modules that have an entry point, and telling them of threads.
#pragma once

#include "win32/modules.h"

namespace orm::platform {

// Tell every registered module that the calling thread begins, or ends. A module that is being unloaded at
// the same time is either held until its call returns, or not called.
void NotifyThreadAttach() noexcept;
void NotifyThreadDetach() noexcept;

// Brackets a library load on the calling thread, so that a module whose attach fails can report to it.
class LoadInProgress {
 public:
  LoadInProgress() noexcept;
  ~LoadInProgress();
  LoadInProgress(const LoadInProgress&) = delete;
  LoadInProgress& operator=(const LoadInProgress&) = delete;
  bool AttachFailed() const noexcept { return mFailed; }

 private:
  friend bool ReportAttachFailure() noexcept;
  LoadInProgress* const mOuter;
  bool mFailed = false;
};

}  // namespace orm::platform
