// The modules that have an entry point, and telling them of threads.
#pragma once

#include "win32/modules.h"

namespace orm::platform {

// Tell every registered module that the calling thread begins, or ends. A module that is being unloaded at
// the same time is either held until its call returns, or not called.
void NotifyThreadAttach() noexcept;
void NotifyThreadDetach() noexcept;

// Whether the attach of the image at that address failed. The image stays until all who were handed it by the
// loader have given it back; until then it is of no use to anybody.
bool IsRefused(HMODULE module) noexcept;

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
