// Keeps the document that takes the last change back.
#include "RegUndo.h"

#include <unistd.h>

#include <cstdio>

#include "Console.h"
#include "Failure.h"
#include "kernel/Machine.h"

namespace orm::tool {

namespace {

// One file for each user, in a folder where everybody may make files and nobody touches another's.
std::string UndoFile() {
  const std::string folder = platform::MachinePath("undo");
  if (folder.empty() || platform::EnsureFolder(folder, 01777) != 0) return "";
  return folder + "/" + std::to_string(::geteuid()) + ".reg";
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
