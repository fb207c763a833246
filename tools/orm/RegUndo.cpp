// Keeps the document that takes the last change back.
#include "RegUndo.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "Console.h"
#include "Failure.h"
#include "kernel/Machine.h"

namespace orm::tool {

namespace {

// One file for each user, in a folder where everybody may make files and nobody touches another's. What
// somebody else has put into its place is refused: it would be applied with this user's rights.
std::string UndoFile() {
  const std::string folder = platform::MachinePath("undo");
  if (folder.empty() || platform::EnsureFolder(folder, platform::MachineMode(01777)) != 0) return "";
  std::string file = folder + "/" + std::to_string(::geteuid()) + ".reg";
  struct stat status {};
  if (::lstat(file.c_str(), &status) == 0 && (!S_ISREG(status.st_mode) || status.st_uid != ::geteuid()))
    throw Failure(file + " is not this user's own file");
  return file;
}

// Version 4, because it can say every byte that the registry can hold but for a line break in a key's name.
void KeepUndo(const RegDocument& undo) {
  try {
    const std::string file = UndoFile();
    if (file.empty()) throw Failure("no machine folder to keep it in");
    WriteWholeFile(file, WriteRegFile(undo, RegForm::Version4), 0600);
  } catch (const Failure& failure) {
    std::fprintf(stderr, "orm: this change will not be undoable: %s\n", failure.what());
  }
}

}  // namespace

void ApplyWithUndo(const RegDocument& document) {
  ApplyRegDocument(document, KeepUndo);
}

void UndoLastChange() {
  const std::string file = UndoFile();
  if (file.empty() || ::access(file.c_str(), F_OK) != 0) throw Failure("there is no change to undo");
  ApplyWithUndo(ReadRegFile(ReadWholeFile(file)));
}

}  // namespace orm::tool
