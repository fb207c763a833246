// Loads the component of the outside project, or prints a text of its own resources.
#include <ormutil/ClassManager.h>
#include <ormutil/Error.h>

#include <cstdio>
#include <string>

#include "Greeter.h"

int main(int argc, char** argv) {
  try {
    if (argc > 2) {
      unsigned length = 0;
      unsigned short* text = nullptr;
      if (!orm::LoadResString(GetModuleHandleA(nullptr), 7, length, text)) return 1;
      std::puts(std::string(text, text + length).c_str());
      return 0;
    }
    orm::GetClassMgr()->Register(argv[1]);
    const orm::FacePtr<Greeter> greeter("CID_PoliteGreeter", "");
    std::puts(greeter->Greet("outside world").GetBegin());
  } catch (const orm::Error& error) {
    std::fprintf(stderr, "%s\n", error.Format().GetBegin());
    return 1;
  }
}
