// The last change of the registry by this user's command, kept in the machine folder as a settings file that
// takes it back.
#pragma once

#include "RegStore.h"

namespace orm::tool {

// Applies the document and keeps what takes it back. Where that cannot be kept a warning is printed.
void ApplyWithUndo(const RegDocument& document);

// Takes the last change back, which is itself a change that can be taken back. Throws Failure when there is
// none.
void UndoLastChange();

}  // namespace orm::tool
